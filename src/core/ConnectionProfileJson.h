#pragma once

#include "core/ConnectionProfile.h"

#include <QByteArray>
#include <QJsonObject>
#include <string>
#include <vector>

namespace tallowick
{

// The entry format of the connections file: exactly ten keys, the id in canonical upper-case
// text, `tls` as the mode's raw value. There is no password key, and none is ever read.
QByteArray encodeProfile(const ConnectionProfile &profile);
ConnectionProfile decodeProfile(const QJsonObject &object, const std::string &label = "The connection");

QByteArray encodeProfiles(const std::vector<ConnectionProfile> &profiles);
std::vector<ConnectionProfile> decodeProfiles(const QByteArray &json);

} // namespace tallowick
