#include "support/TestServer.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "core/UuidText.h"

#include <cstdlib>

namespace tallowick::test
{

namespace
{

std::string required(const char *name)
{
    const char *value = std::getenv(name);
    if (!value || !*value) {
        throw AppError(std::string("The test server is not set up: ") + name
            + " is missing. Run the tests through scripts/test, or eval \"$(scripts/test-server env)\".");
    }
    return value;
}

} // namespace

TestServer TestServer::fromEnvironment()
{
    TestServer server;
    server.user = required("TALLOWICK_TEST_USER");
    const char *password = std::getenv("TALLOWICK_TEST_PASSWORD");
    server.password = password ? password : "";
    server.port = std::stoll(required("TALLOWICK_TEST_PORT"));
    server.plainPort = std::stoll(required("TALLOWICK_TEST_PLAIN_PORT"));
    server.strictPort = std::stoll(required("TALLOWICK_TEST_STRICT_PORT"));
    server.caPath = required("TALLOWICK_TEST_CA");
    return server;
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
