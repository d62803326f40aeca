#pragma once

#include "client/SshTunnel.h"
#include "core/SshTunnelSettings.h"

#include <QUuid>
#include <optional>
#include <string>

namespace tallowick
{

class Keychain;

// The user's own known-hosts file, ~/.ssh/known_hosts, which the ssh command reads too.
std::string userKnownHostsFile();

// The request that opens `settings`'s tunnel with the user's known hosts. Unknown host keys are
// refused until the caller sets acceptNewHostKey.
SshTunnelRequest tunnelRequest(const SshTunnelSettings &settings, const std::string &secret);

// The tunnel's passphrase or password from the keyring; nothing for the agent or without a
// tunnel, or for a key file when the keyring cannot be read. May wait for the keyring: never on
// the interface thread.
std::string loadSshSecret(Keychain &keychain, const QUuid &profileID, const std::optional<SshTunnelSettings> &tunnel);

} // namespace tallowick
