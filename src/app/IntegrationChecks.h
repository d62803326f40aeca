#pragma once

#include "app/EntryMode.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace tallowick
{

// Proves the client against a real, disposable MySQL or MariaDB server on 127.0.0.1:`port`:
// a fixed sequence of named checks in a scratch database that is dropped whether they pass or
// fail. With a CA path, two TLS checks follow. With a tunnel, every connection goes through that
// SSH host (127.0.0.1 is then the server as the SSH host reaches it), and the TLS checks are
// those that hold through a tunnel. The account is TALLOWICK_TEST_USER (default
// "root") with TALLOWICK_TEST_PASSWORD (default empty). Prints "PASS: " + name per check and,
// when all pass, "real MySQL integration checks passed."; throws AppError("FAIL: " + name) at
// the first failure. Call on a thread where the client library may be used.
void runIntegrationChecks(std::int64_t port,
    const std::optional<std::string> &ca,
    const std::optional<IntegrationTunnel> &tunnel,
    std::ostream &out);

} // namespace tallowick
