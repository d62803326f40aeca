#pragma once

#include <string>

namespace tallowick
{

// Metadata of one result column, including where its values came from, which is what makes a
// cell editable.
struct Field {
    std::string name; // the column label as the server reports it
    std::string type; // decimal number of the wire type
    bool primary = false; // part of the source table's primary key
    bool nullable = false;
    bool binary = false; // binary data, shown as hexadecimal
    std::string database; // schema of the source table, empty when none
    std::string table; // source table, empty for computed columns
    std::string originalName; // source column before aliasing, empty for computed columns
    std::string sourceAlias; // the table alias used in the query

    bool editable() const { return !table.empty() && !originalName.empty() && !binary; }

    bool operator==(const Field &) const = default;
};

} // namespace tallowick
