#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/ScriptSplitter.h"
#include "support/TestServer.h"

#include <QDateTime>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <random>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The session's SQL mode, time zone and whether a transaction is open, as one line.
Cell sessionSettings(MySQLConnection &connection)
{
    return scalar(connection, "SELECT CONCAT(@@SESSION.sql_mode, ' / ', @@SESSION.time_zone, ' / ', @@in_transaction)");
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot read the file)");
}

// The statement the server reports, as the export is expected to copy it.
QByteArray showCreate(MySQLConnection &connection, const std::string &kind, const std::string &name)
{
    const QueryResult result = connection.query("SHOW CREATE " + kind + " `" + name + "`");
    return QByteArray::fromStdString(result.rows.at(0).at(1).value()) + ";\n";
}

} // namespace

class TestDatabaseExport final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void wholeFile();
    void failures();
    void roundTripBetweenServers_data();
    void roundTripBetweenServers();

private:
    std::string outputPath(const char *name) const { return m_folder.filePath(name).toStdString(); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
    QTemporaryDir m_folder;
};

void TestDatabaseExport::initTestCase()
{
    // A zone far from UTC, so a local time passed off as UTC shows in the header check.
    qputenv("TZ", "XST-9:30");
    QVERIFY(m_folder.isValid());
}

// The whole file: a time-stamped header, each table's structure and rows as of one snapshot, the
// views after all tables, and the trailer that gives the replaying session its settings back.
void TestDatabaseExport::wholeFile()
{
    ScratchDatabase scratch(m_server);
    // Generated columns sit between the data columns: they must drop out of both the column list
    // and the values without shifting the rest. The server lists objects by name, so the views
    // come first and between the tables.
    scratch.run("CREATE TABLE b_table (id INT PRIMARY KEY, t VARCHAR(40) NULL DEFAULT 'it''s',"
                " twice INT AS (id * 2) VIRTUAL, b BLOB NULL, next INT AS (id + 1) STORED)");
    scratch.run("INSERT INTO b_table (id, t, b) VALUES (1, NULL, NULL), (2, '', X''), (3, X'61275C630A', X'00FF10')");
    scratch.run("CREATE TABLE z_table (id INT PRIMARY KEY)");
    scratch.run("CREATE VIEW a_view AS SELECT id FROM b_table");
    scratch.run("CREATE VIEW m_view AS SELECT b.id FROM b_table b JOIN z_table z ON z.id = b.id");
    const auto other = m_server.connect();
    const Cell settings = sessionSettings(scratch.connection());
    QStringList progress;
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1000);
    scratch.connection().backup(scratch.name(), outputPath("whole.sql"), [&](const std::string &name) {
        progress.append(QString::fromStdString(name));
        // A row added once the export has begun is not part of it.
        if (name == "b_table") {
            other->query("INSERT INTO `" + scratch.name() + "`.z_table VALUES (1)");
        }
    });
    QCOMPARE(progress, QStringList({ "b_table", "z_table", "a_view", "m_view" }));

    const QByteArray file = readFile(m_folder.filePath("whole.sql"));
    const QByteArray prefix = "-- Tallowick export · ";
    QVERIFY2(file.startsWith(prefix), file.left(100).constData());
    const QDateTime stamp = QDateTime::fromString(file.mid(prefix.size(), 20), Qt::ISODate);
    QVERIFY2(before <= stamp && stamp <= QDateTime::currentDateTimeUtc(), file.left(100).constData());
    // Text (here a'b\c and a line feed) travels as hex converted to utf8mb4, bytes as plain hex.
    MySQLConnection &connection = scratch.connection();
    const QByteArray insert = "INSERT INTO `b_table` (`id`, `t`, `b`) VALUES (CONVERT(X'3";
    const QByteArray name = QByteArray::fromStdString(scratch.name());
    QCOMPARE(file.mid(prefix.size() + 20),
        "\n-- Tables and views only. Routines, triggers, events, and user accounts are not included.\n"
        "SET NAMES utf8mb4;\n"
        "SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE='NO_AUTO_VALUE_ON_ZERO,STRICT_ALL_TABLES,ALLOW_INVALID_DATES';\n"
        "SET @OLD_TIME_ZONE=@@TIME_ZONE, TIME_ZONE='+00:00';\n"
        "SET FOREIGN_KEY_CHECKS=0;\nCREATE DATABASE IF NOT EXISTS `"
            + name + "`;\nUSE `" + name + "`;\n\n-- Table `b_table`\n" + showCreate(connection, "TABLE", "b_table")
            + insert + "1' USING utf8mb4), NULL, NULL);\n" + insert + "2' USING utf8mb4), '', '');\n" + insert
            + "3' USING utf8mb4), CONVERT(X'61275c630a' USING utf8mb4), X'00ff10');\n\n-- Table `z_table`\n"
            + showCreate(connection, "TABLE", "z_table") + "\n" + showCreate(connection, "VIEW", "a_view") + "\n"
            + showCreate(connection, "VIEW", "m_view")
            + "\nSET SQL_MODE=@OLD_SQL_MODE;\nSET TIME_ZONE=@OLD_TIME_ZONE;\nSET FOREIGN_KEY_CHECKS=1;\n"
              "-- Export complete.\n");
    QCOMPARE(sessionSettings(connection), settings);
}

void TestDatabaseExport::failures()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE first_t (id INT PRIMARY KEY)");
    scratch.run("CREATE TABLE second_t (id INT PRIMARY KEY)");
    scratch.run("INSERT INTO first_t VALUES (1)");
    MySQLConnection &connection = scratch.connection();
    // Whatever happens, the session keeps its own settings and has no transaction left open.
    connection.query("SET SESSION sql_mode = 'ANSI_QUOTES', time_zone = '+05:00'");
    const Cell settings("ANSI_QUOTES / +05:00 / 0");
    int calls = 0;
    const auto cancelSecond = [&calls](const std::string &) {
        if (++calls == 2) {
            throw AppError("Export cancelled.");
        }
    };

    // Before the first object: a database that is gone is noticed before the file is opened, so
    // an earlier export stays.
    QCOMPARE(errorFrom([&] { connection.backup(scratch.name(), outputPath("no-folder/x.sql"), cancelSecond); }),
        QStringLiteral("Cannot create the backup file."));
    QFile earlier(m_folder.filePath("partial.sql"));
    QVERIFY(earlier.open(QIODevice::WriteOnly) && earlier.write("an earlier export\n") > 0);
    earlier.close();
    const QString error
        = errorFrom([&] { connection.backup(scratch.name() + "_gone", outputPath("partial.sql"), cancelSecond); });
    QVERIFY2(error.startsWith("MySQL 1049: "), qPrintable(error));
    QCOMPARE(readFile(earlier.fileName()), QByteArray("an earlier export\n"));
    QCOMPARE(sessionSettings(connection), settings);

    // Midway: the file stops short, and the connection carries on.
    QCOMPARE(errorFrom([&] { connection.backup(scratch.name(), outputPath("partial.sql"), cancelSecond); }),
        QStringLiteral("Export cancelled."));
    QCOMPARE(sessionSettings(connection), settings);
    const QByteArray file = readFile(earlier.fileName());
    QVERIFY(file.contains("INSERT INTO `first_t`"));
    QVERIFY(!file.contains("-- Table `second_t`") && !file.contains("-- Export complete."));
}

void TestDatabaseExport::roundTripBetweenServers_data()
{
    QTest::addColumn<bool>("fromStrict");
    QTest::newRow("from the strict server to the default one") << true;
    QTest::newRow("from the default server to the strict one") << false;
}

// An export from one server replayed into another, whose SQL mode, character set and time zone
// differ, holds the same rows, value for value.
void TestDatabaseExport::roundTripBetweenServers()
{
    QFETCH(bool, fromStrict);

    const TestServer from = fromStrict ? m_server.strict() : m_server;
    const TestServer to = fromStrict ? m_server : m_server.strict();
    ScratchDatabase source(from);
    source.run("CREATE TABLE rt (id INT AUTO_INCREMENT PRIMARY KEY, t TEXT NULL, b VARBINARY(24) NULL,"
               " ts TIMESTAMP(3) NULL, dt DATETIME(6) NULL, size INT AS (LENGTH(b)) STORED)");
    source.run("CREATE VIEW rt_view AS SELECT id, t FROM rt WHERE id < 5");
    // Zero in the AUTO_INCREMENT key, NULL next to '' and empty next to non-empty bytes, and the
    // second 01:30 of New York's autumn change (06:30 UTC).
    source.run("SET SESSION sql_mode = CONCAT(@@sql_mode, ',NO_AUTO_VALUE_ON_ZERO'), time_zone = '+00:00'");
    source.run("INSERT INTO rt (id, t, b, ts, dt) VALUES (0, NULL, X'', '2024-11-03 06:30:00.125',"
               " '2024-11-03 01:30:00.000001'), (1, '', X'00FF', '2024-07-01 12:00:00', NULL),"
               " (2, CONVERT(X'4d617261277320f09fa7b9205c0a2722' USING utf8mb4), NULL, NULL, '1999-12-31 23:59:59')");
    source.run("SET SESSION sql_mode = DEFAULT, time_zone = DEFAULT");
    // Text that breaks naive quoting, and bytes of every value, which are rarely valid UTF-8.
    std::mt19937 random(7411);
    for (int id = 3; id < 60; ++id) {
        std::string bytes(random() % 24, '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(random());
        }
        source.run("INSERT INTO rt (id, t, b) VALUES (" + std::to_string(id) + ", CONVERT("
            + hexLiteral(awkwardText(random, 12)) + " USING utf8mb4), " + hexLiteral(bytes) + ")");
    }
    source.connection().backup(source.name(), outputPath("round-trip.sql"), [](const std::string &) {});

    // The file is replayed as it is, statement by statement, into a server that has never seen
    // this database.
    const auto target = to.connect();
    const auto dropCopy = qScopeGuard([&] {
        try {
            target->query("DROP DATABASE IF EXISTS `" + source.name() + "`");
        } catch (const AppError &) {
        }
    });
    const Cell targetSettings = sessionSettings(*target);
    const QByteArray script = readFile(m_folder.filePath("round-trip.sql"));
    for (const std::string &statement : SQL::statements(script.toStdString())) {
        QCOMPARE(errorFrom([&] { target->query(statement); }), QStringLiteral("(no error)"));
    }
    QCOMPARE(sessionSettings(*target), targetSettings);

    // Both sides are read in UTC, so TIMESTAMP values compare as instants.
    source.run("SET SESSION time_zone = '+00:00'");
    target->query("SET SESSION time_zone = '+00:00'");
    for (const std::string compare :
        { "SELECT id, HEX(t), HEX(b), ts, dt, size FROM rt ORDER BY id", "SELECT * FROM rt_view ORDER BY id" }) {
        const QueryResult expected = source.run(compare);
        QVERIFY(expected.rows.size() >= 5);
        QCOMPARE(grid(target->query(compare).rows), grid(expected.rows));
    }
}

QTEST_GUILESS_MAIN(TestDatabaseExport)
#include "TestDatabaseExport.moc"
