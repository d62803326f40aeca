#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <string>
#include <string_view>
#include <vector>

namespace tallowick
{

// Writes a compact JSON object whose keys keep the order they were added in. QJsonObject sorts
// its keys, but our files list them in the records' declaration order.
class OrderedJsonObject
{
public:
    void add(std::string_view key, const QJsonValue &value);
    QByteArray toJson() const;

private:
    std::vector<QByteArray> m_members;
};

// A JSON string value from UTF-8 text.
QJsonValue jsonText(const std::string &text);

// Compact JSON text of a single value.
QByteArray compactJson(const QJsonValue &value);

} // namespace tallowick
