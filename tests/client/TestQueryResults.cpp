#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

class TestQueryResults final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowCap_data();
    void rowCap();
    void procedureResults_data();
    void procedureResults();
    void cellValues_data();
    void cellValues();
    void columnDescriptions();

private:
    MySQLConnection &connection() { return m_scratch.connection(); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    ScratchDatabase m_scratch { m_server };
};

void TestQueryResults::rowCap_data()
{
    QTest::addColumn<int>("available");
    QTest::addColumn<qint64>("maxRows"); // -1: the connection's default
    QTest::addColumn<int>("kept");
    QTest::addColumn<QString>("message");

    // Truncation at a small cap is among the built-in integration checks.
    QTest::newRow("3 rows, maxRows 0") << 3 << qint64(0) << 0 << "0 rows · display limit reached";
    QTest::newRow("no rows, maxRows 0") << 0 << qint64(0) << 0 << "0 rows";
    QTest::newRow("3 rows, maxRows 3") << 3 << qint64(3) << 3 << "3 rows";
    QTest::newRow("10001 rows, default cap") << 10001 << qint64(-1) << 10000 << "10000 rows · display limit reached";
}

void TestQueryResults::rowCap()
{
    QFETCH(int, available);
    QFETCH(qint64, maxRows);
    QFETCH(int, kept);
    QFETCH(QString, message);

    const std::string sql = "SELECT seq FROM seq_1_to_20000 WHERE seq <= " + std::to_string(available);
    const QueryResult result = maxRows < 0 ? connection().query(sql) : connection().query(sql, maxRows);
    QCOMPARE(result.rows.size(), std::size_t(kept));
    QCOMPARE(result.rows.empty() ? Cell() : result.rows.back().at(0), kept ? Cell(std::to_string(kept)) : Cell());
    QCOMPARE(result.truncated, kept < available);
    QCOMPARE(QString::fromStdString(result.message), message);
    // Rows left unread on the wire would make this fail with "Commands out of sync".
    QCOMPARE(scalar(connection(), "SELECT 'next'"), Cell("next"));
}

void TestQueryResults::procedureResults_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("streamed"); // read through the export's uncapped row stream instead
    QTest::addColumn<QString>("outcome"); // the message, or the error's start

    const QString three = "SELECT 1 AS a; SELECT 2 AS b; SELECT 3 AS c;";
    const QString failsAfterFirst = "SELECT 1 AS a; SELECT * FROM no_such_table;";
    // clang-format off
    QTest::newRow("three SELECTs") << three << false << "1 rows · 2 more result sets not shown";
    QTest::newRow("one SELECT") << "SELECT 1 AS a;" << false << "1 rows";
    QTest::newRow("no rows at all") << "DO 1;" << false << "0 rows affected";
    QTest::newRow("an empty result first") << "SELECT 1 AS a FROM DUAL WHERE 0; SELECT 2 AS b;" << false
                                           << "0 rows · 1 more result set not shown";
    QTest::newRow("fails after its first result") << failsAfterFirst << false << "MySQL 1146: ";
    QTest::newRow("fails before any result") << "SELECT * FROM no_such_table;" << false << "MySQL 1146: ";
    QTest::newRow("streamed, three SELECTs") << three << true << "1 rows";
    QTest::newRow("streamed, fails after its first result") << failsAfterFirst << true << "MySQL 1146: ";
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
    int rows = 0;
    const QString error = errorFrom([&] {
        if (streamed) {
            connection().streamRows("CALL answers()", [&rows](const MySQLConnection::RawRow &) { ++rows; });
        } else {
            message = QString::fromStdString(connection().query("CALL answers()").message);
        }
    });
    message = error != QStringLiteral("(no error)") ? error : streamed ? QString::number(rows) + " rows" : message;
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
    // Read without result conversion, latin1 text arrives as bytes that are not UTF-8.
    QTest::newRow("latin1 [41 E9 42]") << "VARCHAR(10) CHARACTER SET latin1" << "X'41E942'" << false << Cell("A\uFFFDB");
    QTest::newRow("BINARY(3) padded") << "BINARY(3)" << "X'AB'" << true << Cell("0xAB0000");
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
    connection().query("SET SESSION character_set_results = NULL");
    const QueryResult result = connection().query("SELECT c FROM cell");
    connection().query("SET NAMES utf8mb4");
    QCOMPARE(result.fields.at(0).binary, binary);
    QCOMPARE(result.fields[0].editable(), !binary);
    QCOMPARE(result.rows.at(0).at(0), shown);
}

void TestQueryResults::columnDescriptions()
{
    m_scratch.run("CREATE TABLE described (id INT NOT NULL PRIMARY KEY COMMENT 'row key', plain VARCHAR(20) NULL,"
                  " empty_default VARCHAR(20) NOT NULL DEFAULT '', doubled INT AS (id * 2) VIRTUAL,"
                  " created TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP, u VARCHAR(36) DEFAULT uuid(),"
                  " e INT DEFAULT (1 + 1), lit VARCHAR(10) DEFAULT 'uuid()', n DOUBLE DEFAULT -1.5e3)");
    QStringList described;
    for (const ColumnInfo &column : connection().columns(m_scratch.name(), "described")) {
        // An absent value prints as "-", so a lost NULL default cannot pass as an empty one.
        const auto optional = [](const Cell &value) { return value ? "'" + *value + "'" : std::string("-"); };
        described << QString::fromStdString(column.name + " " + column.type + (column.nullable ? " NULL" : " NOT NULL")
            + (column.primary ? " PRI" : "") + ", default " + optional(column.defaultValue) + ", "
            + optional(column.collation) + ", extra '" + column.extra + "', '" + column.comment + "'"
            + (column.generated() ? ", generated" : ""));
    }
    // The server shows the same default text for an expression (uuid(), (1 + 1)) and for a literal
    // that reads like one ('uuid()'); only the literal may be written back as a string.
    QCOMPARE(described,
        QStringList({ "id int(11) NOT NULL PRI, default -, -, extra '', 'row key'",
            "plain varchar(20) NULL, default -, 'utf8mb4_general_ci', extra '', ''",
            "empty_default varchar(20) NOT NULL, default '', 'utf8mb4_general_ci', extra '', ''",
            "doubled int(11) NULL, default -, -, extra 'VIRTUAL GENERATED', '', generated",
            "created timestamp NOT NULL, default 'current_timestamp()', -, extra 'DEFAULT_GENERATED', ''",
            "u varchar(36) NULL, default 'uuid()', 'utf8mb4_general_ci', extra 'DEFAULT_GENERATED', ''",
            "e int(11) NULL, default '(1 + 1)', -, extra 'DEFAULT_GENERATED', ''",
            "lit varchar(10) NULL, default 'uuid()', 'utf8mb4_general_ci', extra '', ''",
            "n double NULL, default '-1500', -, extra '', ''" }));
}

QTEST_GUILESS_MAIN(TestQueryResults)
#include "TestQueryResults.moc"
