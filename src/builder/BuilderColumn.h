#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tallowick
{

// The closed list of aggregates a column may use.
inline constexpr std::array<std::string_view, 5> builderAggregates { "COUNT", "SUM", "AVG", "MIN", "MAX" };

// One selected output column of the query builder.
struct BuilderColumn {
    std::string table;
    std::string name;
    std::string aggregate; // one of builderAggregates, or empty for a plain column

    std::string id() const { return table + "." + name; }

    // `table`.`name`, or aggregate(`table`.`name`). Throws AppError for an aggregate that is not
    // one of builderAggregates, since it goes into the statement as it is.
    std::string expression() const;

    bool operator==(const BuilderColumn &) const = default;
};

} // namespace tallowick
