#pragma once

#include <QUuid>
#include <array>
#include <string>
#include <string_view>

namespace tallowick
{

// The closed list of operators a filter may use.
inline constexpr std::array<std::string_view, 10> builderFilterOperators {
    "=",
    "!=",
    ">",
    ">=",
    "<",
    "<=",
    "LIKE",
    "NOT LIKE",
    "IS NULL",
    "IS NOT NULL",
};

// One WHERE condition of the query builder.
struct BuilderFilter {
    QUuid id = QUuid::createUuid();
    std::string column; // table.column
    std::string operation = "=";
    std::string value; // as typed
    bool numeric = false; // compare as a number: the value must be a finite number

    bool operator==(const BuilderFilter &) const = default;
};

} // namespace tallowick
