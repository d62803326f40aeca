#include "core/OrderedJsonObject.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace tallowick
{

QJsonValue jsonText(const std::string &text)
{
    return QString::fromStdString(text);
}

QByteArray compactJson(const QJsonValue &value)
{
    // QJsonDocument only serialises arrays and objects: wrap the value and drop the brackets.
    const QByteArray wrapped = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}

void OrderedJsonObject::add(std::string_view key, const QJsonValue &value)
{
    const QString keyText = QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
    m_members.push_back(compactJson(keyText) + ':' + compactJson(value));
}

QByteArray OrderedJsonObject::toJson() const
{
    QByteArray text = "{";
    for (std::size_t i = 0; i < m_members.size(); ++i) {
        if (i > 0) {
            text += ',';
        }
        text += m_members[i];
    }
    text += '}';
    return text;
}

} // namespace tallowick
