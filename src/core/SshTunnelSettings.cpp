#include "core/SshTunnelSettings.h"

#include "core/AppError.h"
#include "core/JsonList.h"
#include "core/OrderedJsonObject.h"
#include "core/StrictJsonReader.h"
#include "core/Utf8Text.h"
#include "core/UuidText.h"

#include <utility>
#include <vector>

namespace tallowick
{

std::string_view rawValue(SshAuth auth)
{
    switch (auth) {
    case SshAuth::agent:
        return "agent";
    case SshAuth::keyFile:
        return "keyFile";
    case SshAuth::password:
        return "password";
    }
    return {};
}

std::optional<SshAuth> sshAuthFromRawValue(std::string_view raw)
{
    for (const SshAuth auth : { SshAuth::agent, SshAuth::keyFile, SshAuth::password }) {
        if (rawValue(auth) == raw) {
            return auth;
        }
    }
    return std::nullopt;
}

void SshTunnelSettings::validate() const
{
    if (trimSpacesAndTabs(host).empty()) {
        throw AppError("Enter the SSH host.");
    }
    if (port < 1 || port > 65535) {
        throw AppError("The SSH port must be between 1 and 65535.");
    }
    if (user.empty()) {
        throw AppError("Enter the SSH username.");
    }
    if (auth == SshAuth::keyFile && keyFile.empty()) {
        throw AppError("Choose the private key file for SSH.");
    }
}

QUuid sshSecretID(const QUuid &profileID)
{
    return QUuid::createUuidV5(profileID, QStringLiteral("ssh"));
}

QByteArray encodeSshTunnels(const SshTunnels &tunnels)
{
    std::vector<std::pair<QUuid, SshTunnelSettings>> entries(tunnels.begin(), tunnels.end());
    return encodeJsonList(entries, [](const std::pair<QUuid, SshTunnelSettings> &entry) {
        const SshTunnelSettings &tunnel = entry.second;
        OrderedJsonObject object;
        object.add("profile", jsonText(uuidText(entry.first)));
        object.add("host", jsonText(tunnel.host));
        object.add("port", QJsonValue(static_cast<qint64>(tunnel.port)));
        object.add("user", jsonText(tunnel.user));
        object.add("auth", jsonText(std::string(rawValue(tunnel.auth))));
        object.add("keyFile", jsonText(tunnel.keyFile));
        return object.toJson();
    });
}

SshTunnels decodeSshTunnels(const QByteArray &json)
{
    using Entry = std::pair<QUuid, SshTunnelSettings>;
    const std::vector<Entry> entries
        = decodeJsonList<Entry>(json, "SSH tunnel", [](const QJsonObject &object, const std::string &label) {
              const StrictJsonReader reader(object, label);
              SshTunnelSettings tunnel;
              tunnel.host = reader.text("host");
              tunnel.port = reader.integer("port");
              tunnel.user = reader.text("user");
              const std::optional<SshAuth> auth = sshAuthFromRawValue(reader.text("auth"));
              if (!auth) {
                  reader.failWrongType("auth");
              }
              tunnel.auth = *auth;
              tunnel.keyFile = reader.text("keyFile");
              return Entry { reader.uuid("profile"), tunnel };
          });
    return SshTunnels(entries.begin(), entries.end());
}

} // namespace tallowick
