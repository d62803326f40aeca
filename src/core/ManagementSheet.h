#pragma once

#include <array>
#include <string_view>

namespace tallowick
{

// The server management forms a session can open.
enum class ManagementSheet {
    createDatabase,
    createTable,
    addColumn,
    modifyColumn,
    addIndex,
    insertRow,
    createUser,
    importCSV
};

inline constexpr std::array<ManagementSheet, 8> allManagementSheets {
    ManagementSheet::createDatabase,
    ManagementSheet::createTable,
    ManagementSheet::addColumn,
    ManagementSheet::modifyColumn,
    ManagementSheet::addIndex,
    ManagementSheet::insertRow,
    ManagementSheet::createUser,
    ManagementSheet::importCSV,
};

// The raw value (and identity): the case name, e.g. "createDatabase".
std::string_view rawValue(ManagementSheet sheet);

} // namespace tallowick
