#include "support/TestServer.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "core/UuidText.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tallowick::test
{

namespace
{

// The account scripts/test-server creates on every instance.
constexpr const char *serverUser = "tallowick";
constexpr const char *serverPassword = "tallowick-test-pw";

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

// A value exported by scripts/test, or else read from the state folder of servers CTest started.
std::string serverValue(const char *name, const std::string &instanceFile)
{
    if (std::string value = environment(name); !value.empty()) {
        return value;
    }
    const std::string folder = environment("TALLOWICK_TEST_SERVER_DIR");
    std::string value;
    if (!folder.empty()) {
        std::ifstream(folder + "/" + instanceFile) >> value;
    }
    if (value.empty()) {
        throw AppError(std::string("The test server is not set up: ") + name
            + " is missing. Run the tests with ctest or scripts/test, or eval \"$(scripts/test-server env)\".");
    }
    return value;
}

} // namespace

TestServer TestServer::fromEnvironment()
{
    TestServer server;
    const bool exported = !environment("TALLOWICK_TEST_PORT").empty();
    server.user = exported ? environment("TALLOWICK_TEST_USER") : serverUser;
    server.password = exported ? environment("TALLOWICK_TEST_PASSWORD") : serverPassword;
    server.port = std::stoll(serverValue("TALLOWICK_TEST_PORT", "tls/port"));
    server.plainPort = std::stoll(serverValue("TALLOWICK_TEST_PLAIN_PORT", "plain/port"));
    server.strictPort = std::stoll(serverValue("TALLOWICK_TEST_STRICT_PORT", "strict/port"));
    server.caPath
        = exported ? environment("TALLOWICK_TEST_CA") : environment("TALLOWICK_TEST_SERVER_DIR") + "/tls/ca.pem";
    return server;
}

TestSshServer TestSshServer::fromEnvironment()
{
    const std::string folder = environment("TALLOWICK_TEST_SERVER_DIR") + "/ssh/";
    const auto value = [&folder](const char *name, const std::string &fallback) {
        const std::string exported = environment(name);
        return exported.empty() ? folder + fallback : exported;
    };
    TestSshServer ssh;
    ssh.port = std::stoll(serverValue("TALLOWICK_TEST_SSH_PORT", "ssh/port"));
    ssh.user = environment("TALLOWICK_TEST_SSH_USER");
    if (ssh.user.empty()) {
        ssh.user = environment("USER").empty() ? "root" : environment("USER");
    }
    ssh.key = value("TALLOWICK_TEST_SSH_KEY", "client");
    ssh.passphraseKey = value("TALLOWICK_TEST_SSH_PASSPHRASE_KEY", "passphrase");
    ssh.passphrase = environment("TALLOWICK_TEST_SSH_PASSPHRASE");
    if (ssh.passphrase.empty()) {
        ssh.passphrase = "tallowick-ssh-pass";
    }
    ssh.restrictedKey = value("TALLOWICK_TEST_SSH_RESTRICTED_KEY", "restricted");
    ssh.knownHosts = value("TALLOWICK_TEST_SSH_KNOWN_HOSTS", "known_hosts");
    ssh.agentSocket = value("TALLOWICK_TEST_SSH_AGENT", "agent.sock");
    ssh.otherHostKey = value("TALLOWICK_TEST_SSH_OTHER_HOST_KEY", "other-host-key.pub");
    return ssh;
}

SshTunnelSettings TestSshServer::settings(SshAuth auth, const std::string &keyFile) const
{
    SshTunnelSettings settings;
    settings.host = "127.0.0.1";
    settings.port = port;
    settings.user = user;
    settings.auth = auth;
    settings.keyFile = auth == SshAuth::keyFile ? (keyFile.empty() ? key : keyFile) : std::string();
    return settings;
}

SilentPort::SilentPort()
    : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_socket < 0 || bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
        || listen(m_socket, 4) != 0 || getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        throw AppError("Could not listen on 127.0.0.1 for a silent port.");
    }
    m_port = ntohs(address.sin_port);
}

SilentPort::~SilentPort()
{
    if (m_socket >= 0) {
        close(m_socket);
    }
}

ConnectionProfile TestServer::profile() const
{
    ConnectionProfile profile;
    profile.name = "Test server";
    profile.host = "127.0.0.1";
    profile.port = port;
    profile.user = user;
    profile.tls = TLSMode::disabled;
    return profile;
}

TestServer TestServer::strict() const
{
    TestServer other = *this;
    other.port = strictPort;
    return other;
}

std::unique_ptr<MySQLConnection> TestServer::connect(const ConnectionProfile &profile) const
{
    auto connection = std::make_unique<MySQLConnection>(profile);
    connection->connect(password);
    return connection;
}

ScratchDatabase::ScratchDatabase(const TestServer &server)
    : m_server(server)
    , m_name("tallowick_test_" + uuidText(QUuid::createUuid()))
    , m_connection(server.connect())
{
    m_connection->query("CREATE DATABASE " + SQL::identifier(m_name) + " CHARACTER SET utf8mb4");
    m_connection->use(m_name);
}

ScratchDatabase::~ScratchDatabase()
{
    try {
        if (!m_connection->isConnected()) {
            m_connection->connect(m_server.password);
        }
        m_connection->query("DROP DATABASE IF EXISTS " + SQL::identifier(m_name));
    } catch (const AppError &) {
        // A test that killed its own server connection must not also fail here.
    }
}

} // namespace tallowick::test
