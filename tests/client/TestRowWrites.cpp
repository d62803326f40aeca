#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QTest>
#include <QUuid>
#include <map>
#include <memory>
#include <random>
#include <tuple>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const QString staleEdit
    = QStringLiteral("The row was changed or deleted by another session. Refresh before editing it again.");
const QString rowGone = QStringLiteral("That result row is no longer available.");
const QString noKeyForEdit = QStringLiteral("This table has no primary key. Add one before editing cells in the grid.");

// A table's rows on one line, so a test sees at once which rows a write touched.
std::string state(const QString &table)
{
    static const std::map<QString, std::string> queries {
        { "w",
            "SELECT GROUP_CONCAT(id, ':', COALESCE(txt, 'NULL'), ':', COALESCE(amount, 'NULL') ORDER BY id) FROM w" },
        { "people", "SELECT GROUP_CONCAT(id, ':', name ORDER BY id) FROM people" },
        { "names", "SELECT GROUP_CONCAT(name ORDER BY name SEPARATOR '|') FROM names" },
        { "items", "SELECT GROUP_CONCAT(tenant, ':', id, ':', label ORDER BY tenant, id) FROM items" },
    };
    return queries.at(table);
}

} // namespace

class TestRowWrites final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void updateCell_data();
    void updateCell();
    void guardByColumnType_data();
    void guardByColumnType();
    void keyByColumnType_data();
    void keyByColumnType();
    void refusedWrites_data();
    void refusedWrites();
    void deleteRow_data();
    void deleteRow();
    void createUserWithAwkwardCredentials();
    void stringLiteral_data();
    void stringLiteral();
    void randomTextRoundTripUnderAnsiQuotes();

private:
    MySQLConnection &connection() { return m_scratch->connection(); }
    void resetTables();

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<MySQLConnection> m_otherSession;
    // The same pair on the server set up like many production servers.
    std::unique_ptr<ScratchDatabase> m_strictScratch;
    std::unique_ptr<MySQLConnection> m_strictOtherSession;
    Cell m_defaultSqlMode;
};

void TestRowWrites::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
        m_scratch = std::make_unique<ScratchDatabase>(m_server);
        m_otherSession = m_server.connect();
        m_otherSession->use(m_scratch->name());
        m_strictScratch = std::make_unique<ScratchDatabase>(m_server.strict());
        m_strictOtherSession = m_server.strict().connect();
        m_strictOtherSession->use(m_strictScratch->name());
        m_defaultSqlMode = scalar(connection(), "SELECT @@SESSION.sql_mode");

        m_scratch->run("CREATE TABLE w (id INT PRIMARY KEY, txt VARCHAR(50) NULL, amount DECIMAL(5,2) NULL)");
        m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20) NOT NULL, boss_id INT NULL)");
        m_scratch->run("CREATE TABLE items (tenant VARCHAR(10), id INT, label VARCHAR(20), PRIMARY KEY (tenant, id))");
        m_scratch->run("CREATE TABLE names (name VARCHAR(20) PRIMARY KEY)");
        m_scratch->run("CREATE TABLE nopk (a INT, b VARCHAR(10))");
        m_scratch->run("CREATE TABLE gen (id INT PRIMARY KEY, a INT, g INT AS (a * 2) VIRTUAL)");
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
}

void TestRowWrites::init()
{
    // Some rows change the session's SQL mode; every test starts from the server default.
    connection().query("SET SESSION sql_mode = '" + m_defaultSqlMode.value_or("") + "'");
    resetTables();
}

void TestRowWrites::cleanupTestCase()
{
    m_otherSession.reset();
    m_scratch.reset();
    m_strictOtherSession.reset();
    m_strictScratch.reset();
}

void TestRowWrites::resetTables()
{
    for (const char *table : { "w", "people", "items", "names", "nopk", "gen" }) {
        connection().query(std::string("DELETE FROM ") + table);
    }
    connection().query("INSERT INTO w VALUES (1, 'old', 1.50), (2, 'other', 9.99)");
    connection().query("INSERT INTO people VALUES (1, 'Ada', NULL), (2, 'Bob', 1)");
    connection().query("INSERT INTO items VALUES ('a', 1, 'x'), ('b', 1, 'y')");
    connection().query("INSERT INTO names VALUES ('O''Brien'), ('a\\\\b'), ('plain')");
    connection().query("INSERT INTO nopk VALUES (1, 'x')");
    connection().query("INSERT INTO gen (id, a) VALUES (1, 2)");
}

void TestRowWrites::updateCell_data()
{
    QTest::addColumn<QString>("before"); // run by this session before the grid is read
    QTest::addColumn<QString>("select");
    QTest::addColumn<QString>("elsewhere"); // run by another session after the grid was read
    QTest::addColumn<int>("column");
    QTest::addColumn<Cell>("value");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("table"); // whose rows are compared afterwards
    QTest::addColumn<Cell>("expected");

    // Plain edits, '' versus NULL, quotes in the new value, a value changed elsewhere and composite
    // keys are among the built-in integration checks; these rows are about how the row is matched.
    const QString w = "SELECT id, txt, amount FROM w ORDER BY id";
    const QString none;
    const QString saved = "(no error)";
    // clang-format off
    QTest::newRow("txt NULL to ''") << "UPDATE w SET txt = NULL WHERE id = 1" << w << none << 1 << Cell("") << saved
                                    << "w" << Cell("1::1.50,2:other:9.99");
    QTest::newRow("txt with apostrophe to plain") << "UPDATE w SET txt = 'it''s' WHERE id = 1" << w << none << 1
        << Cell("its") << saved << "w" << Cell("1:its:1.50,2:other:9.99");
    // The grid shows 1.50; "1.5" is the same number, so nothing changes but the row still matches.
    QTest::newRow("amount 1.50 to '1.5'") << none << w << none << 2 << Cell("1.5") << saved << "w"
                                          << Cell("1:old:1.50,2:other:9.99");
    QTest::newRow("key changed elsewhere") << none << w << "UPDATE w SET id = 5 WHERE id = 1" << 1 << Cell("mine")
                                           << staleEdit << "w" << Cell("2:other:9.99,5:old:1.50");
    // Only the edited cell is guarded: a change to another column of the row is no conflict.
    QTest::newRow("other column changed elsewhere") << none << w << "UPDATE w SET amount = 3 WHERE id = 1" << 1
        << Cell("mine") << saved << "w" << Cell("1:mine:3.00,2:other:9.99");
    // The built-in check edits the last alias; the first one must find its own key, not the last.
    QTest::newRow("self-join, employee side e.name") << none
        << "SELECT e.id, e.name, b.id, b.name FROM people e JOIN people b ON b.id = e.boss_id" << none << 1
        << Cell("Zed") << saved << "people" << Cell("1:Ada,2:Zed");
    QTest::newRow("self-join, boss key not selected") << none
        << "SELECT e.id, e.name, b.name FROM people e JOIN people b ON b.id = e.boss_id" << none << 2 << Cell("Zed")
        << "The primary-key column id is missing from this result." << "people" << Cell("1:Ada,2:Bob");
    QTest::newRow("composite key (tenant, id) after the edited column") << none
        << "SELECT id, label, tenant FROM items WHERE tenant = 'b'" << none << 1 << Cell("Zed") << saved << "items"
        << Cell("a:1:x,b:1:Zed");
    // clang-format on
}

void TestRowWrites::updateCell()
{
    QFETCH(QString, before);
    QFETCH(QString, select);
    QFETCH(QString, elsewhere);
    QFETCH(int, column);
    QFETCH(Cell, value);
    QFETCH(QString, error);
    QFETCH(QString, table);
    QFETCH(Cell, expected);

    if (!before.isEmpty()) {
        connection().query(before.toStdString());
    }
    const QueryResult grid = connection().query(select.toStdString());
    if (!elsewhere.isEmpty()) {
        m_otherSession->query(elsewhere.toStdString());
    }
    QCOMPARE(errorFrom([&] { connection().updateCell(grid, 0, column, value); }), error);
    QCOMPARE(scalar(connection(), state(table)), expected);
}

// The stale-row guard compares what the grid showed with what the server would show now, for every
// type: an untouched cell can be edited, and a change made behind the grid's back is refused even
// where the column's own comparison would call the two values equal.
void TestRowWrites::guardByColumnType_data()
{
    QTest::addColumn<bool>("strict"); // on the server set up like many production servers
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("changedElsewhere");

    const std::tuple<const char *, const char *, const char *, const char *> types[] = {
        { "FLOAT 1.1", "FLOAT", "1.1", "1.2" },
        { "DOUBLE 0.1 + 0.2", "DOUBLE", "0.1e0 + 0.2e0", "0.3e0" },
        { "DECIMAL past double precision",
            "DECIMAL(30,10)",
            "12345678901234567.1234567891",
            "12345678901234567.1234567890" },
        { "DATETIME(6)", "DATETIME(6)", "'2024-01-02 03:04:05.123456'", "'2024-01-02 03:04:05.123457'" },
        { "TIMESTAMP(3) in the session's zone",
            "TIMESTAMP(3) NULL",
            "'2024-03-10 01:30:00.250'",
            "'2024-03-10 01:30:00.251'" },
        { "TIME(3)", "TIME(3)", "'-12:01:02.500'", "'-12:01:02.501'" },
        { "YEAR", "YEAR", "2024", "2025" },
        { "ENUM", "ENUM('a','b')", "'b'", "'a'" },
        { "SET", "SET('x','y')", "'x,y'", "'x'" },
        { "JSON", "JSON", "'{\"a\": [1, 2]}'", "'{\"a\": [1, 3]}'" },
        { "trailing spaces", "VARCHAR(20)", "'abc  '", "'abc'" },
        { "letter case", "VARCHAR(20)", "'abc'", "'ABC'" },
        { "latin1 text", "VARCHAR(20) CHARACTER SET latin1", "'caf\xC3\xA9'", "'cafe'" },
        { "BIGINT past double precision", "BIGINT UNSIGNED", "9007199254740993", "9007199254740992" },
    };
    for (const bool strict : { false, true }) {
        for (const auto &[name, type, stored, changed] : types) {
            QTest::addRow("%s%s", strict ? "strict server: " : "", name) << strict << type << stored << changed;
        }
    }
}

void TestRowWrites::guardByColumnType()
{
    QFETCH(bool, strict);
    QFETCH(QString, type);
    QFETCH(QString, stored);
    QFETCH(QString, changedElsewhere);

    MySQLConnection &mine = strict ? m_strictScratch->connection() : connection();
    MySQLConnection &other = strict ? *m_strictOtherSession : *m_otherSession;
    mine.query("DROP TABLE IF EXISTS typed");
    mine.query("CREATE TABLE typed (id INT PRIMARY KEY, c " + type.toStdString() + ")");
    const auto reset = [&] {
        mine.query("DELETE FROM typed");
        mine.query("INSERT INTO typed VALUES (1, " + stored.toStdString() + "), (2, " + stored.toStdString() + ")");
    };
    const std::string select = "SELECT id, c FROM typed ORDER BY id";
    const std::string nulls = "SELECT GROUP_CONCAT(id ORDER BY id) FROM typed WHERE c IS NULL";

    // Untouched: the edit lands on its row.
    reset();
    QueryResult grid = mine.query(select);
    QCOMPARE(errorFrom([&] { mine.updateCell(grid, 0, 1, Cell()); }), QStringLiteral("(no error)"));
    QCOMPARE(scalar(mine, nulls), Cell("1"));

    // Changed behind the grid's back: refused, and nothing is written.
    reset();
    grid = mine.query(select);
    other.query("UPDATE typed SET c = " + changedElsewhere.toStdString() + " WHERE id = 1");
    QCOMPARE(errorFrom([&] { mine.updateCell(grid, 0, 1, Cell()); }), staleEdit);
    QCOMPARE(scalar(mine, nulls), Cell());
}

// A key of any type pins its own row: an edit and a delete touch that row and no other, also
// where the key's text is rounded (FLOAT), raw bytes (BIT, binary) or equal to another key under
// a looser comparison (trailing spaces, numbers past double precision).
void TestRowWrites::keyByColumnType_data()
{
    QTest::addColumn<bool>("strict");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");

    const std::tuple<const char *, const char *, const char *, const char *> types[] = {
        { "FLOAT", "FLOAT", "1.1", "1.2" },
        { "DOUBLE", "DOUBLE", "0.1e0 + 0.2e0", "0.3e0" },
        { "DECIMAL", "DECIMAL(30,10)", "12345678901234567.1234567891", "12345678901234567.1234567890" },
        { "BIT", "BIT(8)", "b'00000001'", "b'10000000'" },
        { "VARBINARY with zero bytes", "VARBINARY(8)", "X'00FF'", "X'00FF00'" },
        { "BINARY padded", "BINARY(4)", "X'01'", "X'0102'" },
        { "DATETIME(6)", "DATETIME(6)", "'2024-01-02 03:04:05.123456'", "'2024-01-02 03:04:05.123457'" },
        { "TIME(3)", "TIME(3)", "'-12:01:02.500'", "'12:01:02.500'" },
        { "YEAR", "YEAR", "2024", "2025" },
        { "ENUM", "ENUM('a','b')", "'b'", "'a'" },
        { "SET", "SET('x','y')", "'x,y'", "'x'" },
        { "text with a trailing space", "VARCHAR(8) COLLATE utf8mb4_nopad_bin", "'a '", "'a'" },
        { "BIGINT past double precision", "BIGINT UNSIGNED", "9007199254740993", "9007199254740992" },
    };
    for (const bool strict : { false, true }) {
        for (const auto &[name, type, first, second] : types) {
            QTest::addRow("%s%s", strict ? "strict server: " : "", name) << strict << type << first << second;
        }
    }
}

void TestRowWrites::keyByColumnType()
{
    QFETCH(bool, strict);
    QFETCH(QString, type);
    QFETCH(QString, first);
    QFETCH(QString, second);

    ScratchDatabase &scratch = strict ? *m_strictScratch : *m_scratch;
    MySQLConnection &mine = scratch.connection();
    mine.query("DROP TABLE IF EXISTS keyed");
    mine.query("CREATE TABLE keyed (k " + type.toStdString() + " PRIMARY KEY, v INT)");
    mine.query("INSERT INTO keyed VALUES (" + first.toStdString() + ", 1), (" + second.toStdString() + ", 2)");
    const QueryResult grid = mine.query("SELECT k, v FROM keyed ORDER BY v");
    const std::string values = "SELECT GROUP_CONCAT(v ORDER BY v) FROM keyed";

    QCOMPARE(errorFrom([&] { mine.updateCell(grid, 0, 1, Cell("10")); }), QStringLiteral("(no error)"));
    QCOMPARE(scalar(mine, values), Cell("2,10"));
    QCOMPARE(errorFrom([&] { mine.deleteRow(grid, 1, scratch.name(), "keyed"); }), QStringLiteral("(no error)"));
    QCOMPARE(scalar(mine, values), Cell("10"));
}

// Refused before anything is sent: the server counts no UPDATE or DELETE.
void TestRowWrites::refusedWrites_data()
{
    QTest::addColumn<QString>("table"); // the table a delete names; empty: an edit of the cell
    QTest::addColumn<QString>("select");
    QTest::addColumn<qint64>("row");
    QTest::addColumn<qint64>("column");
    QTest::addColumn<QString>("error");

    const QString edit;
    // clang-format off
    QTest::newRow("edit: table without a primary key") << edit << "SELECT a, b FROM nopk" << qint64(0) << qint64(1)
                                                       << noKeyForEdit;
    QTest::newRow("edit: VIRTUAL generated column") << edit << "SELECT id, a, g FROM gen" << qint64(0) << qint64(2)
                                                    << "Generated columns are read-only.";
    QTest::newRow("edit: row -1") << edit << "SELECT id, a FROM gen" << qint64(-1) << qint64(1) << rowGone;
    QTest::newRow("edit: row 1 of a one-row result") << edit << "SELECT id, a FROM gen" << qint64(1) << qint64(1)
                                                     << rowGone;
    QTest::newRow("edit: column 2 of two") << edit << "SELECT id, a FROM gen" << qint64(0) << qint64(2) << rowGone;
    QTest::newRow("delete: table without a primary key") << "nopk" << "SELECT a, b FROM nopk" << qint64(0)
        << qint64(0) << "This table has no primary key. Use SQL to edit it without risking an ambiguous row match.";
    // clang-format on
}

void TestRowWrites::refusedWrites()
{
    QFETCH(QString, table);
    QFETCH(QString, select);
    QFETCH(qint64, row);
    QFETCH(qint64, column);
    QFETCH(QString, error);

    const QueryResult grid = connection().query(select.toStdString());
    const auto writes
        = [this] { return sessionStatus(connection(), "Com_update") + sessionStatus(connection(), "Com_delete"); };
    const long long before = writes();
    QCOMPARE(errorFrom([&] {
        if (table.isEmpty()) {
            connection().updateCell(grid, row, column, Cell("7"));
        } else {
            connection().deleteRow(grid, row, m_scratch->name(), table.toStdString());
        }
    }),
        error);
    QCOMPARE(writes() - before, 0);
}

void TestRowWrites::deleteRow_data()
{
    QTest::addColumn<QString>("sqlMode"); // empty: the server default
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("select");
    QTest::addColumn<qint64>("row");
    QTest::addColumn<Cell>("expected");

    // In name order: a\b, O'Brien, plain.
    QTest::newRow("names: key a\\b under ANSI_QUOTES,NO_BACKSLASH_ESCAPES")
        << "ANSI_QUOTES,NO_BACKSLASH_ESCAPES"
        << "names"
        << "SELECT name FROM names ORDER BY name" << qint64(0) << Cell("O'Brien|plain");
    QTest::newRow("items: composite key selected in reverse")
        << QString() << "items"
        << "SELECT label, id, tenant FROM items ORDER BY tenant" << qint64(1) << Cell("a:1:x");
}

void TestRowWrites::deleteRow()
{
    QFETCH(QString, sqlMode);
    QFETCH(QString, table);
    QFETCH(QString, select);
    QFETCH(qint64, row);
    QFETCH(Cell, expected);

    if (!sqlMode.isEmpty()) {
        connection().query("SET SESSION sql_mode = '" + sqlMode.toStdString() + "'");
    }
    const QueryResult grid = connection().query(select.toStdString());
    connection().deleteRow(grid, row, m_scratch->name(), table.toStdString());
    QCOMPARE(scalar(connection(), state(table)), expected);

    // The same grid row again: it is gone, and nothing else may go in its place.
    QCOMPARE(errorFrom([&] { connection().deleteRow(grid, row, m_scratch->name(), table.toStdString()); }),
        QStringLiteral("The row no longer exists. Refresh the table."));
    QCOMPARE(scalar(connection(), state(table)), expected);
}

// The server's default mode is among the built-in integration checks.
void TestRowWrites::createUserWithAwkwardCredentials()
{
    const std::string name = "tw_o'k\\" + QUuid::createUuid().toString(QUuid::Id128).left(12).toStdString();
    const std::string host = "127.0.0.1";
    const std::string password = "trial'case\\value";
    // Removed however the test ends, by a statement that does not rely on the quoting under test.
    const std::string nameHex = "X'" + upperHex(name).toStdString() + "'";
    struct DropAccount {
        MySQLConnection &admin;
        std::string user;
        ~DropAccount()
        {
            try {
                admin.query("DELETE FROM mysql.global_priv WHERE User = " + user);
                admin.query("FLUSH PRIVILEGES");
            } catch (const AppError &) {
            }
        }
    } dropAccount { connection(), nameHex };

    connection().query("SET SESSION sql_mode = 'NO_BACKSLASH_ESCAPES'");
    connection().createUser(name, host, password);
    QCOMPARE(
        scalar(connection(), "SELECT COUNT(*) FROM mysql.user WHERE User = " + nameHex + " AND Host = '127.0.0.1'"),
        Cell("1"));

    ConnectionProfile profile = m_server.profile();
    profile.user = name;
    MySQLConnection user(profile);
    user.connect(password);
    QCOMPARE(scalar(user, "SELECT CURRENT_USER()"), Cell(name + "@" + host));
    // A password that differs only in its backslashes is refused: the login above proved the bytes.
    const QString wrong = errorFrom([&] { user.connect("trial'case\\\\value"); });
    QVERIFY2(wrong.startsWith("MySQL 1045: "), qPrintable(wrong));
}

void TestRowWrites::stringLiteral_data()
{
    QTest::addColumn<QString>("sqlMode");
    QTest::addColumn<QByteArray>("text");

    const std::pair<const char *, QByteArray> texts[] = {
        { "empty", QByteArray() },
        { "\\' pair", "\\'" },
        { "NUL inside", QByteArray("a\0b", 3) },
        { "U+1F9F9 and é", "\xF0\x9F\xA7\xB9 caf\xC3\xA9" },
    };
    for (const char *mode : { "", "NO_BACKSLASH_ESCAPES", "ANSI_QUOTES,NO_BACKSLASH_ESCAPES" }) {
        for (const auto &[label, text] : texts) {
            QTest::addRow("%s: %s", *mode ? mode : "default mode", label) << QString(mode) << text;
        }
    }
}

void TestRowWrites::stringLiteral()
{
    QFETCH(QString, sqlMode);
    QFETCH(QByteArray, text);

    if (!sqlMode.isEmpty()) {
        connection().query("SET SESSION sql_mode = '" + sqlMode.toStdString() + "'");
    }
    const std::string literal = connection().stringLiteral(text.toStdString());
    QVERIFY(literal.size() >= 2 && literal.front() == '\'' && literal.back() == '\'');
    QCOMPARE(scalar(connection(), "SELECT HEX(" + literal + ")"), Cell(text.toHex().toUpper().toStdString()));
}

void TestRowWrites::randomTextRoundTripUnderAnsiQuotes()
{
    connection().query("CREATE TABLE rt (id INT PRIMARY KEY, body TEXT NULL)");
    connection().query("INSERT INTO rt SELECT seq, 'seed' FROM seq_1_to_200");
    connection().query("SET SESSION sql_mode = 'ANSI_QUOTES,NO_BACKSLASH_ESCAPES'");

    std::mt19937 random(20250304);
    std::vector<std::string> strings;
    for (int i = 0; i < 200; ++i) {
        strings.push_back(awkwardText(random, 12));
    }
    const QueryResult grid = connection().query("SELECT id, body FROM rt ORDER BY id");
    QCOMPARE(grid.rows.size(), strings.size());
    for (std::size_t i = 0; i < strings.size(); ++i) {
        const QString error = errorFrom([&] { connection().updateCell(grid, qint64(i), 1, Cell(strings[i])); });
        QVERIFY2(
            error == "(no error)", qPrintable(QString("row %1 (%2): %3").arg(i).arg(upperHex(strings[i])).arg(error)));
    }

    const QueryResult hex = connection().query("SELECT HEX(body) FROM rt ORDER BY id");
    connection().query("DROP TABLE rt");
    QCOMPARE(hex.rows.size(), strings.size());
    for (std::size_t i = 0; i < strings.size(); ++i) {
        QCOMPARE(hex.rows[i][0], Cell(upperHex(strings[i]).toStdString()));
    }
}

QTEST_GUILESS_MAIN(TestRowWrites)
#include "TestRowWrites.moc"
