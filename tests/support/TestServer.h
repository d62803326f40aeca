#pragma once

#include "client/MySQLConnection.h"
#include "core/ConnectionProfile.h"
#include "core/SshTunnelSettings.h"

#include <memory>
#include <string>

namespace tallowick::test
{

// The disposable MariaDB that scripts/test starts (scripts/test-server), described by the
// TALLOWICK_TEST_* variables that `scripts/test-server env` prints. Tests that need it fail,
// never skip, when it is missing, so a broken set-up cannot pass silently.
struct TestServer {
    std::string user;
    std::string password;
    std::int64_t port = 0; // the TLS-capable instance
    std::int64_t plainPort = 0; // the instance without TLS
    // The instance set up like many production servers: ANSI_QUOTES, NO_BACKSLASH_ESCAPES and
    // STRICT_ALL_TABLES, latin1, and a time zone with daylight saving.
    std::int64_t strictPort = 0;
    std::string caPath;

    // Throws AppError naming the missing variable.
    static TestServer fromEnvironment();

    // A profile for 127.0.0.1 with TLS disabled.
    ConnectionProfile profile() const;

    // The same account on the strict instance: its `port` is the strict one.
    TestServer strict() const;

    // A connected connection (the caller brackets its thread with ClientThreadScope).
    std::unique_ptr<MySQLConnection> connect(const ConnectionProfile &profile) const;
    std::unique_ptr<MySQLConnection> connect() const { return connect(profile()); }
};

// The private sshd that scripts/test-server starts beside the database servers, with its keys,
// its own agent and a known-hosts file that lists it (TALLOWICK_TEST_SSH_*).
struct TestSshServer {
    std::int64_t port = 0;
    std::string user;
    std::string key; // authorized, no passphrase; also loaded into the agent
    std::string passphraseKey; // authorized, protected by `passphrase`
    std::string passphrase;
    std::string restrictedKey; // authorized, but may forward only to 127.0.0.1:1
    std::string knownHosts;
    std::string agentSocket;
    std::string otherHostKey; // a public key file the server never uses

    static TestSshServer fromEnvironment();

    // Settings for 127.0.0.1 with `auth`; a key file defaults to `key`.
    SshTunnelSettings settings(SshAuth auth, const std::string &keyFile = {}) const;
};

// A port on 127.0.0.1 that completes TCP connections and never says a word: an SSH host that
// hangs before its greeting.
class SilentPort
{
public:
    SilentPort();
    ~SilentPort();
    SilentPort(const SilentPort &) = delete;
    SilentPort &operator=(const SilentPort &) = delete;

    int port() const { return m_port; }

private:
    int m_socket = -1;
    int m_port = 0;
};

// A scratch database "tallowick_test_<uuid>" created on construction and dropped on
// destruction, with a connection that has it selected.
class ScratchDatabase
{
public:
    explicit ScratchDatabase(const TestServer &server);
    ~ScratchDatabase();

    ScratchDatabase(const ScratchDatabase &) = delete;
    ScratchDatabase &operator=(const ScratchDatabase &) = delete;

    const std::string &name() const { return m_name; }
    MySQLConnection &connection() { return *m_connection; }
    QueryResult run(const std::string &sql) { return m_connection->query(sql); }

private:
    const TestServer m_server;
    std::string m_name;
    std::unique_ptr<MySQLConnection> m_connection;
};

} // namespace tallowick::test
