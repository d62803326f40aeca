#include "core/QueryLogJson.h"

#include "core/JsonList.h"
#include "core/OrderedJsonObject.h"
#include "core/StrictJsonReader.h"
#include "core/UuidText.h"

#include <cmath>

namespace tallowick
{

namespace
{

// 2001-01-01T00:00:00Z in seconds since the Unix epoch.
constexpr double referenceDateUnixSeconds = 978307200.0;

} // namespace

double secondsSinceReferenceDate(const QDateTime &date)
{
    return static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0 - referenceDateUnixSeconds;
}

QDateTime dateFromReferenceSeconds(double seconds)
{
    const auto msecs = std::llround((seconds + referenceDateUnixSeconds) * 1000.0);
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
}

QByteArray encodeQueryLog(const QueryLog &entry)
{
    OrderedJsonObject object;
    object.add("id", jsonText(uuidText(entry.id)));
    object.add("date", secondsSinceReferenceDate(entry.date));
    object.add("connection", jsonText(entry.connection));
    object.add("database", jsonText(entry.database));
    object.add("sql", jsonText(entry.sql));
    object.add("elapsed", entry.elapsed);
    object.add("rows", QJsonValue(static_cast<qint64>(entry.rows)));
    if (entry.error) {
        object.add("error", jsonText(*entry.error));
    }
    return object.toJson();
}

QueryLog decodeQueryLog(const QJsonObject &object, const std::string &label)
{
    const StrictJsonReader reader(object, label);
    QueryLog entry;
    entry.id = reader.uuid("id");
    const double date = reader.number("date");
    if (!std::isfinite(date)) {
        reader.failWrongType("date");
    }
    entry.date = dateFromReferenceSeconds(date);
    entry.connection = reader.text("connection");
    entry.database = reader.text("database");
    entry.sql = reader.text("sql");
    entry.elapsed = reader.number("elapsed");
    entry.rows = reader.integer("rows");
    entry.error = reader.optionalText("error");
    return entry;
}

QByteArray encodeQueryLogs(const std::vector<QueryLog> &entries)
{
    return encodeJsonList(entries, encodeQueryLog);
}

std::vector<QueryLog> decodeQueryLogs(const QByteArray &json)
{
    return decodeJsonList<QueryLog>(json, "history entry", decodeQueryLog);
}

} // namespace tallowick
