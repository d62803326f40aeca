#pragma once

#include <QDateTime>
#include <QUuid>
#include <cstdint>
#include <optional>
#include <string>

namespace tallowick
{

// One entry of the query history.
struct QueryLog {
    QUuid id = QUuid::createUuid();
    QDateTime date;
    std::string connection; // the profile name
    std::string database; // the database selected at the time
    std::string sql;
    double elapsed = 0; // seconds
    std::int64_t rows = 0;
    std::optional<std::string> error; // the failure message; no value on success

    bool operator==(const QueryLog &) const = default;
};

} // namespace tallowick
