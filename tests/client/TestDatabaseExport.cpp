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

const QByteArray trailer = "SET FOREIGN_KEY_CHECKS=1;\n-- Export complete.\n";

// Everything the header holds after its first (time-stamped) line.
QByteArray headerAfterFirstLine(const std::string &database)
{
    const QByteArray name = QByteArray::fromStdString(database);
    return "-- Tables and views only. Routines, triggers, events, and user accounts are not included.\n"
           "SET NAMES utf8mb4;\nSET FOREIGN_KEY_CHECKS=0;\nCREATE DATABASE IF NOT EXISTS `"
        + name + "`;\nUSE `" + name + "`;\n\n";
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
    void roundTripUnderAnsiQuotes();

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
            + viewSection(connection, "a_view") + viewSection(connection, "m_view") + trailer);
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
        headerAfterFirstLine(scratch.name()) + tableSection(scratch.connection(), "v", inserts) + trailer);
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

    // Midway: the snapshot transaction is gone, the connection carries on, the file stops short.
    QCOMPARE(errorFrom([&] { connection.backup(scratch.name(), path.toStdString(), progress); }),
        QStringLiteral("Export cancelled."));
    QCOMPARE(scalar(connection, "SELECT @@in_transaction"), Cell("0"));
    QCOMPARE(scalar(connection, "SELECT COUNT(*) FROM first_t"), Cell("1"));
    const QByteArray file = readFile(path);
    QVERIFY(file.contains("INSERT INTO `first_t`"));
    QVERIFY(!file.contains("-- Table `second_t`"));
    QVERIFY(!file.contains("-- Export complete."));
}

void TestDatabaseExport::roundTripUnderAnsiQuotes()
{
    ScratchDatabase source(m_server);
    ScratchDatabase target(m_server);
    source.run(
        "CREATE TABLE rt (id INT PRIMARY KEY, t TEXT NULL, b VARBINARY(24) NULL, size INT AS (LENGTH(b)) STORED)");

    // Text that breaks naive quoting, and bytes of every value, which are rarely valid UTF-8.
    std::mt19937 random(7411);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 12);
    const int rows = 150;
    for (int id = 1; id <= rows; ++id) {
        const std::string text = awkwardText(random, 12);
        std::string bytes;
        for (int n = length(random) * 2; n > 0; --n) {
            bytes.push_back(static_cast<char>(byte(random)));
        }
        const std::string textValue = id % 10 == 0 ? "NULL" : "CONVERT(" + hexLiteral(text) + " USING utf8mb4)";
        const std::string bytesValue = id % 7 == 0 ? "NULL" : hexLiteral(bytes);
        source.run(
            "INSERT INTO rt (id, t, b) VALUES (" + std::to_string(id) + ", " + textValue + ", " + bytesValue + ")");
    }

    const std::string mode = "SET SESSION sql_mode = 'ANSI_QUOTES,NO_BACKSLASH_ESCAPES'";
    source.run(mode);
    const QString path = outputPath("round-trip.sql");
    source.connection().backup(source.name(), path.toStdString(), ignoreProgress);

    target.run(mode);
    const QByteArray script = readFile(path);
    int replayed = 0;
    for (const std::string &statement :
        SQL::statements(std::string_view(script.constData(), std::size_t(script.size())))) {
        // The replay goes into the target database instead of the source's name.
        if (statement.starts_with("USE ") || statement.starts_with("CREATE DATABASE ")) {
            continue;
        }
        target.run(statement);
        ++replayed;
    }
    QVERIFY(replayed > rows);

    const std::string compare = "SELECT id, HEX(t), HEX(b), size FROM rt ORDER BY id";
    const QueryResult expected = source.run(compare);
    QCOMPARE(expected.rows.size(), std::size_t(rows));
    QCOMPARE(grid(target.run(compare).rows), grid(expected.rows));
}

QTEST_GUILESS_MAIN(TestDatabaseExport)
#include "TestDatabaseExport.moc"
