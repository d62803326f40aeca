#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QTest>
#include <memory>
#include <random>
#include <tuple>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const QString saved = QStringLiteral("(no error)");
const QString staleEdit
    = QStringLiteral("The row was changed or deleted by another session. Refresh before editing it again.");

} // namespace

class TestRowWrites final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void writes_data();
    void writes();
    void byColumnType_data();
    void byColumnType();
    void quotingUnderSqlModes_data();
    void quotingUnderSqlModes();

private:
    MySQLConnection &connection() { return m_scratch.connection(); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    // A scratch database and a second session on it, on each server: the default one and the one
    // set up like many production servers.
    ScratchDatabase m_scratch { m_server };
    const std::unique_ptr<MySQLConnection> m_otherSession = m_server.connect();
    ScratchDatabase m_strictScratch { m_server.strict() };
    const std::unique_ptr<MySQLConnection> m_strictOtherSession = m_server.strict().connect();
};

void TestRowWrites::initTestCase()
{
    m_otherSession->use(m_scratch.name());
    m_strictOtherSession->use(m_strictScratch.name());
}

void TestRowWrites::init()
{
    connection().query("SET SESSION sql_mode = DEFAULT");
    connection().query("DROP TABLE IF EXISTS w, nopk, gen");
    connection().query("CREATE TABLE w (id INT PRIMARY KEY, txt VARCHAR(50) NULL, amount DECIMAL(5,2), boss INT NULL)");
    connection().query("CREATE TABLE nopk (a INT, b VARCHAR(10))");
    connection().query("CREATE TABLE gen (id INT PRIMARY KEY, a INT, g INT AS (a * 2) VIRTUAL)");
    connection().query("INSERT INTO w VALUES (1, NULL, 1.50, NULL), (2, 'other', 9.99, 1)");
    connection().query("INSERT INTO nopk VALUES (1, 'x')");
    connection().query("INSERT INTO gen (id, a) VALUES (1, 2)");
}

void TestRowWrites::writes_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<QString>("elsewhere"); // run by another session after the grid was read
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column"); // the cell set to '1.5'; -1: delete the row instead
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("expected"); // the rows of w; empty: unchanged

    // Plain edits, '' versus NULL, a value changed elsewhere, composite keys, the last alias of a
    // self-join and a calculated column are among the built-in integration checks.
    const QString w = "SELECT id, txt, amount FROM w ORDER BY id";
    const QString gen = "SELECT id, a FROM gen";
    const QString none;
    const QString rowGone = QStringLiteral("That result row is no longer available.");
    // clang-format off
    QTest::newRow("txt shown as NULL") << w << none << 0 << 1 << saved << "1:1.5:1.50,2:other:9.99";
    // "1.5" is the number the grid shows as 1.50: nothing changes, but the row still matches.
    QTest::newRow("amount shown as 1.50") << w << none << 0 << 2 << saved << "1:NULL:1.50,2:other:9.99";
    // Only the edited cell is guarded: a change to another column of the row is no conflict.
    QTest::newRow("other column changed elsewhere") << w << "UPDATE w SET amount = 3 WHERE id = 1" << 0 << 1 << saved
                                                    << "1:1.5:3.00,2:other:9.99";
    QTest::newRow("self-join, first alias") << "SELECT e.id, e.txt, b.id, b.txt FROM w e JOIN w b ON b.id = e.boss"
                                            << none << 0 << 1 << saved << "1:NULL:1.50,2:1.5:9.99";
    // Refused before anything is sent.
    QTest::newRow("self-join, that alias's key not selected") << "SELECT e.id, e.txt, b.txt FROM w e JOIN w b ON "
        "b.id = e.boss" << none << 0 << 2 << "The primary-key column id is missing from this result." << none;
    QTest::newRow("edit: table without a primary key") << "SELECT a, b FROM nopk" << none << 0 << 1
        << "This table has no primary key. Add one before editing cells in the grid." << none;
    QTest::newRow("edit: VIRTUAL generated column") << "SELECT id, a, g FROM gen" << none << 0 << 2
                                                    << "Generated columns are read-only." << none;
    QTest::newRow("edit: row 1 of one") << gen << none << 1 << 1 << rowGone << none;
    QTest::newRow("edit: column 2 of two") << gen << none << 0 << 2 << rowGone << none;
    QTest::newRow("delete: table without a primary key") << "SELECT a, b FROM nopk" << none << 0 << -1
        << "This table has no primary key. Use SQL to edit it without risking an ambiguous row match." << none;
    // clang-format on
}

void TestRowWrites::writes()
{
    QFETCH(QString, select);
    QFETCH(QString, elsewhere);
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QString, error);
    QFETCH(QString, expected);

    const QueryResult grid = connection().query(select.toStdString());
    if (!elsewhere.isEmpty()) {
        m_otherSession->query(elsewhere.toStdString());
    }
    const auto writes
        = [this] { return sessionStatus(connection(), "Com_update") + sessionStatus(connection(), "Com_delete"); };
    const long long before = writes();
    QCOMPARE(errorFrom([&] {
        if (column < 0) {
            connection().deleteRow(grid, row, m_scratch.name(), grid.fields.at(0).table);
        } else {
            connection().updateCell(grid, row, column, Cell("1.5"));
        }
    }),
        error);
    QCOMPARE(writes() - before, error == saved ? 1 : 0);
    QCOMPARE(
        scalar(connection(), "SELECT GROUP_CONCAT(id, ':', COALESCE(txt, 'NULL'), ':', amount ORDER BY id) FROM w"),
        Cell(expected.isEmpty() ? "1:NULL:1.50,2:other:9.99" : expected.toStdString()));
}

// Two values of a type that a loose comparison may mix up: the text is rounded (FLOAT, DOUBLE),
// raw bytes (BIT, binary), past double precision, or equal under the column's collation. As a
// key (k), each value pins its own row for an edit and a delete. As the edited cell (g), the
// stale-row guard compares what the grid showed with what the server would show now: an untouched
// cell can be edited, and one changed to the other value behind the grid's back is refused.
void TestRowWrites::byColumnType_data()
{
    QTest::addColumn<bool>("strict"); // on the server set up like many production servers
    QTest::addColumn<QString>("roles");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");

    // clang-format off
    const std::tuple<const char *, const char *, const char *, const char *, const char *> types[] = {
        { "kg", "FLOAT", "FLOAT", "1.1", "1.2" },
        { "kg", "DOUBLE", "DOUBLE", "0.1e0 + 0.2e0", "0.3e0" },
        { "kg", "DECIMAL", "DECIMAL(30,10)", "12345678901234567.1234567891", "12345678901234567.1234567890" },
        { "kg", "BIGINT", "BIGINT UNSIGNED", "9007199254740993", "9007199254740992" },
        { "k", "BIT", "BIT(8)", "b'00000001'", "b'10000000'" },
        { "k", "VARBINARY with zero bytes", "VARBINARY(8)", "X'00FF'", "X'00FF00'" },
        { "k", "BINARY padded", "BINARY(4)", "X'01'", "X'0102'" },
        { "k", "negative TIME(3)", "TIME(3)", "'-12:01:02.500'", "'12:01:02.500'" },
        { "k", "trailing space, no padding", "VARCHAR(8) COLLATE utf8mb4_nopad_bin", "'a '", "'a'" },
        { "g", "TIMESTAMP(3), zone with DST", "TIMESTAMP(3) NULL", "'2024-03-10 01:30:00.250'", "'2024-03-10 01:30:00.251'" },
        { "g", "JSON", "JSON", "'{\"a\": [1, 2]}'", "'{\"a\": [1, 3]}'" },
        { "g", "trailing spaces", "VARCHAR(20)", "'abc  '", "'abc'" },
        { "g", "letter case", "VARCHAR(20)", "'abc'", "'ABC'" },
        { "g", "latin1 text", "VARCHAR(20) CHARACTER SET latin1", "'caf\xC3\xA9'", "'cafe'" },
    };
    // clang-format on
    for (const bool strict : { false, true }) {
        for (const auto &[roles, name, type, first, second] : types) {
            QTest::addRow("%s%s: %s", strict ? "strict server, " : "", roles, name)
                << strict << roles << type << first << second;
        }
    }
}

void TestRowWrites::byColumnType()
{
    QFETCH(bool, strict);
    QFETCH(QString, roles);
    QFETCH(QString, type);
    QFETCH(QString, first);
    QFETCH(QString, second);

    ScratchDatabase &scratch = strict ? m_strictScratch : m_scratch;
    MySQLConnection &mine = scratch.connection();
    const bool k = roles.contains('k');
    const bool g = roles.contains('g');
    const auto of = [&](bool typed, const QString &value, const char *other) {
        return typed ? value.toStdString() : std::string(other);
    };
    mine.query("DROP TABLE IF EXISTS typed");
    mine.query("CREATE TABLE typed (k " + of(k, type, "INT") + " PRIMARY KEY, c " + of(g, type, "INT") + ", v INT)");
    mine.query("INSERT INTO typed VALUES (" + of(k, first, "1") + ", " + of(g, first, "1") + ", 1), ("
        + of(k, second, "2") + ", " + of(g, first, "1") + ", 2)");
    const QueryResult grid = mine.query("SELECT k, c, v FROM typed ORDER BY v");
    (strict ? *m_strictOtherSession : *m_otherSession)
        .query("UPDATE typed SET c = " + of(g, second, "2") + " WHERE v = 2");
    QCOMPARE(errorFrom([&] { mine.updateCell(grid, 0, 1, Cell()); }), saved);
    QCOMPARE(errorFrom([&] { mine.updateCell(grid, 1, 1, Cell()); }), staleEdit);
    QCOMPARE(errorFrom([&] { mine.deleteRow(grid, 1, scratch.name(), "typed"); }), saved);
    QCOMPARE(scalar(mine, "SELECT GROUP_CONCAT(v, ':', c IS NULL) FROM typed"), Cell("1:1"));
}

void TestRowWrites::quotingUnderSqlModes_data()
{
    QTest::addColumn<QString>("sqlMode");
    QTest::newRow("default mode") << QString();
    QTest::newRow("NO_BACKSLASH_ESCAPES") << "NO_BACKSLASH_ESCAPES";
    QTest::newRow("ANSI_QUOTES,NO_BACKSLASH_ESCAPES") << "ANSI_QUOTES,NO_BACKSLASH_ESCAPES";
}

// Text that breaks naive quoting travels intact as a connection's string literal, as a new cell
// value, as the shown value the stale-row guard compares, and as the key of an edit and a delete.
void TestRowWrites::quotingUnderSqlModes()
{
    QFETCH(QString, sqlMode);

    std::vector<std::string> texts { "", "\\'", std::string("a\0b", 3), "\xF0\x9F\xA7\xB9 caf\xC3\xA9" };
    std::mt19937 random(20250304);
    while (texts.size() < 40) {
        texts.push_back(awkwardText(random, 12));
    }
    connection().query("SET SESSION sql_mode = '" + sqlMode.toStdString() + "'");
    for (const std::string &text : texts) {
        QCOMPARE(scalar(connection(), "SELECT " + connection().stringLiteral(text)), Cell(text));
    }

    // Each key is its number, a colon and its text; each pass writes the text of a later row.
    connection().query("DROP TABLE IF EXISTS quoted");
    connection().query("CREATE TABLE quoted (k VARCHAR(200) PRIMARY KEY, body TEXT NULL)");
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string key = std::to_string(i) + ":" + texts[i];
        connection().query("INSERT INTO quoted VALUES (CONVERT(" + hexLiteral(key) + " USING utf8mb4), '')");
    }
    QueryResult grid;
    for (std::size_t pass = 1; pass <= 2; ++pass) {
        grid = connection().query("SELECT k, body FROM quoted");
        for (std::size_t row = 0; row < grid.rows.size(); ++row) {
            const Cell body(texts[(std::stoul(grid.rows[row][0].value()) + pass) % texts.size()]);
            QCOMPARE(errorFrom([&] { connection().updateCell(grid, qint64(row), 1, body); }), saved);
        }
    }
    connection().deleteRow(grid, 0, m_scratch.name(), "quoted");
    QCOMPARE(errorFrom([&] { connection().deleteRow(grid, 0, m_scratch.name(), "quoted"); }),
        QStringLiteral("The row no longer exists. Refresh the table."));

    const QueryResult stored = connection().query("SELECT k, body FROM quoted");
    QCOMPARE(stored.rows.size(), texts.size() - 1);
    for (const Row &row : stored.rows) {
        const std::size_t i = std::stoul(row.at(0).value());
        QCOMPARE(row[0], Cell(std::to_string(i) + ":" + texts[i]));
        QCOMPARE(row.at(1), Cell(texts[(i + 2) % texts.size()]));
        QVERIFY(row[0] != grid.rows[0][0]);
    }
}

QTEST_GUILESS_MAIN(TestRowWrites)
#include "TestRowWrites.moc"
