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

    void emptyDatabaseIsHeaderAndTrailer();
    void valueLiterals_data();
    void valueLiterals();
    void viewsFollowAllTables();
    void snapshotIgnoresLaterWrites();
    void fileThatCannotBeCreated();
    void listingFailureLeavesFileAlone();
    void failureMidwayRollsBack();
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

void TestDatabaseExport::emptyDatabaseIsHeaderAndTrailer()
{
    ScratchDatabase scratch(m_server);
    const QString path = outputPath("empty.sql");
    {
        // A longer file already there must be replaced, not overwritten in place.
        QFile earlier(path);
        QVERIFY(earlier.open(QIODevice::WriteOnly));
        earlier.write(QByteArray(4096, 'x'));
    }
    QStringList progress;
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    scratch.connection().backup(scratch.name(), path.toStdString(), [&](const std::string &name) {
        progress.append(QString::fromStdString(name));
    });
    const qint64 after = QDateTime::currentSecsSinceEpoch();

    const QByteArray file = readFile(path);
    const QString firstLine = QString::fromUtf8(file.left(file.indexOf('\n')));
    const QRegularExpressionMatch stamp
        = QRegularExpression("^-- Tallowick export · (\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}Z)$").match(firstLine);
    QVERIFY2(stamp.hasMatch(), qPrintable(firstLine));
    const qint64 written = QDateTime::fromString(stamp.captured(1), Qt::ISODate).toSecsSinceEpoch();
    QVERIFY2(before <= written && written <= after, qPrintable(firstLine));

    QCOMPARE(afterFirstLine(file), headerAfterFirstLine(scratch.name()) + trailer);
    QCOMPARE(progress, QStringList());
    QCOMPARE(scalar(scratch.connection(), "SELECT @@in_transaction"), Cell("0"));
}

void TestDatabaseExport::valueLiterals_data()
{
    QTest::addColumn<QString>("text"); // SQL stored into the VARCHAR column
    QTest::addColumn<QString>("bytes"); // SQL stored into the VARBINARY column
    QTest::addColumn<QByteArray>("textLiteral");
    QTest::addColumn<QByteArray>("bytesLiteral");

    // clang-format off
    QTest::newRow("NULL and NULL") << "NULL" << "NULL" << QByteArray("NULL") << QByteArray("NULL");
    QTest::newRow("'' and zero bytes") << "''" << "X''" << QByteArray("''") << QByteArray("''");
    QTest::newRow("a'b\\c + LF and [00 FF 10]") << "X'61275C630A'" << "X'00FF10'"
        << QByteArray("CONVERT(X'61275c630a' USING utf8mb4)") << QByteArray("X'00ff10'");
    QTest::newRow("é and [C3 A9], binary though valid UTF-8") << "X'C3A9'" << "X'C3A9'"
        << QByteArray("CONVERT(X'c3a9' USING utf8mb4)") << QByteArray("X'c3a9'");
    // clang-format on
}

void TestDatabaseExport::valueLiterals()
{
    QFETCH(QString, text);
    QFETCH(QString, bytes);
    QFETCH(QByteArray, textLiteral);
    QFETCH(QByteArray, bytesLiteral);

    ScratchDatabase scratch(m_server);
    // Generated columns sit between the data columns: they must drop out of both the column
    // list and the values without shifting the rest.
    scratch.run("CREATE TABLE v (id INT PRIMARY KEY, t VARCHAR(40) NULL, twice INT AS (id * 2) VIRTUAL,"
                " b VARBINARY(40) NULL, next INT AS (id + 1) STORED)");
    scratch.run("INSERT INTO v (id, t, b) VALUES (1, " + text.toStdString() + ", " + bytes.toStdString() + ")");
    const QString path = outputPath("literals.sql");
    scratch.connection().backup(scratch.name(), path.toStdString(), ignoreProgress);

    const QByteArray insert = "INSERT INTO `v` (`id`, `t`, `b`) VALUES (CONVERT(X'31' USING utf8mb4), " + textLiteral
        + ", " + bytesLiteral + ");\n";
    QCOMPARE(afterFirstLine(readFile(path)),
        headerAfterFirstLine(scratch.name()) + tableSection(scratch.connection(), "v", insert) + trailer);
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
    scratch.connection().backup(scratch.name(), path.toStdString(), [&](const std::string &name) {
        progress.append(QString::fromStdString(name));
    });

    QCOMPARE(progress, QStringList({ "b_table", "z_table", "a_view", "m_view" }));
    MySQLConnection &connection = scratch.connection();
    QCOMPARE(afterFirstLine(readFile(path)),
        headerAfterFirstLine(scratch.name()) + tableSection(connection, "b_table") + tableSection(connection, "z_table")
            + viewSection(connection, "a_view") + viewSection(connection, "m_view") + trailer);
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

void TestDatabaseExport::fileThatCannotBeCreated()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE t (id INT PRIMARY KEY)");
    const QString path = m_folder.filePath("missing-folder/export.sql");
    bool progressed = false;
    QCOMPARE(errorFrom([&] {
        scratch.connection().backup(
            scratch.name(), path.toStdString(), [&](const std::string &) { progressed = true; });
    }),
        QStringLiteral("Cannot create the backup file."));
    QVERIFY(!progressed);
    QCOMPARE(scalar(scratch.connection(), "SELECT @@in_transaction"), Cell("0"));
}

void TestDatabaseExport::listingFailureLeavesFileAlone()
{
    ScratchDatabase scratch(m_server);
    const QString path = outputPath("keep.sql");
    {
        QFile earlier(path);
        QVERIFY(earlier.open(QIODevice::WriteOnly));
        earlier.write("an earlier export\n");
    }
    const std::string missing = "tallowick_missing_" + QUuid::createUuid().toString(QUuid::Id128).toStdString();
    const QString error = errorFrom([&] { scratch.connection().backup(missing, path.toStdString(), ignoreProgress); });
    QVERIFY2(error.startsWith("MySQL 1049: "), qPrintable(error));
    QCOMPARE(readFile(path), QByteArray("an earlier export\n"));
}

void TestDatabaseExport::failureMidwayRollsBack()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE first_t (id INT PRIMARY KEY)");
    scratch.run("CREATE TABLE second_t (id INT PRIMARY KEY)");
    scratch.run("INSERT INTO first_t VALUES (1)");
    const QString path = outputPath("partial.sql");
    int calls = 0;
    const QString error = errorFrom([&] {
        scratch.connection().backup(scratch.name(), path.toStdString(), [&](const std::string &) {
            if (++calls == 2) {
                throw AppError("Export cancelled.");
            }
        });
    });
    QCOMPARE(error, QStringLiteral("Export cancelled."));

    // The snapshot transaction is gone and the connection carries on.
    QCOMPARE(scalar(scratch.connection(), "SELECT @@in_transaction"), Cell("0"));
    QCOMPARE(scalar(scratch.connection(), "SELECT COUNT(*) FROM first_t"), Cell("1"));
    const QByteArray file = readFile(path);
    QVERIFY(file.contains("INSERT INTO `first_t`"));
    QVERIFY(!file.contains("-- Table `second_t`"));
    QVERIFY(!file.contains("-- Export complete."));
}

void TestDatabaseExport::roundTripUnderAnsiQuotes()
{
    ScratchDatabase source(m_server);
    ScratchDatabase target(m_server);
    source.run("CREATE TABLE rt (id INT PRIMARY KEY, t TEXT NULL, b BLOB NULL, size INT AS (LENGTH(b)) STORED)");

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
    const QueryResult actual = target.run(compare);
    QCOMPARE(expected.rows.size(), std::size_t(rows));
    QCOMPARE(actual.rows.size(), expected.rows.size());
    for (std::size_t i = 0; i < expected.rows.size(); ++i) {
        for (std::size_t column = 0; column < 4; ++column) {
            QCOMPARE(actual.rows[i][column], expected.rows[i][column]);
        }
    }
}

QTEST_GUILESS_MAIN(TestDatabaseExport)
#include "TestDatabaseExport.moc"
