#pragma once

#include "core/QueryResult.h"

#include <QUuid>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tallowick
{

// One SQL editor tab.
struct QueryTab {
    QUuid id = QUuid::createUuid();
    std::string title;
    std::string sql;
    std::optional<QueryResult> result; // the result on display
    std::vector<QueryResult> results; // every result of the last run that produced output
    std::int64_t resultIndex = 0; // index into `results` of the one on display
    bool dirty = false; // edited since it was last saved or run

    bool operator==(const QueryTab &) const = default;
};

} // namespace tallowick
