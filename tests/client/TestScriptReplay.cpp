#include "client/ClientThreadScope.h"
#include "client/ScriptReplay.h"
#include "core/AppError.h"
#include "core/ScriptSplitter.h"
#include "core/SqlQuoting.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <thread>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

Cell scalar(MySQLConnection &connection, const std::string &sql)
{
    return connection.query(sql).rows.at(0).at(0);
}

// Every table of the connection's database, rows in key order, as one list of lines.
QStringList contents(MySQLConnection &connection)
{
    QStringList lines;
    for (const Row &table : connection.query("SHOW TABLES").rows) {
        const std::string name = table.at(0).value();
        lines << QString::fromStdString(name);
        lines << rowTexts(connection.query("SELECT * FROM " + SQL::identifier(name) + " ORDER BY 1").rows);
    }
    return lines;
}

// What running the statements one by one with autocommit leaves, and the line of the first
// failure (0 when none).
std::pair<QStringList, std::int64_t> plainRun(MySQLConnection &connection, const std::string &script)
{
    SQL::StatementStream stream;
    stream.feed(script);
    stream.finish();
    for (SQL::ScriptStatement statement; stream.next(statement);) {
        try {
            connection.query(statement.text);
        } catch (const AppError &) {
            return { contents(connection), statement.line };
        }
    }
    return { contents(connection), 0 };
}

// The line a replay failure names, 0 when it did not fail.
std::int64_t failedLine(const std::function<void()> &run)
{
    const QString error = errorFrom(run);
    if (error == QStringLiteral("(no error)")) {
        return 0;
    }
    const qsizetype colon = error.indexOf(QLatin1Char(':'));
    return error.startsWith(QStringLiteral("Stopped at line ")) ? error.mid(16, colon - 16).toLongLong() : -1;
}

std::string numbered(const char *format, int from, int to)
{
    std::string text;
    for (int i = from; i <= to; ++i) {
        text += QString::asprintf(format, i, i).toStdString();
    }
    return text;
}

} // namespace

class TestScriptReplay final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsAsAPlainRun_data();
    void endsAsAPlainRun();
    void badFilesRunNothing();
    void cancelKeepsWhatRan();
    void deadlockVictimEndsAsAPlainRun_data();
    void deadlockVictimEndsAsAPlainRun();
};

void TestScriptReplay::endsAsAPlainRun_data()
{
    QTest::addColumn<QByteArray>("script");
    const std::string innodb = "CREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(20)) ENGINE=InnoDB;\n";
    const std::string myisam = "CREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(20)) ENGINE=MyISAM;\n";
    const std::string rows = numbered("INSERT INTO t (id, v) VALUES (%d, 'r%d');\n", 1, 40);
    const std::string log = "CREATE TABLE log (n INT AUTO_INCREMENT PRIMARY KEY, seen BIGINT) ENGINE=InnoDB;\n";
    const auto add
        = [](const char *name, const std::string &script) { QTest::newRow(name) << QByteArray::fromStdString(script); };
    const std::string duplicate = "INSERT INTO t (id, v) VALUES (13, 'dup');\n";
    const std::string late = numbered("INSERT INTO t (id, v) VALUES (%d, 'late%d');\n", 50, 60);
    add("rows, an update, REPLACE and a second table",
        innodb + rows + "UPDATE t SET v = 'x' WHERE id > 30;\n" + "REPLACE INTO t VALUES (3, 'again'), (99, 'new');\n"
            + myisam.substr(0, 13) + "u" + myisam.substr(14) + numbered("INSERT INTO u VALUES (%d, 'u%d');\n", 1, 9)
            + "INSERT INTO t SELECT id + 100, v FROM u;\nINSERT INTO t VALUES (200, 'a\\\\b'), (201, 'it''s');\n");
    add("a duplicate inside a group keeps the rows before it", innodb + rows + duplicate + late);
    add("the same on a table that cannot roll back", myisam + rows + duplicate + late);
    // A versioned comment changes the SQL mode; without a strict mode one NULL into NOT NULL fails
    // alone but would become '' inside a multi-row INSERT.
    add("NULL into NOT NULL without a strict mode",
        "/*!40101 SET SESSION sql_mode = '' */;\nCREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(20) NOT NULL) "
        "ENGINE=InnoDB;\n"
            + numbered("INSERT INTO t VALUES (%d, 'r%d');\n", 1, 6) + "INSERT INTO t VALUES (7, NULL);\n"
            + numbered("INSERT INTO t VALUES (%d, 'r%d');\n", 8, 12));
    add("a duplicate among the file's last rows",
        innodb + "INSERT INTO t VALUES (1, 'a');\nINSERT INTO t VALUES (1, 'dup');\nINSERT INTO t VALUES (2, 'b');\n");
    add("a value too long for its column, strictly",
        "SET SESSION sql_mode = 'STRICT_ALL_TABLES';\n" + myisam + rows
            + "INSERT INTO t VALUES (41, 'much too long for twenty');\n" + rows);
    add("the file's own transaction",
        innodb + numbered("INSERT INTO t VALUES (%d, 'r%d');\n", 1, 5) + "START TRANSACTION;\n"
            + numbered("INSERT INTO t VALUES (%d, 'gone%d');\n", 70, 80) + "ROLLBACK;\n"
            + numbered("INSERT INTO t VALUES (%d, 'kept%d');\n", 90, 99));
    add("locked tables", innodb + "LOCK TABLES t WRITE;\n" + rows + "UNLOCK TABLES;\n");
    add("what the last insert left behind",
        log + numbered("INSERT INTO log (seen) VALUES (%d + 0 * %d);\n", 1, 12)
            + "SET @rows = ROW_COUNT(), @key = LAST_INSERT_ID();\nINSERT INTO log VALUES (100, @rows), (101, @key);\n");
    add("a procedure body",
        innodb + "DELIMITER $$\nCREATE PROCEDURE p() BEGIN INSERT INTO t VALUES (1, 'p'); END$$\n"
            + "DELIMITER ;\nCALL p();\n" + rows);
}

// The same file, run plainly in one database and replayed in another, on both servers, with
// pieces, combinations and transactions made small enough to cut the file everywhere.
void TestScriptReplay::endsAsAPlainRun()
{
    QFETCH(QByteArray, script);
    const ClientThreadScope scope;
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("script.sql"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(script) == script.size());
    file.close();
    const TestServer server = TestServer::fromEnvironment();
    for (const TestServer &instance : { server, server.strict() }) {
        ScratchDatabase plain(instance);
        ScratchDatabase replayed(instance);
        const auto [expected, expectedLine] = plainRun(plain.connection(), script.toStdString());
        ScriptReplay replay(replayed.connection(), { 7, 120, 1000 });
        const std::int64_t line = failedLine([&] { replay.run(path.toStdString(), {}, nullptr); });
        QCOMPARE(line, expectedLine);
        QCOMPARE(contents(replayed.connection()), expected);
        QCOMPARE(scalar(replayed.connection(), "SELECT @@in_transaction"), Cell("0"));
    }
}

void TestScriptReplay::badFilesRunNothing()
{
    const ClientThreadScope scope;
    QTemporaryDir folder;
    const TestServer server = TestServer::fromEnvironment();
    ScratchDatabase database(server);
    const std::string create = "CREATE TABLE t (id INT);\nINSERT INTO t VALUES (1);\n";
    const std::tuple<const char *, QByteArray, QString> cases[] = {
        { "latin1.sql", QByteArray::fromStdString(create) + "SELECT 'caf\xe9';\n", "is not UTF-8 text (line 3)." },
        { "cut.sql", QByteArray::fromStdString(create) + "SELECT '\xc3", "is not UTF-8 text (line 3)." },
        { "quote.sql",
            QByteArray::fromStdString(create) + "SELECT 'open;\n",
            "The SQL contains an unterminated string, identifier, or comment." },
        { "comment.sql",
            QByteArray::fromStdString(create) + "/* open;\n",
            "The SQL contains an unterminated string, identifier, or comment." },
    };
    for (const auto &[name, bytes, message] : cases) {
        const QString path = folder.filePath(QString::fromLatin1(name));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        file.close();
        ScriptReplay replay(database.connection(), { 5, 100, 100 });
        const QString error = errorFrom([&] { replay.run(path.toStdString(), {}, nullptr); });
        QVERIFY2(error.contains(message) && error.endsWith(QStringLiteral(" Nothing was run.")), qPrintable(error));
    }
    ScriptReplay replay(database.connection());
    QVERIFY(errorFrom([&] {
        replay.run(folder.filePath(QStringLiteral("missing.sql")).toStdString(), {}, nullptr);
    }).startsWith(QStringLiteral("Could not open ")));
    QCOMPARE(contents(database.connection()), QStringList());
}

// Cancelled after the first piece: exactly the statements it reports as run are applied.
void TestScriptReplay::cancelKeepsWhatRan()
{
    const ClientThreadScope scope;
    QTemporaryDir folder;
    const std::string script = "CREATE TABLE t (id INT PRIMARY KEY) ENGINE=InnoDB;\n"
        + numbered("INSERT INTO t VALUES (%d + 0 * %d);\n", 1, 500);
    const QString path = folder.filePath(QStringLiteral("long.sql"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(script.data(), qint64(script.size())) > 0);
    file.close();
    ScratchDatabase database(TestServer::fromEnvironment());
    std::atomic<bool> cancel = false;
    std::vector<ScriptReplayProgress> reports;
    ScriptReplay replay(database.connection(), { 4096, 1 << 20, 8 << 20 });
    const ScriptReplayOutcome outcome = replay.run(
        path.toStdString(),
        [&](const ScriptReplayProgress &progress) {
            reports.push_back(progress);
            cancel = true;
        },
        &cancel);
    QVERIFY(outcome.cancelled);
    QCOMPARE(reports.size(), std::size_t(1));
    QCOMPARE(reports[0].bytesTotal, std::uint64_t(script.size()));
    QCOMPARE(reports[0].statementsTotal, std::int64_t(501));
    QVERIFY(reports[0].statementsDone <= outcome.statements); // rows gathered into one are counted when sent
    QVERIFY(outcome.statements > 1 && outcome.statements < 501);
    QCOMPARE(scalar(database.connection(), "SELECT COUNT(*) FROM t"), Cell(std::to_string(outcome.statements - 1)));
}

// Another session holds row 5 and, being the larger transaction, wins the deadlock it then causes
// on row 2: the server rolls back the replay's whole transaction, rows 1 to 4 with it. The replay
// applies them again and goes on, so the table ends as a plain run leaves it.
void TestScriptReplay::deadlockVictimEndsAsAPlainRun_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::newRow("rows sent combined") << QByteArray();
    // Without a strict SQL mode rows are not combined.
    QTest::newRow("statements sent one by one") << QByteArray("SET SESSION sql_mode = '';\n");
}

void TestScriptReplay::deadlockVictimEndsAsAPlainRun()
{
    QFETCH(QByteArray, mode);
    const ClientThreadScope scope;
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("rows.sql"));
    const std::string script = mode.toStdString() + numbered("INSERT INTO t VALUES (%d, 'r%d');\n", 1, 5);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(script.data(), qint64(script.size())) > 0);
    file.close();
    const TestServer server = TestServer::fromEnvironment();
    ScratchDatabase database(server);
    database.run("CREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(20)) ENGINE=InnoDB");
    database.run("CREATE TABLE heavy (id INT PRIMARY KEY, n INT) ENGINE=InnoDB");
    database.run("INSERT INTO heavy SELECT seq, 0 FROM seq_1_to_300");
    const auto other = server.connect();
    other->use(database.name());
    other->query("START TRANSACTION");
    other->query("UPDATE heavy SET n = n + 1");
    other->query("INSERT INTO t VALUES (5, 'other')");
    const auto replaying = server.connect();
    replaying->use(database.name());
    const auto deadlocks
        = [&database] { return database.run("SHOW GLOBAL STATUS LIKE 'Innodb_deadlocks'").rows.at(0).at(1).value(); };
    const std::string deadlocksBefore = deadlocks();
    QString error;
    std::thread replay([&] {
        const ClientThreadScope threadScope;
        ScriptReplay replayer(*replaying, { 1 << 20, 1, 1 << 20 });
        error = errorFrom([&] { replayer.run(path.toStdString(), {}, nullptr); });
    });
    // However this test ends, the other session lets go and the replay finishes.
    auto release = qScopeGuard([&] {
        other->query("ROLLBACK");
        replay.join();
    });
    const std::string waiting = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = "
        + std::to_string(replaying->connectionID()) + " AND INFO LIKE '%INTO t VALUES (5,%'";
    QVERIFY(QTest::qWaitFor([&] { return database.run(waiting).rows.at(0).at(0) == "1"; }, 10000));
    other->query("INSERT INTO t VALUES (2, 'other')");
    other->query("ROLLBACK");
    replay.join();
    release.dismiss();
    QCOMPARE(error, QStringLiteral("(no error)"));
    QVERIFY(deadlocks() != deadlocksBefore);
    QStringList expected;
    for (int i = 1; i <= 5; ++i) {
        expected << QStringLiteral("%1|r%1").arg(i);
    }
    QCOMPARE(rowTexts(database.run("SELECT * FROM t ORDER BY id").rows), expected);
}

QTEST_GUILESS_MAIN(TestScriptReplay)
#include "TestScriptReplay.moc"
