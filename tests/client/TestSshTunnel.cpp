#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "client/SshTunnel.h"
#include "core/FileText.h"
#include "support/Checks.h"
#include "support/TestServer.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <dirent.h>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// TCP connections of this process to `port` on 127.0.0.1 that are established: the SSH
// connections a tunnel holds open.
int connectionsTo(std::int64_t port)
{
    std::set<std::string> ours;
    if (DIR *folder = opendir("/proc/self/fd")) {
        while (const dirent *entry = readdir(folder)) {
            char target[64] = {};
            const std::string path = std::string("/proc/self/fd/") + entry->d_name;
            if (readlink(path.c_str(), target, sizeof target - 1) > 0) {
                ours.insert(target);
            }
        }
        closedir(folder);
    }
    char remote[16];
    std::snprintf(remote, sizeof remote, ":%04X", static_cast<unsigned>(port));
    std::ifstream table("/proc/net/tcp");
    int count = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string slot, from, to, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> from >> to >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode;
        count += to.ends_with(remote) && state == "01" && ours.contains("socket:[" + inode + "]") ? 1 : 0;
    }
    return count;
}

bool listening(int port)
{
    QProcess probe;
    probe.start(
        QStringLiteral("bash"), { QStringLiteral("-c"), QStringLiteral("exec 3<>/dev/tcp/127.0.0.1/%1").arg(port) });
    probe.waitForFinished();
    return probe.exitCode() == 0;
}

} // namespace

// The tunnel against a real sshd: each way of logging in, the host-key rules, the errors that
// name the SSH hop, and a tunnel that lives exactly as long as its connection.
class TestSshTunnel final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void logsInAndForwards_data();
    void logsInAndForwards();
    void hostKeys();
    void errorsNameTheSshHop();
    void onlyThisProcessMayUseTheTunnel();
    void cancelStopsAnOpeningTunnel();

private:
    SshTunnelRequest request(const SshTunnelSettings &settings, const std::string &secret = {}) const
    {
        SshTunnelRequest request;
        request.settings = settings;
        request.secret = secret;
        request.knownHostsFile = m_ssh.knownHosts;
        return request;
    }
    // A connection to the plain database server through `tunnel`.
    std::unique_ptr<MySQLConnection> through(const SshTunnelRequest &tunnel, TLSMode tls = TLSMode::disabled) const
    {
        ConnectionProfile profile = m_server.profile();
        profile.port = tls == TLSMode::disabled ? m_server.plainPort : m_server.port;
        profile.tls = tls;
        profile.caPath = m_server.caPath;
        auto connection = std::make_unique<MySQLConnection>(profile);
        connection->setTunnel(tunnel);
        return connection;
    }

    ClientThreadScope m_clientThread;
    const TestServer m_server = TestServer::fromEnvironment();
    const TestSshServer m_ssh = TestSshServer::fromEnvironment();
    QTemporaryDir m_folder;
};

void TestSshTunnel::initTestCase()
{
    qputenv("SSH_AUTH_SOCK", QByteArray::fromStdString(m_ssh.agentSocket));
}

void TestSshTunnel::logsInAndForwards_data()
{
    QTest::addColumn<int>("auth");
    QTest::addColumn<QString>("keyFile");
    QTest::addColumn<QString>("secret");
    QTest::newRow("agent") << int(SshAuth::agent) << QString() << QString();
    QTest::newRow("key file") << int(SshAuth::keyFile) << QString::fromStdString(m_ssh.key) << QString();
    QTest::newRow("key with passphrase") << int(SshAuth::keyFile) << QString::fromStdString(m_ssh.passphraseKey)
                                         << QString::fromStdString(m_ssh.passphrase);
}

void TestSshTunnel::logsInAndForwards()
{
    QFETCH(int, auth);
    QFETCH(QString, keyFile);
    QFETCH(QString, secret);
    const int before = connectionsTo(m_ssh.port);
    const auto connection
        = through(request(m_ssh.settings(SshAuth(auth), keyFile.toStdString()), secret.toStdString()));
    connection->connect(m_server.password);
    QCOMPARE(connection->query("SELECT 6 * 7").rows, std::vector<Row> { { "42" } });
    QCOMPARE(connectionsTo(m_ssh.port), before + 1);
    // Reconnecting replaces the tunnel; closing ends it.
    connection->connect(m_server.password);
    QCOMPARE(connectionsTo(m_ssh.port), before + 1);
    connection->close();
    QCOMPARE(connectionsTo(m_ssh.port), before);
}

// An unknown key is refused unless accepted, and then remembered; a changed key is refused
// without asking.
void TestSshTunnel::hostKeys()
{
    SshTunnelRequest unknown = request(m_ssh.settings(SshAuth::agent));
    unknown.knownHostsFile = m_folder.filePath(QStringLiteral("new/known_hosts")).toStdString();
    std::vector<SshHostKey> asked;
    unknown.acceptNewHostKey = [&asked](const SshHostKey &key) {
        asked.push_back(key);
        return false;
    };
    QString error = errorFrom([&] { through(unknown)->connect(m_server.password); });
    QVERIFY2(error.startsWith("SSH: 127.0.0.1 is not a known host, and its key SHA256:"), qPrintable(error));
    QCOMPARE(asked.size(), std::size_t(1));
    QCOMPARE(asked[0].port, m_ssh.port);
    QVERIFY(error.contains(QString::fromStdString(asked[0].fingerprint)));

    unknown.acceptNewHostKey = [&asked](const SshHostKey &key) {
        asked.push_back(key);
        return true;
    };
    QCOMPARE(errorFrom([&] { through(unknown)->connect(m_server.password); }), QStringLiteral("(no error)"));
    QCOMPARE(errorFrom([&] { through(unknown)->connect(m_server.password); }), QStringLiteral("(no error)"));
    QCOMPARE(asked.size(), std::size_t(2)); // the second connection knew the key

    SshTunnelRequest changed = request(m_ssh.settings(SshAuth::agent));
    changed.knownHostsFile = m_folder.filePath(QStringLiteral("changed")).toStdString();
    const QByteArray otherKey = readWholeFile(m_ssh.otherHostKey).split(' ').mid(0, 2).join(' ');
    writeFileAtomically(
        changed.knownHostsFile, "[127.0.0.1]:" + QByteArray::number(qint64(m_ssh.port)) + " " + otherKey + "\n");
    changed.acceptNewHostKey = [&asked](const SshHostKey &key) {
        asked.push_back(key);
        return true;
    };
    error = errorFrom([&] { through(changed)->connect(m_server.password); });
    QVERIFY2(error.startsWith("SSH: the host key of 127.0.0.1 has changed (it is now SHA256:"), qPrintable(error));
    QCOMPARE(asked.size(), std::size_t(2));
}

void TestSshTunnel::errorsNameTheSshHop()
{
    QString error = errorFrom([&] {
        through(request(m_ssh.settings(SshAuth::keyFile, m_ssh.passphraseKey), "wrong"))->connect(m_server.password);
    });
    QCOMPARE(error,
        QStringLiteral("SSH: could not read the private key %1 (is the passphrase right?).")
            .arg(QString::fromStdString(m_ssh.passphraseKey)));

    error = errorFrom(
        [&] { through(request(m_ssh.settings(SshAuth::keyFile, m_ssh.restrictedKey)))->connect(m_server.password); });
    QVERIFY2(
        error.startsWith(QStringLiteral("SSH: 127.0.0.1 refused to forward to 127.0.0.1:%1 (").arg(m_server.plainPort)),
        qPrintable(error));

    SshTunnelSettings stranger = m_ssh.settings(SshAuth::agent);
    stranger.user = "nobody-here";
    error = errorFrom([&] { through(request(stranger))->connect(m_server.password); });
    QVERIFY2(error.startsWith("SSH: 127.0.0.1 refused the login of nobody-here with the SSH agent's keys"),
        qPrintable(error));

    SshTunnelSettings closed = m_ssh.settings(SshAuth::agent);
    closed.port = 1;
    error = errorFrom([&] { through(request(closed))->connect(m_server.password); });
    QCOMPARE(error, QStringLiteral("SSH: could not reach 127.0.0.1:1 (Connection refused)."));

    // The database's own errors stay the client's.
    error = errorFrom([&] { through(request(m_ssh.settings(SshAuth::agent)))->connect("wrong password"); });
    QVERIFY2(error.startsWith("MySQL 1045: Access denied"), qPrintable(error));

    // Verification would check the tunnel's address, not the server's name: refused before any
    // SSH work, with or without a CA that would pass.
    error = errorFrom([&] { through(request(m_ssh.settings(SshAuth::agent)), TLSMode::verify)->connect({}); });
    QVERIFY2(error.startsWith("Verify certificate cannot be used through an SSH tunnel"), qPrintable(error));
    QCOMPARE(errorFrom([&] {
        const auto connection = through(request(m_ssh.settings(SshAuth::agent)), TLSMode::require);
        connection->connect(m_server.password);
        QVERIFY(!connection->cipher().empty());
    }),
        QStringLiteral("(no error)"));
}

// The local end accepts one connection, and only from this process: another program connecting
// first is turned away and the database client still gets through.
void TestSshTunnel::onlyThisProcessMayUseTheTunnel()
{
    SshTunnelRequest forward = request(m_ssh.settings(SshAuth::agent));
    forward.targetHost = "127.0.0.1";
    forward.targetPort = m_server.plainPort;
    const SshTunnel tunnel(forward);
    QVERIFY(listening(tunnel.localPort()));

    QProcess stranger;
    stranger.start(QStringLiteral("bash"),
        { QStringLiteral("-c"),
            QStringLiteral("exec 3<>/dev/tcp/127.0.0.1/%1 && head -c 1 <&3 | wc -c").arg(tunnel.localPort()) });
    QVERIFY(stranger.waitForFinished());
    QCOMPARE(stranger.readAllStandardOutput().trimmed(), QByteArray("0")); // closed without a greeting

    ConnectionProfile profile = m_server.profile();
    profile.port = tunnel.localPort();
    MySQLConnection connection(profile);
    connection.connect(m_server.password);
    QCOMPARE(connection.query("SELECT 1").rows, std::vector<Row> { { "1" } });
    QVERIFY(!listening(tunnel.localPort()));
}

void TestSshTunnel::cancelStopsAnOpeningTunnel()
{
    // A port that completes the TCP handshake but never speaks: opening waits for the SSH
    // greeting until its timeout, unless cancelled.
    const SilentPort silent;
    SshTunnelSettings mute = m_ssh.settings(SshAuth::agent);
    mute.port = silent.port();
    SshTunnelRequest opening = request(mute);
    opening.abort = std::make_shared<SshAbort>();
    std::thread canceller([abort = opening.abort] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        abort->abort();
    });
    const auto started = std::chrono::steady_clock::now();
    const QString error = errorFrom([&] { SshTunnel tunnel(opening); });
    canceller.join();
    QCOMPARE(error, QStringLiteral("SSH: cancelled while opening the tunnel to 127.0.0.1."));
    QVERIFY(std::chrono::steady_clock::now() - started < std::chrono::seconds(10)); // not the 20 s timeout
}

QTEST_GUILESS_MAIN(TestSshTunnel)
#include "TestSshTunnel.moc"
