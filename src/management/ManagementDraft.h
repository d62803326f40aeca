#pragma once

#include "core/ColumnInfo.h"
#include "core/ManagementSheet.h"

#include <QUuid>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tallowick
{

// One column row of a management form.
struct ColumnDraft {
    QUuid id = QUuid::createUuid();
    std::string name;
    std::string type;
    bool nullable = true;
    bool primary = false;
    bool autoIncrement = false; // AUTO_INCREMENT; `auto` is taken by the language
    std::string defaultValue; // empty: no default

    bool operator==(const ColumnDraft &) const = default;
};

// What a management form has typed so far. Which fields matter depends on `kind`.
struct ManagementDraft {
    ManagementSheet kind = ManagementSheet::createDatabase;
    std::optional<ColumnInfo> column; // the column being modified (modifyColumn only)
    std::string name; // database, table, index or user name
    std::string charset = "utf8mb4";
    bool unique = false;
    std::vector<ColumnDraft> columns; // the rows of createTable, or the one row of addColumn/modifyColumn
    std::set<std::string> selected; // the columns of a new index
    std::map<std::string, std::string> values; // insertRow: typed text per column
    std::map<std::string, std::string> valueModes; // insertRow: "Default", "NULL" or "Value" per column
    std::string password;
    std::string host = "%";

    bool operator==(const ManagementDraft &) const = default;
};

// Where the change applies: the session's current database, selected table and its columns.
struct ManagementContext {
    std::string database;
    std::string table;
    std::vector<ColumnInfo> columns; // in table order

    bool operator==(const ManagementContext &) const = default;
};

} // namespace tallowick
