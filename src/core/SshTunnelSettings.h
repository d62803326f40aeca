#pragma once

#include <QByteArray>
#include <QUuid>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tallowick
{

// How the SSH host is told who we are. A key's passphrase or the password lives in the keyring,
// under sshSecretID(profile id), never in a file.
enum class SshAuth { agent, keyFile, password };

// The raw value is what the tunnels file stores.
std::string_view rawValue(SshAuth auth);
std::optional<SshAuth> sshAuthFromRawValue(std::string_view raw);

// An SSH host that a connection reaches its database server through. The database host and port
// of the profile are then as the SSH host resolves them.
struct SshTunnelSettings {
    std::string host;
    std::int64_t port = 22;
    std::string user;
    SshAuth auth = SshAuth::agent;
    std::string keyFile; // for SshAuth::keyFile

    // Throws AppError with the first problem found, in the order host, port, user, key file.
    void validate() const;

    bool operator==(const SshTunnelSettings &) const = default;
};

// The keyring item of a profile's SSH passphrase or password: derived from the profile's id, so
// it follows the profile without a key in any file.
QUuid sshSecretID(const QUuid &profileID);

// The tunnels file: a list of {"profile", "host", "port", "user", "auth", "keyFile"} entries,
// one per profile that has a tunnel. An unreadable entry fails the whole file.
using SshTunnels = std::map<QUuid, SshTunnelSettings>;
QByteArray encodeSshTunnels(const SshTunnels &tunnels);
SshTunnels decodeSshTunnels(const QByteArray &json);

} // namespace tallowick
