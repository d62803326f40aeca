#pragma once

#include <QUuid>
#include <array>
#include <string>
#include <string_view>

namespace tallowick
{

inline constexpr std::array<std::string_view, 3> builderJoinKinds { "LEFT JOIN", "INNER JOIN", "RIGHT JOIN" };

// One join of the query builder, to a table of the base table's database.
struct BuilderJoin {
    QUuid id = QUuid::createUuid();
    std::string kind = "LEFT JOIN";
    std::string table;
    std::string left; // table.column on the left of the ON equation
    std::string right; // table.column on the right

    bool operator==(const BuilderJoin &) const = default;
};

} // namespace tallowick
