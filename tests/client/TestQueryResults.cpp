#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QTest>
#include <memory>

using namespace tallowick;
using namespace tallowick::test;

class TestQueryResults final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void rowCap_data();
    void rowCap();
    void statementsWithoutResultSet();
    void procedureResults_data();
    void procedureResults();
    void cellValues_data();
    void cellValues();
    void invalidUtf8InTextColumn();
    void fieldMetadata_data();
    void fieldMetadata();
    void columnDescriptions_data();
    void columnDescriptions();

private:
    MySQLConnection &connection() { return m_scratch->connection(); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
    std::unique_ptr<ScratchDatabase> m_scratch;
};

void TestQueryResults::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
        m_scratch = std::make_unique<ScratchDatabase>(m_server);
        m_scratch->run("CREATE TABLE customers (id INT PRIMARY KEY, name VARCHAR(40) NOT NULL, note VARCHAR(40))");
        m_scratch->run("CREATE TABLE orders (id INT PRIMARY KEY, customer_id INT NOT NULL)");
        m_scratch->run("INSERT INTO customers VALUES (1, 'Ada', NULL)");
        m_scratch->run("INSERT INTO orders VALUES (10, 1)");
        m_scratch->run("CREATE TABLE described (id INT NOT NULL PRIMARY KEY COMMENT 'row key', plain VARCHAR(20) NULL,"
                       " empty_default VARCHAR(20) NOT NULL DEFAULT '', doubled INT AS (id * 2) VIRTUAL,"
                       " created TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP, u VARCHAR(36) DEFAULT uuid(),"
                       " d DATE DEFAULT curdate(), e INT DEFAULT (1 + 1), ts DATETIME(6) DEFAULT current_timestamp(6),"
                       " lit VARCHAR(10) DEFAULT 'uuid()', n DOUBLE DEFAULT -1.5e3)");
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
}

void TestQueryResults::cleanupTestCase()
{
    m_scratch.reset();
}

void TestQueryResults::rowCap_data()
{
    QTest::addColumn<int>("available");
    QTest::addColumn<qint64>("maxRows");
    QTest::addColumn<int>("kept");
    QTest::addColumn<bool>("truncated");
    QTest::addColumn<QString>("message");

    QTest::newRow("3 rows, maxRows 0") << 3 << qint64(0) << 0 << true << "0 rows · display limit reached";
    QTest::newRow("no rows, maxRows 0") << 0 << qint64(0) << 0 << false << "0 rows";
    QTest::newRow("3 rows, maxRows 3") << 3 << qint64(3) << 3 << false << "3 rows";
    QTest::newRow("4 rows, maxRows 3") << 4 << qint64(3) << 3 << true << "3 rows · display limit reached";
}

void TestQueryResults::rowCap()
{
    QFETCH(int, available);
    QFETCH(qint64, maxRows);
    QFETCH(int, kept);
    QFETCH(bool, truncated);
    QFETCH(QString, message);

    const QueryResult result
        = connection().query("SELECT seq FROM seq_1_to_10 WHERE seq <= " + std::to_string(available), maxRows);
    QStringList expected;
    for (int i = 1; i <= kept; ++i) {
        expected << QString::number(i);
    }
    QCOMPARE(rowTexts(result.rows), expected);
    QCOMPARE(result.truncated, truncated);
    QCOMPARE(QString::fromStdString(result.message), message);

    // Rows left unread on the wire would make this fail with "Commands out of sync".
    QCOMPARE(scalar(connection(), "SELECT 'next'"), Cell("next"));
}

void TestQueryResults::statementsWithoutResultSet()
{
    connection().query("CREATE TABLE counted (id INT PRIMARY KEY, v INT)");
    connection().query("INSERT INTO counted VALUES (1, 0), (2, 0), (3, 5)");
    // The connection counts matched rows: the row already holding 5 still counts.
    const std::string update = "UPDATE counted SET v = 5";
    const QueryResult result = connection().query(update);
    QVERIFY(result.fields.empty() && result.rows.empty() && !result.truncated);
    QCOMPARE(result.affected, std::uint64_t(3));
    QCOMPARE(QString::fromStdString(result.message), QStringLiteral("3 rows affected"));
    QCOMPARE(result.statement, update);
    const QString error = errorFrom([&] { connection().query("SELECT * FROM no_such_table"); });
    QVERIFY2(error.startsWith("MySQL 1146: "), qPrintable(error));
}

void TestQueryResults::procedureResults_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("streamed"); // read through the export's uncapped row stream instead
    QTest::addColumn<QString>("outcome"); // the message, or the error's start

    // clang-format off
    QTest::newRow("three SELECTs") << "SELECT 1 AS a; SELECT 2 AS b; SELECT 3 AS c;" << false
                                   << "1 rows · 2 more result sets not shown";
    QTest::newRow("two SELECTs") << "SELECT 1 AS a; SELECT 2 AS b;" << false << "1 rows · 1 more result set not shown";
    QTest::newRow("one SELECT") << "SELECT 1 AS a;" << false << "1 rows";
    QTest::newRow("no rows at all") << "DO 1;" << false << "0 rows affected";
    QTest::newRow("an empty result first") << "SELECT 1 AS a FROM DUAL WHERE 0; SELECT 2 AS b;" << false
                                           << "0 rows · 1 more result set not shown";
    QTest::newRow("fails after its first result")
        << "SELECT 1 AS a; SELECT * FROM no_such_table;" << false << "MySQL 1146: ";
    QTest::newRow("fails before any result") << "SELECT * FROM no_such_table;" << false << "MySQL 1146: ";
    QTest::newRow("streamed, three SELECTs") << "SELECT 1 AS a; SELECT 2 AS b; SELECT 3 AS c;" << true << "1 rows";
    QTest::newRow("streamed, fails after its first result")
        << "SELECT 1 AS a; SELECT * FROM no_such_table;" << true << "MySQL 1146: ";
    // clang-format on
}

// A CALL answers with a result per SELECT of the procedure and a closing status: every one must
// be read, whatever the procedure does, or the connection refuses everything after it.
void TestQueryResults::procedureResults()
{
    QFETCH(QString, body);
    QFETCH(bool, streamed);
    QFETCH(QString, outcome);

    connection().query("DROP PROCEDURE IF EXISTS answers");
    connection().query("CREATE PROCEDURE answers() BEGIN " + body.toStdString() + " END");
    QString message;
    try {
        if (streamed) {
            int rows = 0;
            connection().streamRows("CALL answers()", [&rows](const MySQLConnection::RawRow &) { ++rows; });
            message = QString::number(rows) + " rows";
        } else {
            message = QString::fromStdString(connection().query("CALL answers()").message);
        }
    } catch (const AppError &error) {
        message = QString::fromStdString(error.message());
    }
    QVERIFY2(message.startsWith(outcome), qPrintable(message));
    QCOMPARE(scalar(connection(), "SELECT 'next'"), Cell("next"));
}

void TestQueryResults::cellValues_data()
{
    QTest::addColumn<QString>("columnType");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("binary");
    QTest::addColumn<Cell>("shown");

    // clang-format off
    QTest::newRow("VARCHAR 'NULL' is text") << "VARCHAR(10)" << "'NULL'" << false << Cell("NULL");
    QTest::newRow("TEXT with NUL and U+1F9F9") << "TEXT" << "X'6100F09FA7B9'" << false
                                               << Cell(std::string("a\0\xF0\x9F\xA7\xB9", 6));
    QTest::newRow("BINARY(3) padded") << "BINARY(3)" << "X'41'" << true << Cell("0x410000");
    QTest::newRow("BLOB [DE AD BE EF]") << "BLOB" << "X'DEADBEEF'" << true << Cell("0xDEADBEEF");
    QTest::newRow("BIT(8) b'10000001'") << "BIT(8)" << "b'10000001'" << true << Cell("0x81");
    // clang-format on
}

void TestQueryResults::cellValues()
{
    QFETCH(QString, columnType);
    QFETCH(QString, stored);
    QFETCH(bool, binary);
    QFETCH(Cell, shown);

    connection().query("DROP TABLE IF EXISTS cell");
    connection().query("CREATE TABLE cell (c " + columnType.toStdString() + ")");
    connection().query("INSERT INTO cell VALUES (" + stored.toStdString() + ")");
    const QueryResult result = connection().query("SELECT c FROM cell");
    QCOMPARE(result.fields.at(0).binary, binary);
    QCOMPARE(result.fields[0].editable(), !binary);
    QCOMPARE(result.rows.at(0).at(0), shown);
}

// A latin1 column read without result conversion arrives as raw latin1 bytes under a non-binary
// character set: text that is not UTF-8.
void TestQueryResults::invalidUtf8InTextColumn()
{
    connection().query("CREATE TABLE legacy (c VARCHAR(10) CHARACTER SET latin1)");
    connection().query("INSERT INTO legacy VALUES (X'41E942')");
    QCOMPARE(scalar(connection(), "SELECT c FROM legacy"), Cell("A\u00E9B"));
    connection().query("SET SESSION character_set_results = NULL");
    const QueryResult result = connection().query("SELECT c FROM legacy");
    connection().query("SET NAMES utf8mb4");
    QVERIFY(!result.fields.at(0).binary);
    QCOMPARE(result.rows.at(0).at(0), Cell("A\uFFFDB"));
}

void TestQueryResults::fieldMetadata_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("expected");

    const QString join = "SELECT o.id, c.name AS who, c.note FROM orders o JOIN customers c ON c.id = o.customer_id";
    // clang-format off
    QTest::newRow("join: o.id") << join << 0 << "id = db.orders.id via o, type 3, primary";
    QTest::newRow("join: c.name AS who") << join << 1 << "who = db.customers.name via c, type 253";
    QTest::newRow("join: c.note") << join << 2 << "note = db.customers.note via c, type 253, nullable";
    QTest::newRow("computed id + 1") << "SELECT id + 1 AS n FROM customers" << 0 << "n = .. via , type 8, computed";
    // clang-format on
}

void TestQueryResults::fieldMetadata()
{
    QFETCH(QString, statement);
    QFETCH(int, index);
    QFETCH(QString, expected);

    const QueryResult result = connection().query(statement.toStdString());
    QVERIFY(std::size_t(index) < result.fields.size());
    const Field &field = result.fields[std::size_t(index)];
    // Everything the grid and the cell editor rely on, in one line; the scratch schema reads "db".
    const std::string database = field.database == m_scratch->name() ? "db" : field.database;
    const std::string described = field.name + " = " + database + "." + field.table + "." + field.originalName + " via "
        + field.sourceAlias + ", type " + field.type + (field.primary ? ", primary" : "")
        + (field.nullable ? ", nullable" : "") + (field.editable() ? "" : ", computed");
    QCOMPARE(QString::fromStdString(described), expected);
}

void TestQueryResults::columnDescriptions_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QString>("expected");

    // clang-format off
    QTest::newRow("INT key: no collation, a comment") << 0
        << "id int(11) NOT NULL PRI, default -, collation -, extra '', comment 'row key'";
    QTest::newRow("nullable VARCHAR: no default") << 1
        << "plain varchar(20) NULL, default -, collation 'utf8mb4_general_ci', extra '', comment ''";
    QTest::newRow("DEFAULT '': empty, not absent") << 2
        << "empty_default varchar(20) NOT NULL, default '', collation 'utf8mb4_general_ci', extra '', comment ''";
    QTest::newRow("VIRTUAL generated") << 3
        << "doubled int(11) NULL, default -, collation -, extra 'VIRTUAL GENERATED', comment '', generated";
    QTest::newRow("DEFAULT CURRENT_TIMESTAMP is not generated") << 4
        << "created timestamp NOT NULL, default 'current_timestamp()', collation -, extra 'DEFAULT_GENERATED', comment ''";
    // The server shows the same default text for an expression and for a literal that reads like
    // one; only the literal may be written back as a string.
    QTest::newRow("DEFAULT uuid() is an expression") << 5
        << "u varchar(36) NULL, default 'uuid()', collation 'utf8mb4_general_ci', extra 'DEFAULT_GENERATED', comment ''";
    QTest::newRow("DEFAULT curdate() is an expression") << 6
        << "d date NULL, default 'curdate()', collation -, extra 'DEFAULT_GENERATED', comment ''";
    QTest::newRow("DEFAULT (1 + 1) is an expression") << 7
        << "e int(11) NULL, default '(1 + 1)', collation -, extra 'DEFAULT_GENERATED', comment ''";
    QTest::newRow("DEFAULT current_timestamp(6) is an expression") << 8
        << "ts datetime(6) NULL, default 'current_timestamp(6)', collation -, extra 'DEFAULT_GENERATED', comment ''";
    QTest::newRow("DEFAULT 'uuid()' is text") << 9
        << "lit varchar(10) NULL, default 'uuid()', collation 'utf8mb4_general_ci', extra '', comment ''";
    QTest::newRow("DEFAULT -1.5e3 is a number") << 10
        << "n double NULL, default '-1500', collation -, extra '', comment ''";
    // clang-format on
}

void TestQueryResults::columnDescriptions()
{
    QFETCH(int, position);
    QFETCH(QString, expected);

    const std::vector<ColumnInfo> columns = connection().columns(m_scratch->name(), "described");
    QCOMPARE(columns.size(), 11u);
    const ColumnInfo &column = columns[std::size_t(position)];
    // An absent value prints as "-", so a lost NULL default cannot pass as an empty one.
    const auto optional = [](const Cell &value) { return value ? "'" + *value + "'" : std::string("-"); };
    const std::string described = column.name + " " + column.type + (column.nullable ? " NULL" : " NOT NULL")
        + (column.primary ? " PRI" : "") + ", default " + optional(column.defaultValue) + ", collation "
        + optional(column.collation) + ", extra '" + column.extra + "', comment '" + column.comment + "'"
        + (column.generated() ? ", generated" : "");
    QCOMPARE(QString::fromStdString(described), expected);
}

QTEST_GUILESS_MAIN(TestQueryResults)
#include "TestQueryResults.moc"
