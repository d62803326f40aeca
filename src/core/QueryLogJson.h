#pragma once

#include "core/QueryLog.h"

#include <QByteArray>
#include <QJsonObject>
#include <string>
#include <vector>

namespace tallowick
{

// The entry format of the history file. Keys in the order id, date, connection, database, sql,
// elapsed, rows, error; `error` is left out on success. Dates are seconds since
// 2001-01-01T00:00:00Z as a JSON number.
QByteArray encodeQueryLog(const QueryLog &entry);
QueryLog decodeQueryLog(const QJsonObject &object, const std::string &label = "The history entry");

QByteArray encodeQueryLogs(const std::vector<QueryLog> &entries);
std::vector<QueryLog> decodeQueryLogs(const QByteArray &json);

double secondsSinceReferenceDate(const QDateTime &date);
QDateTime dateFromReferenceSeconds(double seconds);

} // namespace tallowick
