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
    Cell m_defaultSqlMode;
};

void TestRowWrites::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
        m_scratch = std::make_unique<ScratchDatabase>(m_server);
        m_otherSession = m_server.connect();
        m_otherSession->use(m_scratch->name());
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
