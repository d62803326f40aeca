#include "client/SshTunnel.h"

#include "core/AppError.h"

#include <QDir>
#include <QFileInfo>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <libssh/libssh.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace tallowick
{

namespace
{

constexpr long sshTimeoutSeconds = 20;
constexpr auto reachTimeout = std::chrono::seconds(sshTimeoutSeconds);

void initialiseLibrary()
{
    static const int initialised = ssh_init();
    (void)initialised;
}

void closeIfOpen(int &fd)
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

bool sendAll(int fd, const char *data, std::size_t size)
{
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            if (sent < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

// Whether the TCP connection whose far end is `accepted` was opened by this process: its socket
// (found in the kernel's table by its port) must be one of this process's file descriptors.
// Anyone on the machine can connect to a loopback port; only our own client may use the tunnel.
bool openedByThisProcess(int accepted, int listenPort)
{
    sockaddr_in peer {};
    socklen_t length = sizeof peer;
    if (::getpeername(accepted, reinterpret_cast<sockaddr *>(&peer), &length) != 0 || peer.sin_family != AF_INET) {
        return false;
    }
    char local[32];
    char remote[32];
    std::snprintf(local, sizeof local, "%08X:%04X", peer.sin_addr.s_addr, ntohs(peer.sin_port));
    std::snprintf(remote, sizeof remote, "%08X:%04X", htonl(INADDR_LOOPBACK), static_cast<unsigned>(listenPort));
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::string inode;
    while (inode.empty() && std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, from, to, state, queues, timer, retransmits, uid, timeout, node;
        fields >> slot >> from >> to >> state >> queues >> timer >> retransmits >> uid >> timeout >> node;
        if (from == local && to == remote) {
            inode = node;
        }
    }
    if (inode.empty()) {
        return false;
    }
    const std::string wanted = "socket:[" + inode + "]";
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir("/proc/self/fd"), &::closedir);
    if (!folder) {
        return false;
    }
    while (const dirent *entry = ::readdir(folder.get())) {
        char target[64];
        const std::string path = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t size = ::readlink(path.c_str(), target, sizeof target - 1);
        if (size > 0 && std::string(target, static_cast<std::size_t>(size)) == wanted) {
            return true;
        }
    }
    return false;
}

std::string fingerprintOf(ssh_session session)
{
    ssh_key key = nullptr;
    if (ssh_get_server_publickey(session, &key) != SSH_OK) {
        return "unknown";
    }
    unsigned char *hash = nullptr;
    std::size_t hashLength = 0;
    std::string text = "unknown";
    if (ssh_get_publickey_hash(key, SSH_PUBLICKEY_HASH_SHA256, &hash, &hashLength) == 0) {
        if (char *printable = ssh_get_fingerprint_hash(SSH_PUBLICKEY_HASH_SHA256, hash, hashLength)) {
            text = printable;
            ssh_string_free_char(printable);
        }
        ssh_clean_pubkey_hash(&hash);
    }
    ssh_key_free(key);
    return text;
}

} // namespace

void SshAbort::abort()
{
    const std::lock_guard lock(m_mutex);
    m_aborted = true;
    if (m_socket >= 0) {
        ::shutdown(m_socket, SHUT_RDWR);
    }
}

void SshAbort::attach(int socket)
{
    const std::lock_guard lock(m_mutex);
    // A duplicate of its own: shutting it down stops the socket, and its number cannot be taken
    // by another file while it is held, whoever closes the original.
    closeIfOpen(m_socket);
    m_socket = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (m_aborted && m_socket >= 0) {
        ::shutdown(m_socket, SHUT_RDWR);
    }
}

void SshAbort::detach()
{
    const std::lock_guard lock(m_mutex);
    closeIfOpen(m_socket);
}

struct SshTunnel::Handles {
    ssh_session session = nullptr;
    ssh_channel channel = nullptr;

    ~Handles()
    {
        if (channel) {
            ssh_channel_close(channel);
            ssh_channel_free(channel);
        }
        if (session) {
            ssh_disconnect(session);
            ssh_free(session);
        }
    }
};

SshTunnel::SshTunnel(SshTunnelRequest request)
    : m_request(std::move(request))
    , m_ssh(std::make_unique<Handles>())
{
    initialiseLibrary();
    try {
        connectSocket();
        verifyHostKey();
        logIn();
        openForward();
        listen();
        if (::pipe2(m_wake, O_CLOEXEC) != 0) {
            fail("could not start the tunnel: " + std::string(std::strerror(errno)));
        }
    } catch (...) {
        if (m_request.abort) {
            m_request.abort->detach();
        }
        closeConnection();
        closeIfOpen(m_listener);
        closeIfOpen(m_wake[0]);
        closeIfOpen(m_wake[1]);
        throw;
    }
    if (m_request.abort) {
        m_request.abort->detach();
    }
    m_pump = std::thread([this] { pump(); });
}

SshTunnel::~SshTunnel()
{
    if (m_pump.joinable()) {
        const char stop = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wake[1], &stop, 1);
        m_pump.join();
    }
    closeIfOpen(m_client);
    closeIfOpen(m_listener);
    closeIfOpen(m_wake[0]);
    closeIfOpen(m_wake[1]);
    closeConnection();
}

void SshTunnel::closeConnection()
{
    // libssh closes a socket it was given when the connection fails under it, and leaves it open
    // otherwise; closing a number it already closed could close another file that took it.
    const bool closedByLibssh
        = m_socketHandedOver && m_ssh && m_ssh->session && ssh_get_fd(m_ssh->session) == SSH_INVALID_SOCKET;
    m_ssh.reset();
    if (closedByLibssh) {
        m_socket = -1;
    }
    closeIfOpen(m_socket);
}

void SshTunnel::fail(const std::string &what) const
{
    if (m_request.abort && m_request.abort->aborted()) {
        throw AppError("SSH: cancelled while opening the tunnel to " + m_request.settings.host + ".");
    }
    throw AppError("SSH: " + what);
}

void SshTunnel::connectSocket()
{
    const SshTunnelSettings &ssh = m_request.settings;
    const std::string where = ssh.host + ":" + std::to_string(ssh.port);
    addrinfo hints {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int resolved = ::getaddrinfo(ssh.host.c_str(), std::to_string(ssh.port).c_str(), &hints, &found);
    if (resolved != 0) {
        fail("could not find the SSH host " + ssh.host + " (" + ::gai_strerror(resolved) + ").");
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> addresses(found, &::freeaddrinfo);
    std::string reason = "no address";
    for (const addrinfo *address = found; address; address = address->ai_next) {
        int fd = ::socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd < 0) {
            reason = std::strerror(errno);
            continue;
        }
        if (m_request.abort) {
            m_request.abort->attach(fd);
        }
        // Not blocking, so Cancel is noticed while an unreachable host keeps us waiting.
        int status = ::connect(fd, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
        const auto deadline = std::chrono::steady_clock::now() + reachTimeout;
        while (status == EINPROGRESS) {
            if (m_request.abort && m_request.abort->aborted()) {
                status = ECANCELED;
                break;
            }
            if (std::chrono::steady_clock::now() > deadline) {
                status = ETIMEDOUT;
                break;
            }
            pollfd wait { fd, POLLOUT, 0 };
            if (::poll(&wait, 1, 100) == 1) {
                socklen_t length = sizeof status;
                ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &status, &length);
            }
        }
        if (status == 0) {
            ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
            // The database connection's own keep-alive probes end at the tunnel's local end; an
            // SSH host that has gone away is noticed by probes on this socket.
            const int on = 1;
            const int idleSeconds = 60;
            const int intervalSeconds = 10;
            const int probes = 6;
            ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
            ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idleSeconds, sizeof idleSeconds);
            ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &intervalSeconds, sizeof intervalSeconds);
            ::setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
            m_socket = fd;
            return;
        }
        reason = std::strerror(status);
        if (m_request.abort) {
            m_request.abort->detach();
        }
        closeIfOpen(fd);
    }
    fail("could not reach " + where + " (" + reason + ").");
}

void SshTunnel::verifyHostKey()
{
    const SshTunnelSettings &ssh = m_request.settings;
    ssh_session session = ssh_new();
    if (!session) {
        fail("could not start an SSH session.");
    }
    m_ssh->session = session;
    const int port = static_cast<int>(ssh.port);
    const long timeout = sshTimeoutSeconds;
    const int no = 0;
    ssh_options_set(session, SSH_OPTIONS_FD, &m_socket);
    ssh_options_set(session, SSH_OPTIONS_HOST, ssh.host.c_str());
    ssh_options_set(session, SSH_OPTIONS_PORT, &port);
    ssh_options_set(session, SSH_OPTIONS_USER, ssh.user.c_str());
    ssh_options_set(session, SSH_OPTIONS_TIMEOUT, &timeout);
    // The profile says everything: no ~/.ssh/config host aliases or proxy commands.
    ssh_options_set(session, SSH_OPTIONS_PROCESS_CONFIG, &no);
    ssh_options_set(session, SSH_OPTIONS_KNOWNHOSTS, m_request.knownHostsFile.c_str());
    m_socketHandedOver = true;
    if (ssh_connect(session) != SSH_OK) {
        fail("could not start an SSH session with " + ssh.host + ":" + std::to_string(ssh.port) + " ("
            + ssh_get_error(session) + ").");
    }

    const SshHostKey key { ssh.host, ssh.port, fingerprintOf(session) };
    switch (ssh_session_is_known_server(session)) {
    case SSH_KNOWN_HOSTS_OK:
        return;
    case SSH_KNOWN_HOSTS_CHANGED:
    case SSH_KNOWN_HOSTS_OTHER:
        fail("the host key of " + ssh.host + " has changed (it is now " + key.fingerprint
            + "). Someone may be intercepting the connection, or the host was reinstalled. If you trust the new "
              "key, remove the old one from "
            + m_request.knownHostsFile + ".");
    case SSH_KNOWN_HOSTS_NOT_FOUND:
    case SSH_KNOWN_HOSTS_UNKNOWN:
        break;
    case SSH_KNOWN_HOSTS_ERROR:
        fail("could not read " + m_request.knownHostsFile + " (" + ssh_get_error(session) + ").");
    }
    if (!m_request.acceptNewHostKey) {
        fail(ssh.host + " is not a known host yet (its key is " + key.fingerprint
            + "). Connect to review and trust the key first.");
    }
    if (!m_request.acceptNewHostKey(key)) {
        fail(ssh.host + " is not a known host, and its key " + key.fingerprint + " was not accepted.");
    }
    QDir().mkpath(QFileInfo(QString::fromStdString(m_request.knownHostsFile)).absolutePath());
    if (ssh_session_update_known_hosts(session) != SSH_OK) {
        fail("could not add the host key to " + m_request.knownHostsFile + " (" + ssh_get_error(session) + ").");
    }
}

void SshTunnel::logIn()
{
    const SshTunnelSettings &ssh = m_request.settings;
    ssh_session session = m_ssh->session;
    const char *passphrase = m_request.secret.empty() ? nullptr : m_request.secret.c_str();
    int result = SSH_AUTH_ERROR;
    std::string method;
    switch (ssh.auth) {
    case SshAuth::agent:
        method = "the SSH agent's keys";
        if (!std::getenv("SSH_AUTH_SOCK")) {
            fail("no SSH agent is running (SSH_AUTH_SOCK is not set). Start one, or choose a key file.");
        }
        result = ssh_userauth_agent(session, nullptr);
        break;
    case SshAuth::keyFile: {
        method = "the key " + ssh.keyFile;
        ssh_key key = nullptr;
        if (ssh_pki_import_privkey_file(ssh.keyFile.c_str(), passphrase, nullptr, nullptr, &key) != SSH_OK) {
            fail("could not read the private key " + ssh.keyFile
                + (passphrase ? " (is the passphrase right?)." : " (does it need a passphrase?)."));
        }
        result = ssh_userauth_publickey(session, nullptr, key);
        ssh_key_free(key);
        break;
    }
    case SshAuth::password:
        method = "the password";
        result = ssh_userauth_password(session, nullptr, m_request.secret.c_str());
        break;
    }
    if (result != SSH_AUTH_SUCCESS) {
        fail(ssh.host + " refused the login of " + ssh.user + " with " + method
            + (result == SSH_AUTH_ERROR ? " (" + std::string(ssh_get_error(session)) + ")." : "."));
    }
}

void SshTunnel::openForward()
{
    ssh_channel channel = ssh_channel_new(m_ssh->session);
    if (!channel) {
        fail("could not open a channel (" + std::string(ssh_get_error(m_ssh->session)) + ").");
    }
    m_ssh->channel = channel;
    if (ssh_channel_open_forward(
            channel, m_request.targetHost.c_str(), static_cast<int>(m_request.targetPort), "127.0.0.1", 0)
        != SSH_OK) {
        fail(m_request.settings.host + " refused to forward to " + m_request.targetHost + ":"
            + std::to_string(m_request.targetPort) + " (" + ssh_get_error(m_ssh->session) + ").");
    }
}

void SshTunnel::listen()
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0; // the system picks
    socklen_t length = sizeof address;
    if (m_listener < 0 || ::bind(m_listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
        || ::listen(m_listener, 4) != 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        fail("could not listen on 127.0.0.1 (" + std::string(std::strerror(errno)) + ").");
    }
    m_localPort = ntohs(address.sin_port);
}

bool SshTunnel::acceptOwnConnection()
{
    while (true) {
        pollfd waits[2] = { { m_listener, POLLIN, 0 }, { m_wake[0], POLLIN, 0 } };
        if (::poll(waits, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (waits[1].revents != 0) {
            return false;
        }
        const int accepted = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) {
            continue;
        }
        if (openedByThisProcess(accepted, m_localPort)) {
            m_client = accepted;
            closeIfOpen(m_listener); // one connection only: nothing listens from here on
            return true;
        }
        ::close(accepted);
    }
}

void SshTunnel::pump()
{
    if (!acceptOwnConnection()) {
        return;
    }
    ssh_channel channel = m_ssh->channel;
    std::string buffer(64 * 1024, '\0');
    pollfd waits[3] = { { m_client, POLLIN, 0 }, { ssh_get_fd(m_ssh->session), POLLIN, 0 }, { m_wake[0], POLLIN, 0 } };
    while (true) {
        // What the channel already holds first: libssh may have read it with an earlier packet.
        int got = 0;
        while (
            (got = ssh_channel_read_nonblocking(channel, buffer.data(), static_cast<uint32_t>(buffer.size()), 0)) > 0) {
            if (!sendAll(m_client, buffer.data(), static_cast<std::size_t>(got))) {
                got = SSH_ERROR;
                break;
            }
        }
        if (got == SSH_ERROR || ssh_channel_is_eof(channel) || ssh_channel_is_closed(channel)) {
            break;
        }
        if (::poll(waits, 3, 250) < 0 && errno != EINTR) {
            break;
        }
        if (waits[2].revents != 0) {
            break;
        }
        if (waits[0].revents != 0) {
            const ssize_t read = ::recv(m_client, buffer.data(), buffer.size(), 0);
            if (read <= 0 || ssh_channel_write(channel, buffer.data(), static_cast<uint32_t>(read)) != read) {
                break;
            }
        }
    }
    // The database client sees the end of the tunnel as a lost connection.
    ::shutdown(m_client, SHUT_RDWR);
}

} // namespace tallowick
