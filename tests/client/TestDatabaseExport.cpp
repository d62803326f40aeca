#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/ScriptSplitter.h"
#include "support/TestServer.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <random>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The replaying session gets its own settings back, then the trailer.
const QByteArray ending = "SET SQL_MODE=@OLD_SQL_MODE;\nSET TIME_ZONE=@OLD_TIME_ZONE;\n"
                          "SET FOREIGN_KEY_CHECKS=1;\n-- Export complete.\n";

// Everything the header holds after its first (time-stamped) line.
QByteArray headerAfterFirstLine(const std::string &database)
{
    const QByteArray name = QByteArray::fromStdString(database);
    return "-- Tables and views only. Routines, triggers, events, and user accounts are not included.\n"
           "SET NAMES utf8mb4;\n"
           "SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE='NO_AUTO_VALUE_ON_ZERO,STRICT_ALL_TABLES,ALLOW_INVALID_DATES';\n"
           "SET @OLD_TIME_ZONE=@@TIME_ZONE, TIME_ZONE='+00:00';\n"
           "SET FOREIGN_KEY_CHECKS=0;\nCREATE DATABASE IF NOT EXISTS `"
        + name + "`;\nUSE `" + name + "`;\n\n";
}

// The session's SQL mode and time zone, as one line.
Cell sessionSettings(MySQLConnection &connection)
{
    return scalar(connection, "SELECT CONCAT(@@SESSION.sql_mode, ' / ', @@SESSION.time_zone)");
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw AppError("Cannot read " + path.toStdString());
    }
    return file.readAll();
}

QByteArray afterFirstLine(const QByteArray &text)
{
    const qsizetype end = text.indexOf('\n');
    return end < 0 ? QByteArray() : text.mid(end + 1);
}

// The statement the server reports, as the export is expected to copy it.
QByteArray showCreate(MySQLConnection &connection, const std::string &kind, const std::string &name)
{
    const QueryResult result = connection.query("SHOW CREATE " + kind + " `" + name + "`");
    return QByteArray::fromStdString(result.rows.at(0).at(1).value());
}

QByteArray tableSection(MySQLConnection &connection, const std::string &table, const QByteArray &inserts = {})
{
    return "-- Table `" + QByteArray::fromStdString(table) + "`\n" + showCreate(connection, "TABLE", table) + ";\n"
        + inserts + "\n";
}

QByteArray viewSection(MySQLConnection &connection, const std::string &view)
{
    return showCreate(connection, "VIEW", view) + ";\n\n";
}

std::string hexLiteral(const std::string &bytes)
{
    return "X'" + upperHex(bytes).toStdString() + "'";
}

void ignoreProgress(const std::string &) { }

} // namespace

class TestDatabaseExport final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void viewsFollowAllTables();
    void valueLiterals();
    void snapshotIgnoresLaterWrites();
    void failures();
    void roundTripBetweenServers_data();
    void roundTripBetweenServers();

private:
    QString outputPath(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
    QTemporaryDir m_folder;
};

void TestDatabaseExport::initTestCase()
{
    // A zone far from UTC, so a local time passed off as UTC shows in the header check.
    qputenv("TZ", "XST-9:30");
    QVERIFY(m_folder.isValid());
    try {
        m_server = TestServer::fromEnvironment();
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
}

void TestDatabaseExport::viewsFollowAllTables()
{
    ScratchDatabase scratch(m_server);
    // The server lists objects by name, so the views come first and between the tables. The
    // tables hold no rows, so their sections have no INSERT.
    scratch.run("CREATE TABLE b_table (id INT PRIMARY KEY, note VARCHAR(10) DEFAULT 'it''s')");
    scratch.run("CREATE TABLE z_table (id INT PRIMARY KEY)");
    scratch.run("CREATE VIEW a_view AS SELECT id FROM b_table");
    scratch.run("CREATE VIEW m_view AS SELECT b.id FROM b_table b JOIN z_table z ON z.id = b.id");
    const QString path = outputPath("views.sql");
    QStringList progress;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    scratch.connection().backup(scratch.name(), path.toStdString(), [&](const std::string &name) {
        progress.append(QString::fromStdString(name));
    });
    const qint64 after = QDateTime::currentSecsSinceEpoch();

    QCOMPARE(progress, QStringList({ "b_table", "z_table", "a_view", "m_view" }));
    const QByteArray file = readFile(path);
    const QString firstLine = QString::fromUtf8(file.left(file.indexOf('\n')));
    const QRegularExpressionMatch stamp
        = QRegularExpression("^-- Tallowick export · (\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}Z)$").match(firstLine);
    QVERIFY2(stamp.hasMatch(), qPrintable(firstLine));
    const qint64 written = QDateTime::fromString(stamp.captured(1), Qt::ISODate).toSecsSinceEpoch();
    QVERIFY2(before <= written && written <= after, qPrintable(firstLine));
    MySQLConnection &connection = scratch.connection();
    QCOMPARE(afterFirstLine(file),
        headerAfterFirstLine(scratch.name()) + tableSection(connection, "b_table") + tableSection(connection, "z_table")
            + viewSection(connection, "a_view") + viewSection(connection, "m_view") + ending);
    QCOMPARE(scalar(connection, "SELECT @@in_transaction"), Cell("0"));
}

// Generated columns sit between the data columns: they must drop out of both the column list and
// the values without shifting the rest.
void TestDatabaseExport::valueLiterals()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE v (id INT PRIMARY KEY, t VARCHAR(40) NULL, twice INT AS (id * 2) VIRTUAL,"
                " b BLOB NULL, next INT AS (id + 1) STORED)");
    scratch.run("INSERT INTO v (id, t, b) VALUES (1, NULL, NULL), (2, '', X''), (3, X'61275C630A', X'00FF10')");
    const QString path = outputPath("literals.sql");
    scratch.connection().backup(scratch.name(), path.toStdString(), ignoreProgress);

    // Text (here a'b\c and a line feed) travels as hex converted to utf8mb4, bytes as plain hex.
    const QByteArray prefix = "INSERT INTO `v` (`id`, `t`, `b`) VALUES (CONVERT(X'3";
    const QByteArray inserts = prefix + "1' USING utf8mb4), NULL, NULL);\n" + prefix + "2' USING utf8mb4), '', '');\n"
        + prefix + "3' USING utf8mb4), CONVERT(X'61275c630a' USING utf8mb4), X'00ff10');\n";
    QCOMPARE(afterFirstLine(readFile(path)),
        headerAfterFirstLine(scratch.name()) + tableSection(scratch.connection(), "v", inserts) + ending);
}

void TestDatabaseExport::snapshotIgnoresLaterWrites()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE a_first (id INT PRIMARY KEY) ENGINE=InnoDB");
    scratch.run("CREATE TABLE b_second (id INT PRIMARY KEY) ENGINE=InnoDB");
    scratch.run("INSERT INTO b_second VALUES (1)");
    const auto other = m_server.connect();
    other->use(scratch.name());

    const QString path = outputPath("snapshot.sql");
    scratch.connection().backup(scratch.name(), path.toStdString(), [&](const std::string &name) {
        if (name == "a_first") {
            other->query("INSERT INTO b_second VALUES (2)");
        }
    });

    QCOMPARE(scalar(*other, "SELECT COUNT(*) FROM b_second"), Cell("2"));
    const QByteArray file = readFile(path);
    QCOMPARE(file.count("INSERT INTO `b_second`"), 1);
    QVERIFY(file.contains("INSERT INTO `b_second` (`id`) VALUES (CONVERT(X'31' USING utf8mb4));\n"));
}

void TestDatabaseExport::failures()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE first_t (id INT PRIMARY KEY)");
    scratch.run("CREATE TABLE second_t (id INT PRIMARY KEY)");
    scratch.run("INSERT INTO first_t VALUES (1)");
    MySQLConnection &connection = scratch.connection();
    // Whatever happens, the session keeps its own settings.
    connection.query("SET SESSION sql_mode = 'ANSI_QUOTES', time_zone = '+05:00'");
    const Cell settings("ANSI_QUOTES / +05:00");
    int calls = 0;
    const auto progress = [&calls](const std::string &) {
        if (++calls == 2) {
            throw AppError("Export cancelled.");
        }
    };

    // Before the first object: nothing started, and a database that is gone is noticed before
    // the file is opened, so an earlier export stays.
    const std::string unwritable = m_folder.filePath("missing-folder/export.sql").toStdString();
    QCOMPARE(errorFrom([&] { connection.backup(scratch.name(), unwritable, progress); }),
        QStringLiteral("Cannot create the backup file."));
    const QString path = outputPath("partial.sql");
    {
        QFile earlier(path);
        QVERIFY(earlier.open(QIODevice::WriteOnly));
        earlier.write("an earlier export\n");
    }
    const std::string missing = "tallowick_missing_" + QUuid::createUuid().toString(QUuid::Id128).toStdString();
    const QString error = errorFrom([&] { connection.backup(missing, path.toStdString(), progress); });
    QVERIFY2(error.startsWith("MySQL 1049: "), qPrintable(error));
    QCOMPARE(readFile(path), QByteArray("an earlier export\n"));
    QCOMPARE(calls, 0);
    QCOMPARE(scalar(connection, "SELECT @@in_transaction"), Cell("0"));
    QCOMPARE(sessionSettings(connection), settings);

    // Midway: the snapshot transaction is gone, the connection carries on, the file stops short.
    QCOMPARE(errorFrom([&] { connection.backup(scratch.name(), path.toStdString(), progress); }),
        QStringLiteral("Export cancelled."));
    QCOMPARE(scalar(connection, "SELECT @@in_transaction"), Cell("0"));
    QCOMPARE(scalar(connection, "SELECT COUNT(*) FROM first_t"), Cell("1"));
    const QByteArray file = readFile(path);
    QVERIFY(file.contains("INSERT INTO `first_t`"));
    QVERIFY(!file.contains("-- Table `second_t`"));
    QVERIFY(!file.contains("-- Export complete."));
    QCOMPARE(sessionSettings(connection), settings);
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
    const std::string mode = scalar(source.connection(), "SELECT @@SESSION.sql_mode").value_or("");
    source.run("SET SESSION sql_mode = CONCAT(@@sql_mode, ',NO_AUTO_VALUE_ON_ZERO'), time_zone = '+00:00'");
    source.run("INSERT INTO rt (id, t, b, ts, dt) VALUES (0, NULL, X'', '2024-11-03 06:30:00.125',"
               " '2024-11-03 01:30:00.000001'), (1, '', X'00FF', '2024-07-01 12:00:00', NULL),"
               " (2, CONVERT(X'4d617261277320f09fa7b9205c0a2722' USING utf8mb4), NULL, NULL, '1999-12-31 23:59:59')");
    source.run("SET SESSION sql_mode = '" + mode + "', time_zone = DEFAULT");

    // Text that breaks naive quoting, and bytes of every value, which are rarely valid UTF-8.
    std::mt19937 random(7411);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 12);
    const int rows = 60;
    for (int id = 3; id < rows; ++id) {
        std::string bytes;
        for (int n = length(random) * 2; n > 0; --n) {
            bytes.push_back(static_cast<char>(byte(random)));
        }
        source.run("INSERT INTO rt (id, t, b) VALUES (" + std::to_string(id) + ", CONVERT("
            + hexLiteral(awkwardText(random, 12)) + " USING utf8mb4), " + hexLiteral(bytes) + ")");
    }

    const QString path = outputPath("round-trip.sql");
    source.connection().backup(source.name(), path.toStdString(), ignoreProgress);

    // The file is replayed as it is, statement by statement, into a server that has never seen
    // this database.
    const auto target = to.connect();
    struct DropCopy {
        MySQLConnection &target;
        std::string name;
        ~DropCopy()
        {
            try {
                target.query("DROP DATABASE IF EXISTS `" + name + "`");
            } catch (const AppError &) {
            }
        }
    } dropCopy { *target, source.name() };
    const Cell targetSettings = sessionSettings(*target);
    const QByteArray script = readFile(path);
    for (const std::string &statement :
        SQL::statements(std::string_view(script.constData(), std::size_t(script.size())))) {
        target->query(statement);
    }
    QCOMPARE(sessionSettings(*target), targetSettings);

    // Both sides are read in UTC, so TIMESTAMP values compare as instants.
    const std::string compare = "SELECT id, HEX(t), HEX(b), ts, dt, size FROM rt ORDER BY id";
    source.run("SET SESSION time_zone = '+00:00'");
    target->query("SET SESSION time_zone = '+00:00'");
    const QueryResult expected = source.run(compare);
    QCOMPARE(expected.rows.size(), std::size_t(rows));
    QCOMPARE(grid(target->query(compare).rows), grid(expected.rows));
    const std::string view = "SELECT * FROM rt_view ORDER BY id";
    QCOMPARE(grid(target->query(view).rows), grid(source.run(view).rows));
}

QTEST_GUILESS_MAIN(TestDatabaseExport)
#include "TestDatabaseExport.moc"
