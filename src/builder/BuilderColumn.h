#pragma once

#include <string>

namespace tallowick
{

// One selected output column of the query builder.
struct BuilderColumn {
    std::string table;
    std::string name;
    std::string aggregate; // e.g. "SUM"; empty for a plain column. Only fixed names are offered.

    std::string id() const { return table + "." + name; }

    // `table`.`name`, or aggregate(`table`.`name`).
    std::string expression() const;

    bool operator==(const BuilderColumn &) const = default;
};

} // namespace tallowick
