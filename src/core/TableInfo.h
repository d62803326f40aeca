#pragma once

#include <string>

namespace tallowick
{

// One entry of a database's table list; identified by its name.
struct TableInfo {
    std::string name;
    std::string kind; // the server's table type, e.g. "BASE TABLE" or "VIEW"

    const std::string &id() const { return name; }

    bool operator==(const TableInfo &) const = default;
};

} // namespace tallowick
