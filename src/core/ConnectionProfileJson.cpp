#include "core/ConnectionProfileJson.h"

#include "core/JsonList.h"
#include "core/OrderedJsonObject.h"
#include "core/StrictJsonReader.h"
#include "core/UuidText.h"

namespace tallowick
{

QByteArray encodeProfile(const ConnectionProfile &profile)
{
    OrderedJsonObject object;
    object.add("id", jsonText(uuidText(profile.id)));
    object.add("name", jsonText(profile.name));
    object.add("host", jsonText(profile.host));
    object.add("port", QJsonValue(static_cast<qint64>(profile.port)));
    object.add("user", jsonText(profile.user));
    object.add("database", jsonText(profile.database));
    object.add("tls", jsonText(std::string(rawValue(profile.tls))));
    object.add("caPath", jsonText(profile.caPath));
    object.add("color", jsonText(profile.color));
    object.add("readOnly", profile.readOnly);
    return object.toJson();
}

ConnectionProfile decodeProfile(const QJsonObject &object, const std::string &label)
{
    const StrictJsonReader reader(object, label);
    ConnectionProfile profile;
    profile.id = reader.uuid("id");
    profile.name = reader.text("name");
    profile.host = reader.text("host");
    profile.port = reader.integer("port");
    profile.user = reader.text("user");
    profile.database = reader.text("database");
    const std::optional<TLSMode> tls = tlsModeFromRawValue(reader.text("tls"));
    if (!tls) {
        reader.failWrongType("tls");
    }
    profile.tls = *tls;
    profile.caPath = reader.text("caPath");
    profile.color = reader.text("color");
    profile.readOnly = reader.boolean("readOnly");
    return profile;
}

QByteArray encodeProfiles(const std::vector<ConnectionProfile> &profiles)
{
    return encodeJsonList(profiles, encodeProfile);
}

std::vector<ConnectionProfile> decodeProfiles(const QByteArray &json)
{
    return decodeJsonList<ConnectionProfile>(json, "connection", decodeProfile);
}

} // namespace tallowick
