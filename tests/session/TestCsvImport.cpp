#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "management/CsvImport.h"
#include "session/CsvImportRun.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QTest>
#include <memory>
#include <random>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const char *const peopleState = "SELECT id, name, note, amount FROM people ORDER BY id";

} // namespace

class TestCsvImport final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void importReadsBackExactly_data();
    void importReadsBackExactly();
    void awkwardTextInManySmallBatches();
    void failedImportLeavesTableUnchanged_data();
    void failedImportLeavesTableUnchanged();
    void readOnlyProfileIsRefused();
    void tableThatCannotRollBackIsRefused();

private:
    MySQLConnection &connection() { return m_scratch->connection(); }
    // Imports into people with \\N read as NULL, noting each progress report.
    std::size_t import(const std::string &file, std::size_t maxStatementBytes);
    Grid people() { return grid(connection().query(peopleState).rows); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<MySQLConnection> m_otherSession;
    QList<std::size_t> m_progress;
};

void TestCsvImport::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
        m_scratch = std::make_unique<ScratchDatabase>(m_server);
        m_otherSession = m_server.connect();
        m_otherSession->use(m_scratch->name());
        m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100) NULL, note TEXT NULL, "
                       "amount DECIMAL(10,2) NULL, doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB");
        m_scratch->run("CREATE TABLE archive (id INT PRIMARY KEY, name VARCHAR(100) NULL) ENGINE=MyISAM");
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
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

void TestCsvImport::cleanupTestCase()
{
    m_otherSession.reset();
    m_scratch.reset();
}

std::size_t TestCsvImport::import(const std::string &file, std::size_t maxStatementBytes)
{
    const CsvImportPlan plan = planCsvImport(file, connection().columns(m_scratch->name(), "people"), true);
    return runCsvImport(
        connection(),
        m_scratch->name(),
        "people",
        plan,
        [this, &plan](std::size_t done, std::size_t total) {
            QCOMPARE(total, plan.rows.size());
            m_progress.append(done);
        },
        maxStatementBytes);
}

void TestCsvImport::importReadsBackExactly_data()
{
    QTest::addColumn<QByteArray>("file"); // read with \N as NULL
    QTest::addColumn<Grid>("expected"); // rows 2 and up of people: id, name, note, amount

    const QVariant null;
    // clang-format off
    // Quotes, commas and line breaks inside quoted fields come back from the random text below.
    QTest::newRow("\\N is NULL, but empty stays empty")
        << QByteArray("id,name,note,amount\n2,\\N,,\\N\n")
        << Grid { { text("2"), null, text(""), null } };
    QTest::newRow("4-byte characters, apostrophes and backslashes")
        << QByteArray("\xEF\xBB\xBFID,Name,Note\n2,\xF0\x9F\xA7\xB9 Zo\xC3\xAB,O'Brien\\path\\'; DROP TABLE people; --\n")
        << Grid { { text("2"), text("\xF0\x9F\xA7\xB9 Zo\xC3\xAB"), text("O'Brien\\path\\'; DROP TABLE people; --"), null } };
    QTest::newRow("numbers as text into DECIMAL, header in another order")
        << QByteArray("amount,id\n12.50,2\n-0.01,3\n")
        << Grid { { text("2"), null, null, text("12.50") }, { text("3"), null, null, text("-0.01") } };
    // clang-format on
}

void TestCsvImport::importReadsBackExactly()
{
    QFETCH(QByteArray, file);
    QFETCH(Grid, expected);

    const std::size_t rows = import(file.toStdString(), csvDefaultStatementBytes);
    QCOMPARE(rows, static_cast<std::size_t>(expected.size()));
    QCOMPARE(m_progress, QList<std::size_t> { rows });

    expected.prepend(Cells { text("1"), text("already here"), QVariant(), QVariant() });
    QCOMPARE(people(), expected);
    // Committed, not just visible inside this session's transaction.
    QCOMPARE(grid(m_otherSession->query(peopleState).rows), expected);
}

// Random text a user might paste, through the CSV writer's own quoting, in statements of about a
// kilobyte: every value comes back byte for byte.
void TestCsvImport::awkwardTextInManySmallBatches()
{
    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "\"\"", "`", ",", "\n", "\r\n",
        "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word", " ", "\\N", "\xF0\x9F\xA7\xB9", "\xEF\xBC\x87" };
    // clang-format on
    std::mt19937 random(20260101);
    std::uniform_int_distribution<std::size_t> count(0, 12);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);

    std::string file = "id,note\r\n";
    Grid expected { { text("1"), text("already here"), QVariant(), QVariant() } };
    for (int id = 2; id <= 400; ++id) {
        std::string value;
        for (std::size_t n = count(random); n > 0; --n) {
            value += pieces[pick(random)];
        }
        std::string quoted;
        for (const char c : value) {
            quoted += c == '"' ? "\"\"" : std::string(1, c);
        }
        file += std::to_string(id) + ",\"" + quoted + "\"\r\n";
        // Quoted \N is NULL to the importer, as the option says.
        const QVariant cell = value == "\\N" ? QVariant() : QVariant(QByteArray::fromStdString(value));
        expected.append(Cells { QVariant(QByteArray::number(id)), QVariant(), cell, QVariant() });
    }

    QCOMPARE(import(file, 1024), std::size_t(399));
    QVERIFY2(m_progress.size() > 5, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(m_progress.back(), std::size_t(399));
    QVERIFY(std::is_sorted(m_progress.begin(), m_progress.end()));
    QCOMPARE(people(), expected);
}

void TestCsvImport::failedImportLeavesTableUnchanged_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("message"); // its start: the server adds where it failed

    QByteArray late = "id,name,amount\n";
    QByteArray existing = "id,name\n";
    for (int id = 2; id < 200; ++id) {
        late += QByteArray::number(id) + ",row " + QByteArray::number(id) + ",1.25\n";
        existing += QByteArray::number(id) + ",row\n";
    }
    late += "200,last,not a number\n";
    existing += "1,clashes with the row already there\n";

    QTest::newRow("text into DECIMAL in the last batch")
        << late << "MySQL 1366: Incorrect decimal value: 'not a number' for column";
    QTest::newRow("key of a row already in the table")
        << existing << "MySQL 1062: Duplicate entry '1' for key 'PRIMARY'";
}

void TestCsvImport::failedImportLeavesTableUnchanged()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, message);

    const Grid before = people();
    const QString error = errorFrom([&] { import(file.toStdString(), 512); });
    QVERIFY2(error.startsWith(message), qPrintable(error));
    // Earlier statements were sent, and acknowledged, before the failing one.
    QVERIFY2(m_progress.size() >= 3, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(people(), before);
    QCOMPARE(grid(m_otherSession->query(peopleState).rows), before);

    // The session is back in autocommit: a later write is committed at once.
    connection().query("INSERT INTO people (id, name) VALUES (999, 'after')");
    QCOMPARE(m_otherSession->query("SELECT name FROM people WHERE id = 999").rows, std::vector<Row> { { "after" } });
}

void TestCsvImport::readOnlyProfileIsRefused()
{
    ConnectionProfile profile = m_server.profile();
    profile.readOnly = true;
    const auto readOnly = m_server.connect(profile);
    const CsvImportPlan plan
        = planCsvImport("id,name\n2,new\n", connection().columns(m_scratch->name(), "people"), true);

    bool progressed = false;
    QCOMPARE(errorFrom([&] {
        runCsvImport(
            *readOnly,
            m_scratch->name(),
            "people",
            plan,
            [&](std::size_t, std::size_t) { progressed = true; },
            csvDefaultStatementBytes);
    }),
        QStringLiteral("This connection is read-only."));
    QVERIFY(!progressed);
    QCOMPARE(people(), (Grid { { text("1"), text("already here"), QVariant(), QVariant() } }));
}

// MyISAM cannot roll back: a failure halfway would leave the first statements in the table.
void TestCsvImport::tableThatCannotRollBackIsRefused()
{
    QByteArray file = "id,name\n";
    for (int id = 1; id < 100; ++id) {
        file += QByteArray::number(id) + ",row\n";
    }
    file += "1,duplicate\n";
    const CsvImportPlan plan
        = planCsvImport(file.toStdString(), connection().columns(m_scratch->name(), "archive"), true);
    QCOMPARE(errorFrom([&] { runCsvImport(connection(), m_scratch->name(), "archive", plan, {}, 256); }),
        QStringLiteral("This table's storage engine cannot roll back a failed import. Convert the table to InnoDB, "
                       "or use SQL import."));
    QCOMPARE(connection().query("SELECT COUNT(*) FROM archive").rows, std::vector<Row> { { "0" } });
}

QTEST_GUILESS_MAIN(TestCsvImport)
#include "TestCsvImport.moc"
