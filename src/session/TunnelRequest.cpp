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
    return tunnel && tunnel->auth != SshAuth::agent ? keychain.load(sshSecretID(profileID)) : std::string();
}

} // namespace tallowick
