#include "ClientChecks.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/TestServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const QString noHandle = QStringLiteral("Connect to a server first.");
const QString chooseCa = QStringLiteral("Choose a CA certificate file for TLS verification.");

// A loopback port bound but never listening, so an attempt there is refused at once: anything
// that reports a problem other than "can't connect" there never touched the network.
class DeadPort
{
public:
    DeadPort()
        : m_socket(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(0x7F000001u);
        socklen_t length = sizeof address;
        if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<sockaddr *>(&address), length) != 0
            || ::getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
            throw AppError("Could not reserve a loopback port.");
        }
        m_port = ntohs(address.sin_port);
    }
    ~DeadPort() { ::close(m_socket); }

    DeadPort(const DeadPort &) = delete;
    DeadPort &operator=(const DeadPort &) = delete;

    std::int64_t port() const { return m_port; }

private:
    int m_socket;
    std::int64_t m_port = 0;
};

bool sessionExists(MySQLConnection &monitor, std::uint64_t id)
{
    return scalar(monitor, "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + std::to_string(id))
        == Cell("1");
}

// The server drops a closed session asynchronously, so poll for it with a generous deadline.
template <typename Condition> bool eventually(Condition condition)
{
    QDeadlineTimer deadline(std::chrono::seconds(30));
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace

class TestConnectionLifecycle final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void negotiatedCipherIsTheOneTheServerSees();
    void requireTlsRefusesPlaintextServer();
    void verifyWithoutCaFileFailsBeforeConnecting_data();
    void verifyWithoutCaFileFailsBeforeConnecting();
    void reconnectAndClose();
    void readOnlyProfile();
    void killedInTheMiddleOfAStream();
    void statementOutlastsEveryClientLimit();

private:
    ConnectionProfile tlsProfile(TLSMode mode, std::int64_t port) const
    {
        ConnectionProfile profile = m_server.profile();
        profile.tls = mode;
        profile.port = port;
        return profile;
    }

    // Slots run on the main thread, which therefore needs the client library's set-up.
    ClientThreadScope m_clientThread;
    TestServer m_server;
};

void TestConnectionLifecycle::initTestCase()
{
    try {
        m_server = TestServer::fromEnvironment();
    } catch (const AppError &error) {
        QFAIL(error.what());
    }
}

// Verification against the test CA is among the built-in integration checks.
void TestConnectionLifecycle::negotiatedCipherIsTheOneTheServerSees()
{
    for (const TLSMode mode : { TLSMode::disabled, TLSMode::require }) {
        const auto connection = m_server.connect(tlsProfile(mode, m_server.port));
        QCOMPARE(connection->cipher().empty(), mode == TLSMode::disabled);
        const QueryResult status = connection->query("SHOW SESSION STATUS LIKE 'Ssl_cipher'");
        QCOMPARE(status.rows.at(0).at(1), Cell(connection->cipher()));
    }
}

void TestConnectionLifecycle::requireTlsRefusesPlaintextServer()
{
    MySQLConnection connection(tlsProfile(TLSMode::require, m_server.plainPort));
    const QString error = errorFrom([&] { connection.connect(m_server.password); });
    // Either the library's enforcement or the program's own cipher check may stop it first.
    QVERIFY2(error.startsWith("MySQL ")
            || error == QStringLiteral("The server did not establish TLS. The connection has been closed."),
        qPrintable(error));
    QVERIFY(!connection.isConnected());
}

void TestConnectionLifecycle::verifyWithoutCaFileFailsBeforeConnecting_data()
{
    QTest::addColumn<QString>("caPath");
    QTest::addColumn<QString>("expected"); // empty: any client error, as the attempt reaches the network

    QTest::newRow("caPath names a missing file") << QDir::temp().filePath("tallowick-no-such-ca.pem") << chooseCa;
    QTest::newRow("caPath names a folder") << QDir::tempPath() << chooseCa;
    // An empty caPath falls back to the system CA bundle, wherever this system keeps it.
    const bool bundleExists = QFileInfo::exists("/etc/ssl/certs/ca-certificates.crt")
        || QFileInfo::exists("/etc/pki/tls/certs/ca-bundle.crt") || QFileInfo::exists("/etc/ssl/cert.pem");
    QTest::newRow(bundleExists ? "empty caPath, system bundle present" : "empty caPath, no system bundle")
        << QString() << (bundleExists ? QString() : chooseCa);
}

void TestConnectionLifecycle::verifyWithoutCaFileFailsBeforeConnecting()
{
    QFETCH(QString, caPath);
    QFETCH(QString, expected);

    // The control: with TLS off, the same endpoint fails at the network.
    const DeadPort deadPort;
    MySQLConnection plain(tlsProfile(TLSMode::disabled, deadPort.port()));
    const QString unreachable = errorFrom([&] { plain.connect(m_server.password); });
    QVERIFY2(unreachable.startsWith("MySQL 2002: "), qPrintable(unreachable));

    ConnectionProfile profile = tlsProfile(TLSMode::verify, deadPort.port());
    profile.caPath = caPath.toStdString();
    MySQLConnection connection(profile);
    const QString error = errorFrom([&] { connection.connect(m_server.password); });
    if (expected.isEmpty()) {
        QVERIFY2(error.startsWith("MySQL "), qPrintable(error));
    } else {
        QCOMPARE(error, expected);
    }
    QVERIFY(!connection.isConnected());
}

void TestConnectionLifecycle::reconnectAndClose()
{
    const auto monitor = m_server.connect();
    MySQLConnection connection(m_server.profile());
    QCOMPARE(errorFrom([&] { connection.query("SELECT 1"); }), noHandle);
    connection.connect(m_server.password);
    const std::uint64_t first = connection.connectionID();
    QVERIFY(sessionExists(*monitor, first));

    // A second connect replaces the first session instead of leaking it.
    connection.connect(m_server.password);
    const std::uint64_t second = connection.connectionID();
    QCOMPARE(scalar(connection, "SELECT CONNECTION_ID()"), Cell(std::to_string(second)));
    QVERIFY(eventually([&] { return !sessionExists(*monitor, first); }));
    QVERIFY(sessionExists(*monitor, second));

    // So does a failed one: the open session is closed before the new attempt.
    const QString error = errorFrom([&] { connection.connect(m_server.password + "-wrong"); });
    QVERIFY2(error.startsWith("MySQL 1045: "), qPrintable(error));
    QCOMPARE(errorFrom([&] { connection.query("SELECT 1"); }), noHandle);
    QVERIFY(eventually([&] { return !sessionExists(*monitor, second); }));

    connection.connect(m_server.password);
    const std::uint64_t third = connection.connectionID();
    connection.close();
    connection.close();
    QVERIFY(!connection.isConnected());
    QVERIFY(eventually([&] { return !sessionExists(*monitor, third); }));

    QCOMPARE(errorFrom([&] { connection.use("mysql"); }), noHandle);

    connection.connect(m_server.password);
    QCOMPARE(scalar(connection, "SELECT 1"), Cell("1"));
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
    QCOMPARE(scalar(*readOnly, "SELECT @@session.tx_read_only"), Cell("1"));
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
    QCOMPARE(scalar(scratch.connection(), "SELECT GROUP_CONCAT(id, '=', v) FROM t"), Cell("1=one"));
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
    const bool streamingSeen = eventually([&] {
        return finished
            || scalar(*killer,
                   "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = " + session
                       + " AND INFO LIKE 'SELECT seq%'")
            == Cell("1");
    });
    const bool killedWhileRunning = !finished;
    if (!finished) {
        killer->query("KILL CONNECTION " + session);
    }
    worker.join();

    QVERIFY(streamingSeen);
    QVERIFY2(killedWhileRunning, "The statement ended before it could be killed.");
    QVERIFY2(streamError.startsWith("MySQL "), qPrintable(streamError));

    // The dead link is reported, never waited on, and never mistaken for an unread result.
    const QString next = errorFrom([&] { streaming.query("SELECT 1"); });
    QVERIFY2(next.startsWith("MySQL ") && !next.startsWith("MySQL 2014:"), qPrintable(next));

    streaming.connect(m_server.password);
    QCOMPARE(scalar(streaming, "SELECT COUNT(*) FROM seq_1_to_3"), Cell("3"));
}

// No client limit cuts a statement short: with every limit the connection has shortened to a
// second, a statement of three seconds still answers, and the connection stays in step. (A read
// limit would drop the link under it while the server may still commit the statement.)
void TestConnectionLifecycle::statementOutlastsEveryClientLimit()
{
    ConnectionLimits shortest;
    shortest.connectSeconds = 1;
    shortest.writeSeconds = 1;
    shortest.keepAliveIdleSeconds = 1;
    shortest.keepAliveIntervalSeconds = 1;
    shortest.keepAliveProbes = 1;
    MySQLConnection patient(m_server.profile(), shortest);
    patient.connect(m_server.password);
    QCOMPARE(scalar(patient, "SELECT SLEEP(3)"), Cell("0"));
    QCOMPARE(scalar(patient, "SELECT 'next'"), Cell("next"));
}

QTEST_GUILESS_MAIN(TestConnectionLifecycle)
#include "TestConnectionLifecycle.moc"
