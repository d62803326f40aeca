#pragma once

#include <QJsonObject>
#include <QUuid>
#include <cstdint>
#include <optional>
#include <string>

namespace tallowick
{

// Reads required members of one JSON object, throwing AppError for a missing key or a value of
// the wrong type. No fallback values are ever applied: a damaged entry fails as a whole.
class StrictJsonReader
{
public:
    StrictJsonReader(const QJsonObject &object, std::string entryLabel);

    std::string text(const char *key) const;
    std::optional<std::string> optionalText(const char *key) const;
    double number(const char *key) const;
    std::int64_t integer(const char *key) const;
    bool boolean(const char *key) const;
    QUuid uuid(const char *key) const;

    [[noreturn]] void failWrongType(const char *key) const;

private:
    QJsonValue required(const char *key) const;

    QJsonObject m_object;
    std::string m_entryLabel;
};

} // namespace tallowick
