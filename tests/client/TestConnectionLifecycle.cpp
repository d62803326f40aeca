#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QDir>
#include <QTest>
#include <atomic>
#include <thread>

using namespace tallowick;
using namespace tallowick::test;

Q_DECLARE_METATYPE(tallowick::TLSMode)

namespace
{

const QString noHandle = QStringLiteral("Connect to a server first.");

// The server drops a closed session asynchronously, so wait for it with a generous deadline.
bool sessionEnds(MySQLConnection &monitor, std::uint64_t id)
{
    const std::string count = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + std::to_string(id);
    return QTest::qWaitFor([&] { return scalar(monitor, count) == Cell("0"); }, 30000);
}

} // namespace

class TestConnectionLifecycle final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tlsModes_data();
    void tlsModes();
    void reconnectAndClose();
    void readOnlyProfile();
    void killedInTheMiddleOfAStream();
    void statementOutlastsEveryClientLimit();

private:
    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment(); // ends the run when the servers are missing
};

// Disabled TLS and verification against the test CA are among the built-in integration checks.
void TestConnectionLifecycle::tlsModes_data()
{
    QTest::addColumn<TLSMode>("mode");
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("plainServer"); // the instance without TLS
    QTest::addColumn<QString>("caPath");
    QTest::addColumn<QString>("error"); // empty: connects encrypted; "refused": any failure

    const QString chooseCa = QStringLiteral("Choose a CA certificate file for TLS verification.");
    const QString ip = QStringLiteral("127.0.0.1");
    const QString testCa = QString::fromStdString(m_server.caPath);
    // clang-format off
    QTest::newRow("require: encrypts without checking the name") << TLSMode::require << "localhost" << false
                                                                 << QString() << QString();
    QTest::newRow("require: plaintext server refused") << TLSMode::require << ip << true << QString() << "refused";
    QTest::newRow("verify: host name not in the certificate") << TLSMode::verify << "localhost" << false << testCa
                                                              << "refused";
    // An empty path means the system bundle, which does not trust the test CA (or is missing).
    QTest::newRow("verify: untrusted CA") << TLSMode::verify << ip << false << QString() << "refused";
    QTest::newRow("verify: CA path is a missing file") << TLSMode::verify << ip << false
        << QDir::temp().filePath("tallowick-no-such-ca.pem") << chooseCa;
    QTest::newRow("verify: CA path is a folder") << TLSMode::verify << ip << false << QDir::tempPath()
        << chooseCa;
    // clang-format on
}

void TestConnectionLifecycle::tlsModes()
{
    QFETCH(TLSMode, mode);
    QFETCH(QString, host);
    QFETCH(bool, plainServer);
    QFETCH(QString, caPath);
    QFETCH(QString, error);

    ConnectionProfile profile = m_server.profile();
    profile.tls = mode;
    profile.host = host.toStdString();
    profile.port = plainServer ? m_server.plainPort : m_server.port;
    profile.caPath = caPath.toStdString();

    MySQLConnection connection(profile);
    const QString outcome = errorFrom([&] { connection.connect(m_server.password); });
    if (error.isEmpty()) {
        QCOMPARE(outcome, QStringLiteral("(no error)"));
        QVERIFY(!connection.cipher().empty());
        QCOMPARE(connection.query("SHOW SESSION STATUS LIKE 'Ssl_cipher'").rows.at(0).at(1), Cell(connection.cipher()));
    } else {
        QVERIFY(!connection.isConnected());
        QVERIFY2(error == "refused" ? outcome != QStringLiteral("(no error)") : outcome == error, qPrintable(outcome));
    }
}

void TestConnectionLifecycle::reconnectAndClose()
{
    const auto monitor = m_server.connect();
    MySQLConnection connection(m_server.profile());
    QCOMPARE(errorFrom([&] { connection.query("SELECT 1"); }), noHandle);
    connection.connect(m_server.password);
    const std::uint64_t first = connection.connectionID();

    // A second connect replaces the first session instead of leaking it.
    connection.connect(m_server.password);
    const std::uint64_t second = connection.connectionID();
    QCOMPARE(scalar(connection, "SELECT CONNECTION_ID()"), Cell(std::to_string(second)));
    QVERIFY(sessionEnds(*monitor, first));

    // So does a failed one: the open session is closed before the new attempt.
    const QString error = errorFrom([&] { connection.connect(m_server.password + "-wrong"); });
    QVERIFY2(error.startsWith("MySQL 1045: "), qPrintable(error));
    QCOMPARE(errorFrom([&] { connection.query("SELECT 1"); }), noHandle);
    QVERIFY(sessionEnds(*monitor, second));

    connection.connect(m_server.password);
    const std::uint64_t third = connection.connectionID();
    connection.close();
    QVERIFY(sessionEnds(*monitor, third));
}

void TestConnectionLifecycle::readOnlyProfile()
{
    ScratchDatabase scratch(m_server);
    scratch.run("CREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(10))");
    scratch.run("INSERT INTO t VALUES (1, 'one')");
    ConnectionProfile profile = m_server.profile();
    profile.database = scratch.name();
    profile.readOnly = true;
    const auto readOnly = m_server.connect(profile);

    // The server itself refuses, whatever SQL reaches it.
    const QString refused = errorFrom([&] { readOnly->query("INSERT INTO t VALUES (2, 'two')"); });
    QVERIFY2(refused.startsWith("MySQL 1792: "), qPrintable(refused));

    // The program's own writes refuse before sending anything, even for a row that is gone.
    const QueryResult rows = readOnly->query("SELECT id, v FROM t");
    const QString readOnlyRefusal = QStringLiteral("This connection is read-only.");
    const long long questions = sessionStatus(*readOnly, "Questions");
    QCOMPARE(errorFrom([&] { readOnly->updateCell(rows, 7, 1, Cell("uno")); }), readOnlyRefusal);
    QCOMPARE(errorFrom([&] { readOnly->deleteRow(rows, 0, scratch.name(), "t"); }), readOnlyRefusal);
    QCOMPARE(errorFrom([&] { readOnly->createUser("tallowick_ro_probe", "%", "pw"); }), readOnlyRefusal);
    QCOMPARE(sessionStatus(*readOnly, "Questions") - questions, 1);
}

void TestConnectionLifecycle::killedInTheMiddleOfAStream()
{
    const ScratchDatabase scratch(m_server); // the sequence tables need a default database
    ConnectionProfile profile = m_server.profile();
    profile.database = scratch.name();
    MySQLConnection streaming(profile);
    streaming.connect(m_server.password);
    const std::string session = std::to_string(streaming.connectionID());
    const auto killer = m_server.connect();

    QString streamError = QStringLiteral("(no error)");
    std::atomic<bool> finished { false };
    std::thread worker([&] {
        const ClientThreadScope clientThread;
        streamError = errorFrom([&] { streaming.query("SELECT seq, REPEAT('x', 200) FROM seq_1_to_5000000", 10); });
        finished = true;
    });
    const std::string running
        = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + session + " AND INFO LIKE 'SELECT seq%'";
    const bool killedWhileRunning
        = QTest::qWaitFor([&] { return finished || scalar(*killer, running) == Cell("1"); }, 30000) && !finished;
    if (killedWhileRunning) {
        killer->query("KILL CONNECTION " + session);
    }
    worker.join();
    QVERIFY2(killedWhileRunning, "The statement ended before it could be killed.");
    QVERIFY2(streamError.startsWith("MySQL "), qPrintable(streamError));

    // The dead link is reported, never waited on, and never mistaken for an unread result.
    const QString next = errorFrom([&] { streaming.query("SELECT 1"); });
    QVERIFY2(next.startsWith("MySQL ") && !next.startsWith("MySQL 2014:"), qPrintable(next));
}

// No client limit cuts a statement short: with every limit shortened to a second, a statement of
// three seconds still answers and the connection stays in step. (A read limit would drop the link
// under it while the server may still commit the statement.)
void TestConnectionLifecycle::statementOutlastsEveryClientLimit()
{
    const ConnectionLimits shortest { 1, 1, 1, 1, 1 };
    MySQLConnection patient(m_server.profile(), shortest);
    patient.connect(m_server.password);
    QCOMPARE(scalar(patient, "SELECT SLEEP(3)"), Cell("0"));
    QCOMPARE(scalar(patient, "SELECT 'next'"), Cell("next"));
}

QTEST_GUILESS_MAIN(TestConnectionLifecycle)
#include "TestConnectionLifecycle.moc"
