#pragma once

#include "core/SshTunnelSettings.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace tallowick
{

// The host key an SSH host presented, for the person to judge.
struct SshHostKey {
    std::string host;
    std::int64_t port;
    std::string fingerprint; // "SHA256:…", as ssh-keygen -l prints it
};

// Lets another thread stop an opening tunnel: the socket is shut down, so a wait on the network
// ends at once with an error.
class SshAbort
{
public:
    void abort();
    bool aborted() const { return m_aborted.load(); }

private:
    friend class SshTunnel;
    void attach(int socket);
    void detach();

    std::mutex m_mutex;
    std::atomic<bool> m_aborted = false;
    int m_socket = -1;
};

struct SshTunnelRequest {
    SshTunnelSettings settings;
    std::string secret; // the key's passphrase or the password; may be empty
    std::string knownHostsFile; // read, and added to when a new key is accepted
    std::string targetHost; // the database server, as the SSH host resolves it
    std::int64_t targetPort = 3306;
    // Asked, on the opening thread, about a host whose key is not known yet; a changed key is
    // refused without asking. Without it, unknown keys are refused.
    std::function<bool(const SshHostKey &)> acceptNewHostKey;
    std::shared_ptr<SshAbort> abort;
};

// An SSH connection that forwards one local TCP connection to the database server. Opening
// connects, verifies the host key against the known-hosts file, logs in and opens the forward
// (so each of those failures is reported before the database is tried), then listens on
// 127.0.0.1 at a port the system picks. It accepts exactly one connection, and only one made by
// this process; then the listener closes. Errors are AppErrors starting with "SSH: ".
// Destroying the tunnel closes the forward and the SSH connection.
class SshTunnel
{
public:
    explicit SshTunnel(SshTunnelRequest request);
    ~SshTunnel();
    SshTunnel(const SshTunnel &) = delete;
    SshTunnel &operator=(const SshTunnel &) = delete;

    int localPort() const { return m_localPort; }

private:
    struct Handles;

    void connectSocket();
    void verifyHostKey();
    void logIn();
    void openForward();
    void listen();
    void pump();
    bool acceptOwnConnection();
    [[noreturn]] void fail(const std::string &what) const;
    void closeConnection();

    const SshTunnelRequest m_request;
    std::unique_ptr<Handles> m_ssh;
    int m_socket = -1; // to the SSH host
    bool m_socketHandedOver = false; // given to libssh, which may close it itself
    int m_listener = -1;
    int m_client = -1; // the accepted local connection
    int m_wake[2] = { -1, -1 }; // written to stop the pump
    int m_localPort = 0;
    std::thread m_pump;
};

} // namespace tallowick
