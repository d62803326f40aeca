#include "session/TunnelRequest.h"

#include "credentials/Keychain.h"

#include <QDir>

namespace tallowick
{

std::string userKnownHostsFile()
{
    return QDir::home().filePath(QStringLiteral(".ssh/known_hosts")).toStdString();
}

SshTunnelRequest tunnelRequest(const SshTunnelSettings &settings, const std::string &secret)
{
    SshTunnelRequest request;
    request.settings = settings;
    request.secret = secret;
    request.knownHostsFile = userKnownHostsFile();
    return request;
}

std::string loadSshSecret(Keychain &keychain, const QUuid &profileID, const std::optional<SshTunnelSettings> &tunnel)
{
    if (!tunnel || tunnel->auth == SshAuth::agent) {
        return {};
    }
    if (tunnel->auth == SshAuth::password) {
        return keychain.load(sshSecretID(profileID));
    }
    // Most keys have no passphrase: without a keyring the key is still tried, and libssh says
    // when it needs one.
    try {
        return keychain.load(sshSecretID(profileID));
    } catch (const std::exception &) {
        return {};
    }
}

} // namespace tallowick
