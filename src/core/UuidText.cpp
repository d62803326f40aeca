#include "core/UuidText.h"

#include <QByteArray>

namespace tallowick
{

std::string uuidText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper().toStdString();
}

std::optional<QUuid> uuidFromText(std::string_view text)
{
    if (text.size() != 36) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool hyphenPosition = i == 8 || i == 13 || i == 18 || i == 23;
        const bool hexDigit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (hyphenPosition ? c != '-' : !hexDigit) {
            return std::nullopt;
        }
    }
    return QUuid::fromString(QByteArrayView(text.data(), static_cast<qsizetype>(text.size())));
}

} // namespace tallowick
