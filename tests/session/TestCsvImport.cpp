#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/Csv.h"
#include "management/CsvImport.h"
#include "session/CsvImportRun.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QTest>
#include <memory>
#include <random>

using namespace tallowick;
using namespace tallowick::test;

// The import's transaction against a real server: all rows or none, committed for everyone.
class TestCsvImport final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void awkwardTextInManySmallBatches();
    void failureInTheLastBatchLeavesTableUnchanged();
    void refusals_data();
    void refusals();

private:
    MySQLConnection &connection() { return m_scratch->connection(); }
    // Imports into `table` with \\N read as NULL, noting each progress report.
    std::size_t import(MySQLConnection &client, const char *table, const std::string &file, std::size_t maxBytes);
    // The people table as `client` sees it: another session sees only what was committed.
    static Grid people(MySQLConnection &client)
    {
        return grid(client.query("SELECT id, name, note, amount FROM people ORDER BY id").rows);
    }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<MySQLConnection> m_otherSession;
    QList<std::size_t> m_progress;
};

void TestCsvImport::initTestCase()
{
    m_server = TestServer::fromEnvironment();
    m_scratch = std::make_unique<ScratchDatabase>(m_server);
    m_otherSession = m_server.connect();
    m_otherSession->use(m_scratch->name());
    m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100) NULL, note TEXT NULL, "
                   "amount DECIMAL(10,2) NULL, doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB");
    m_scratch->run("CREATE TABLE archive (id INT PRIMARY KEY, name VARCHAR(100) NULL) ENGINE=MyISAM");
}

void TestCsvImport::init()
{
    // Strict, so text in a number column fails instead of becoming 0 with a warning.
    connection().query("SET SESSION sql_mode = 'STRICT_TRANS_TABLES'");
    connection().query("DELETE FROM people");
    connection().query("DELETE FROM archive");
    connection().query("INSERT INTO people (id, name) VALUES (1, 'already here')");
    m_progress.clear();
}

std::size_t TestCsvImport::import(
    MySQLConnection &client, const char *table, const std::string &file, std::size_t maxBytes)
{
    const CsvImportPlan plan = planCsvImport(file, connection().columns(m_scratch->name(), table), true);
    const auto progress = [this, &plan](std::size_t done, std::size_t total) {
        QCOMPARE(total, plan.rows.size());
        m_progress.append(done);
    };
    return runCsvImport(client, m_scratch->name(), table, plan, progress, maxBytes);
}

// Random text a user might paste, through the CSV writer's own quoting, in statements of about a
// kilobyte: every value comes back byte for byte, committed for other sessions to see.
void TestCsvImport::awkwardTextInManySmallBatches()
{
    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "\"\"", "`", ",", "\n", "\r\n",
        "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word", " ", "\\N", "\xF0\x9F\xA7\xB9", "\xEF\xBC\x87" };
    // clang-format on
    std::mt19937 random(20260101);
    std::uniform_int_distribution<std::size_t> count(0, 12);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);

    QueryResult rows;
    rows.fields.resize(2);
    rows.fields[0].name = "id";
    rows.fields[1].name = "note";
    Grid expected { { text("1"), text("already here"), QVariant(), QVariant() } };
    for (int id = 2; id <= 400; ++id) {
        std::string value;
        for (std::size_t n = count(random); n > 0; --n) {
            value += pieces[pick(random)];
        }
        rows.rows.push_back({ std::to_string(id), value });
        // Quoted \N is NULL to the importer, as the option says.
        const QVariant cell = value == "\\N" ? QVariant() : QVariant(QByteArray::fromStdString(value));
        expected.append(Cells { QVariant(QByteArray::number(id)), QVariant(), cell, QVariant() });
    }

    QCOMPARE(import(connection(), "people", SQL::csv(rows), 1024), std::size_t(399));
    QVERIFY2(m_progress.size() > 5, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(m_progress.back(), std::size_t(399));
    QVERIFY(std::is_sorted(m_progress.begin(), m_progress.end()));
    QCOMPARE(people(connection()), expected);
    QCOMPARE(people(*m_otherSession), expected);
}

void TestCsvImport::failureInTheLastBatchLeavesTableUnchanged()
{
    QByteArray file = "id,name,amount\n";
    for (int id = 2; id < 200; ++id) {
        file += QByteArray::number(id) + ",row " + QByteArray::number(id) + ",1.25\n";
    }
    file += "200,last,not a number\n";
    const Grid before = people(connection());
    const QString error = errorFrom([&] { import(connection(), "people", file.toStdString(), 512); });
    QVERIFY2(error.startsWith("MySQL 1366: Incorrect decimal value: 'not a number' for column"), qPrintable(error));
    // Earlier statements were sent, and acknowledged, before the failing one.
    QVERIFY2(m_progress.size() >= 3, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(people(connection()), before);
    QCOMPARE(people(*m_otherSession), before);
}

// Refused before anything is sent: a read-only profile, and a table whose engine (MyISAM) cannot
// roll back, where a failure halfway would leave the first statements in the table.
void TestCsvImport::refusals_data()
{
    QTest::addColumn<bool>("readOnly");
    QTest::addColumn<QString>("message");

    QTest::newRow("read-only profile") << true << QStringLiteral("This connection is read-only.");
    QTest::newRow("MyISAM table") << false
                                  << QStringLiteral("This table's storage engine cannot roll back a failed import. "
                                                    "Convert the table to InnoDB, or use SQL import.");
}

void TestCsvImport::refusals()
{
    QFETCH(bool, readOnly);
    QFETCH(QString, message);
    ConnectionProfile profile = m_server.profile();
    profile.readOnly = readOnly;
    const auto client = m_server.connect(profile);
    QByteArray file = "id,name\n";
    for (int id = 1; id < 100; ++id) {
        file += QByteArray::number(id) + ",row\n";
    }
    const char *const table = readOnly ? "people" : "archive";
    QCOMPARE(errorFrom([&] { import(*client, table, (file + "1,duplicate\n").toStdString(), 256); }), message);
    QVERIFY(m_progress.isEmpty());
    QCOMPARE(people(connection()), (Grid { { text("1"), text("already here"), QVariant(), QVariant() } }));
    QCOMPARE(connection().query("SELECT COUNT(*) FROM archive").rows, std::vector<Row> { { "0" } });
}

QTEST_GUILESS_MAIN(TestCsvImport)
#include "TestCsvImport.moc"
