#include "core/StrictJsonReader.h"

#include "core/AppError.h"
#include "core/UuidText.h"

#include <cmath>

namespace tallowick
{

StrictJsonReader::StrictJsonReader(const QJsonObject &object, std::string entryLabel)
    : m_object(object)
    , m_entryLabel(std::move(entryLabel))
{
}

QJsonValue StrictJsonReader::required(const char *key) const
{
    const QJsonValue value = m_object.value(QLatin1StringView(key));
    if (value.isUndefined()) {
        throw AppError(m_entryLabel + " has no \"" + key + "\" value.");
    }
    return value;
}

void StrictJsonReader::failWrongType(const char *key) const
{
    throw AppError(m_entryLabel + " has a \"" + key + "\" value of the wrong type.");
}

std::string StrictJsonReader::text(const char *key) const
{
    const QJsonValue value = required(key);
    if (!value.isString()) {
        failWrongType(key);
    }
    return value.toString().toStdString();
}

std::optional<std::string> StrictJsonReader::optionalText(const char *key) const
{
    const QJsonValue value = m_object.value(QLatin1StringView(key));
    if (value.isUndefined() || value.isNull()) {
        return std::nullopt;
    }
    if (!value.isString()) {
        failWrongType(key);
    }
    return value.toString().toStdString();
}

double StrictJsonReader::number(const char *key) const
{
    const QJsonValue value = required(key);
    if (!value.isDouble()) {
        failWrongType(key);
    }
    return value.toDouble();
}

std::int64_t StrictJsonReader::integer(const char *key) const
{
    const QJsonValue value = required(key);
    if (!value.isDouble()) {
        failWrongType(key);
    }
    // Qt keeps integers that fit in 64 bits exactly; anything else must at least be a whole,
    // representable number.
    const double asDouble = value.toDouble();
    if (!std::isfinite(asDouble) || std::trunc(asDouble) != asDouble || std::fabs(asDouble) > 9.2e18) {
        failWrongType(key);
    }
    return value.toInteger(static_cast<std::int64_t>(asDouble));
}

bool StrictJsonReader::boolean(const char *key) const
{
    const QJsonValue value = required(key);
    if (!value.isBool()) {
        failWrongType(key);
    }
    return value.toBool();
}

QUuid StrictJsonReader::uuid(const char *key) const
{
    const std::optional<QUuid> id = uuidFromText(text(key));
    if (!id) {
        failWrongType(key);
    }
    return *id;
}

} // namespace tallowick
