#pragma once

#include "builder/BuilderColumn.h"
#include "builder/BuilderFilter.h"
#include "builder/BuilderJoin.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tallowick
{

// The whole state of the visual query builder: one SELECT over a base table with joins,
// filters, grouping, sorting and a row limit.
struct BuilderSpec {
    std::string database;
    std::string table; // the base table
    std::vector<BuilderColumn> columns; // empty: every column of the base table
    std::vector<BuilderFilter> filters;
    std::vector<BuilderJoin> joins;
    std::vector<std::string> groupBy; // table.column references
    std::string orderBy; // table.column; empty: no ORDER BY
    bool descending = false;
    bool distinct = false;
    std::int64_t limit = 500; // 1...100000
    bool matchAll = true; // AND between filters; OR when clear

    // A table.column reference back-quoted piece by piece. Split at the first "." only; empty
    // pieces are dropped.
    static std::string column(std::string_view reference);

    // The SELECT statement, laid out on several lines and always ending in "LIMIT n;". Every
    // name is back-quoted and every typed value is either quoted or checked to be a number.
    // Throws AppError with the first problem found; no partial SQL is returned.
    std::string build() const;

    bool operator==(const BuilderSpec &) const = default;
};

// True when the whole text is a finite decimal or hexadecimal floating-point number: no
// surrounding blanks, no NaN or infinity in any spelling.
bool isFiniteNumberText(std::string_view text);

} // namespace tallowick
