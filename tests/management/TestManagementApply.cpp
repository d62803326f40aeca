#include "client/ClientThreadScope.h"
#include "core/Csv.h"
#include "core/FileText.h"
#include "core/SqlQuoting.h"
#include "management/CsvImport.h"
#include "management/ManagementSQL.h"
#include "session/CsvImportRun.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <random>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::ManagementDraft)

// Drafts are written with designated initializers; the fields left out keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// The management changes against a real server: the generated statements do what the form's
// preview says, and a CSV import commits all of its rows or none, for everyone.
class TestManagementApply final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void applied_data();
    void applied();
    void csvImportIsAllOrNothing();
    void csvRefusedWhileStreaming();
    void csvRefusals();

private:
    MySQLConnection &connection() { return m_scratch.connection(); }
    // Imports `file` into `table` with \\N read as NULL, noting each progress report. The plan
    // is made from the first `plannedBytes`, as for a file larger than the planning size.
    std::size_t import(MySQLConnection &client,
        const char *table,
        const std::string &file,
        std::size_t maxBytes,
        std::size_t plannedBytes = std::string::npos);
    // The people table as `client` sees it: another session sees only what was committed.
    static Grid people(MySQLConnection &client)
    {
        return grid(client.query("SELECT id, name, note, amount FROM people ORDER BY id").rows);
    }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    ScratchDatabase m_scratch { m_server };
    const std::unique_ptr<MySQLConnection> m_otherSession = m_server.connect();
    QList<std::size_t> m_progress;
    QTemporaryDir m_folder;
};

void TestManagementApply::initTestCase()
{
    m_otherSession->use(m_scratch.name());
    connection().query("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100) NULL, note TEXT NULL, "
                       "amount DECIMAL(10,2) NULL, doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB");
    connection().query("CREATE TABLE archive (id INT PRIMARY KEY, name VARCHAR(100) NULL) ENGINE=MyISAM");
}

void TestManagementApply::init()
{
    // Strict, so text in a number column fails instead of becoming 0 with a warning.
    connection().query("SET SESSION sql_mode = 'STRICT_TRANS_TABLES'");
    connection().query("DROP TABLE IF EXISTS orders");
    connection().query("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(100) COLLATE utf8mb4_bin"
                       " NOT NULL DEFAULT 'nobody' COMMENT 'shown on invoices', changed TIMESTAMP NOT NULL DEFAULT"
                       " CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP, code VARCHAR(8) NOT NULL DEFAULT '',"
                       " n BIGINT UNSIGNED NOT NULL, total DECIMAL(10,2) NULL, note TEXT NULL)");
    connection().query("DELETE FROM people");
    connection().query("DELETE FROM archive");
    connection().query("INSERT INTO people (id, name) VALUES (1, 'already here')");
    m_progress.clear();
}

void TestManagementApply::applied_data()
{
    QTest::addColumn<ManagementDraft>("draft");
    QTest::addColumn<QString>("check"); // a query whose rows show the change
    QTest::addColumn<QStringList>("expected");

    init();
    // clang-format off
    for (const std::string &charset : characterSets()) {
        const std::string name = m_scratch.name() + "_" + charset;
        QTest::addRow("create database, %s", charset.c_str())
            << ManagementDraft { .kind = ManagementSheet::createDatabase, .name = name, .charset = charset }
            << QString::fromStdString("SELECT DEFAULT_CHARACTER_SET_NAME FROM information_schema.SCHEMATA"
                                      " WHERE SCHEMA_NAME = '" + name + "'")
            << QStringList { QString::fromStdString(charset) };
    }
    // The server's column listing shows a 4-byte character in a default as "?", so the default is
    // read from a row that takes it.
    QTest::newRow("create table") << ManagementDraft { .kind = ManagementSheet::createTable, .name = "it's `new`",
        .columns = { { .name = "id", .type = "bigint unsigned", .primary = true, .autoIncrement = true },
            { .name = "who\\", .type = "varchar(50)", .defaultValue = "O'Brien \xF0\x9F\xA7\xB9" },
            { .name = "at", .type = "DATETIME", .nullable = false, .defaultValue = "Current_Timestamp()" } } }
        << "INSERT INTO `it's ``new``` () VALUES (); SELECT id, `who\\`, `at` IS NOT NULL FROM `it's ``new```"
        << QStringList { "1|O'Brien \xF0\x9F\xA7\xB9|1" };
    // Applying the edit form untouched leaves every column as it was, including what the form
    // does not show: collation, ON UPDATE, comment, an empty default, UNSIGNED, AUTO_INCREMENT.
    for (const ColumnInfo &before : connection().columns(m_scratch.name(), "orders")) {
        const QString check = QString::fromStdString("SHOW FULL COLUMNS FROM orders LIKE '" + before.name + "'");
        QTest::addRow("edit %s untouched", before.name.c_str())
            << ManagementDraft { .kind = ManagementSheet::modifyColumn, .column = before,
                   .columns = { draftFromColumn(before) } }
            << check << rowTexts(connection().query(check.toStdString()).rows);
    }
    // clang-format on
}

void TestManagementApply::applied()
{
    QFETCH(ManagementDraft, draft);
    QFETCH(QString, check);
    QFETCH(QStringList, expected);

    const auto dropDatabase = qScopeGuard([&] {
        if (draft.kind == ManagementSheet::createDatabase) {
            errorFrom([&] { connection().query("DROP DATABASE IF EXISTS " + SQL::identifier(draft.name)); });
        }
    });
    const ManagementContext context { m_scratch.name(), "orders", connection().columns(m_scratch.name(), "orders") };
    QCOMPARE(errorFrom([&] { connection().query(generatedSQL(draft, context)); }), QStringLiteral("(no error)"));
    QStringList actual;
    for (const QString &statement : check.split("; ")) {
        actual = rowTexts(connection().query(statement.toStdString()).rows);
    }
    QCOMPARE(actual, expected);
}

std::size_t TestManagementApply::import(
    MySQLConnection &client, const char *table, const std::string &file, std::size_t maxBytes, std::size_t plannedBytes)
{
    const std::string path = m_folder.filePath(QStringLiteral("import.csv")).toStdString();
    writeFileAtomically(path, QByteArray::fromStdString(file));
    const std::vector<ColumnInfo> columns = connection().columns(m_scratch.name(), table);
    const CsvImportPlan plan = plannedBytes < file.size()
        ? planCsvImport(std::string_view(file).substr(0, plannedBytes), false, columns, true, file.size())
        : planCsvImportFile(path, columns, true);
    const auto progress = [this, &file](const CsvImportProgress &report) {
        QCOMPARE(report.bytesTotal, file.size());
        m_progress.append(report.rowsDone);
    };
    return runCsvImport(client, m_scratch.name(), table, path, plan, progress, maxBytes);
}

// A failure in the last statement leaves the table as it was; then random text a user might paste,
// through the CSV writer's own quoting, in statements of about a kilobyte: every value comes back
// byte for byte, committed for other sessions to see.
void TestManagementApply::csvImportIsAllOrNothing()
{
    QByteArray failing = "id,name,amount\n";
    for (int id = 2; id < 200; ++id) {
        failing += QByteArray::number(id) + ",row " + QByteArray::number(id) + ",1.25\n";
    }
    const Grid before = people(connection());
    const QString error
        = errorFrom([&] { import(connection(), "people", (failing + "200,last,x\n").toStdString(), 512); });
    QVERIFY2(error.startsWith("MySQL 1366: Incorrect decimal value: 'x' for column"), qPrintable(error));
    // Earlier statements were sent, and acknowledged, before the failing one.
    QVERIFY2(m_progress.size() >= 3, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(people(connection()), before);
    QCOMPARE(people(*m_otherSession), before);

    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "\"\"", "`", ",", "\n", "\r\n",
        "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word", " ", "\\N", "\xF0\x9F\xA7\xB9", "\xEF\xBC\x87" };
    // clang-format on
    std::mt19937 random(20260101);
    QueryResult rows;
    rows.fields.resize(2);
    rows.fields[0].name = "id";
    rows.fields[1].name = "note";
    Grid expected = before;
    for (int id = 2; id <= 400; ++id) {
        std::string value;
        for (std::size_t n = random() % 13; n > 0; --n) {
            value += pieces[random() % std::size(pieces)];
        }
        rows.rows.push_back({ std::to_string(id), value });
        // Quoted \N is NULL to the importer, as the option says.
        const QVariant cell = value == "\\N" ? QVariant() : QVariant(QByteArray::fromStdString(value));
        expected.append(Cells { QVariant(QByteArray::number(id)), QVariant(), cell, QVariant() });
    }
    m_progress.clear();
    QCOMPARE(import(connection(), "people", SQL::csv(rows), 1024), std::size_t(399));
    QVERIFY2(m_progress.size() > 5, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(m_progress.back(), std::size_t(399));
    QCOMPARE(people(connection()), expected);
    QCOMPARE(people(*m_otherSession), expected);
}

// A file too large to check whole before the import is checked as it streams: a refusal after
// statements were sent, a header changed since the plan, and Cancel each leave the table as it
// was, with the planner's messages.
void TestManagementApply::csvRefusedWhileStreaming()
{
    std::string file = "id,name,note\n";
    for (int id = 2; id < 300; ++id) {
        file += std::to_string(id) + ",row " + std::to_string(id) + ",\\N\n";
    }
    const Grid before = people(connection());
    const std::size_t planned = file.size();
    QCOMPARE(errorFrom([&] { import(connection(), "people", file + "300,\"open\n", 256, planned); }),
        QStringLiteral("The CSV has an unterminated quoted field."));
    QVERIFY2(m_progress.size() >= 3, qPrintable(QString::number(m_progress.size())));
    QCOMPARE(errorFrom([&] { import(connection(), "people", file + "300,\xE9\n", 256, planned); }),
        QStringLiteral("The CSV must use UTF-8 encoding."));
    const std::vector<ColumnInfo> columns = connection().columns(m_scratch.name(), "people");
    const std::string path = m_folder.filePath(QStringLiteral("changed.csv")).toStdString();
    writeFileAtomically(path, "id,note,name\n2,x,y\n");
    QCOMPARE(errorFrom([&] {
        runCsvImport(connection(), m_scratch.name(), "people", path, planCsvImport(file, true, columns, true), {}, 256);
    }),
        QStringLiteral("The CSV file changed after it was chosen. Choose it again."));

    // Cancelled once the first statements have gone in.
    writeFileAtomically(path, QByteArray::fromStdString(file));
    const CsvImportPlan plan = planCsvImportFile(path, columns, true);
    std::atomic<bool> cancel = false;
    m_progress.clear();
    QCOMPARE(errorFrom([&] {
        runCsvImport(
            connection(),
            m_scratch.name(),
            "people",
            path,
            plan,
            [&](const CsvImportProgress &report) {
                m_progress.append(report.rowsDone);
                cancel = m_progress.size() == 2;
            },
            256,
            &cancel);
    }),
        QStringLiteral("Cancelled. Nothing was imported."));
    QCOMPARE(m_progress.size(), 2);
    QCOMPARE(people(connection()), before);
    QCOMPARE(people(*m_otherSession), before);
}

// Refused before anything is sent: a read-only profile, and a table whose engine (MyISAM) cannot
// roll back, where a failure halfway would leave the first statements in the table.
void TestManagementApply::csvRefusals()
{
    for (const bool readOnly : { true, false }) {
        ConnectionProfile profile = m_server.profile();
        profile.readOnly = readOnly;
        const auto client = m_server.connect(profile);
        const QString error = errorFrom(
            [&] { import(*client, readOnly ? "people" : "archive", "id,name\n2,row\n2,duplicate\n", 256); });
        QCOMPARE(error,
            readOnly ? QStringLiteral("This connection is read-only.")
                     : QStringLiteral("This table's storage engine cannot roll back a failed import. "
                                      "Convert the table to InnoDB, or use SQL import."));
    }
    // The user's own open transaction would be committed by the import's START TRANSACTION.
    connection().query("START TRANSACTION");
    connection().query("UPDATE people SET name = 'mine, not yet committed' WHERE id = 1");
    QCOMPARE(errorFrom([&] { import(connection(), "people", "id,name\n2,row\n", 256); }),
        QStringLiteral("A transaction is open on this connection. Commit or roll it back before importing."));
    QVERIFY(connection().transactionOpen());
    connection().query("ROLLBACK");
    QVERIFY(m_progress.isEmpty());
    QCOMPARE(people(connection()), (Grid { { text("1"), text("already here"), QVariant(), QVariant() } }));
    QCOMPARE(connection().query("SELECT COUNT(*) FROM archive").rows, std::vector<Row> { { "0" } });
}

QTEST_GUILESS_MAIN(TestManagementApply)
#include "TestManagementApply.moc"
