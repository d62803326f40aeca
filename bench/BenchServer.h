#pragma once

#include "client/MySQLConnection.h"
#include "core/ConnectionProfile.h"

#include <memory>
#include <string>

namespace tallowick::bench
{

// The disposable server the benchmarks run against, from the TALLOWICK_TEST_* variables that
// `scripts/test-server env` prints (scripts/bench sets them).
std::string testServerPassword();
ConnectionProfile testServerProfile();
std::unique_ptr<MySQLConnection> connectToTestServer();

} // namespace tallowick::bench
