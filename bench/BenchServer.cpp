#include "bench/BenchServer.h"

#include "core/AppError.h"

#include <cstdlib>

namespace tallowick::bench
{

namespace
{

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

} // namespace

std::string testServerPassword()
{
    return environment("TALLOWICK_TEST_PASSWORD");
}

ConnectionProfile testServerProfile()
{
    const std::string port = environment("TALLOWICK_TEST_PORT");
    if (port.empty()) {
        throw AppError("TALLOWICK_TEST_PORT is not set; run through scripts/bench.");
    }
    ConnectionProfile profile;
    profile.name = "Benchmark";
    profile.host = "127.0.0.1";
    profile.port = std::stoll(port);
    profile.user = environment("TALLOWICK_TEST_USER");
    return profile;
}

std::unique_ptr<MySQLConnection> connectToTestServer()
{
    auto connection = std::make_unique<MySQLConnection>(testServerProfile());
    connection->connect(testServerPassword());
    return connection;
}

} // namespace tallowick::bench
