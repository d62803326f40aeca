#pragma once

#include <optional>
#include <string>

namespace tallowick
{

// One column of a table definition; identified by its name.
struct ColumnInfo {
    std::string name;
    std::string type; // full column type, e.g. "varchar(100)"
    bool nullable = false;
    bool primary = false;
    std::optional<std::string> defaultValue; // no value: the column has no default
    std::string extra;
    std::optional<std::string> collation;
    std::string comment;

    const std::string &id() const { return name; }

    // True for virtual or stored generated columns. An expression default (the server marks it
    // DEFAULT_GENERATED) leaves the column an ordinary, editable data column.
    bool generated() const;

    bool operator==(const ColumnInfo &) const = default;
};

} // namespace tallowick
