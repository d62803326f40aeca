#pragma once

#include "core/ColumnInfo.h"
#include "core/ConnectionProfile.h"
#include "core/ManagementSheet.h"
#include "management/ManagementDraft.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The SQL the management forms generate, and the texts around applying it. Pure functions: the
// forms call them on every edit to show the statement or the refusal inline, and nothing here
// touches a server. Names and values enter the SQL only through core/SqlQuoting.h.
namespace tallowick
{

// Per-column modes of the insertRow form.
inline constexpr std::string_view insertModeDefault = "Default";
inline constexpr std::string_view insertModeNull = "NULL";
inline constexpr std::string_view insertModeValue = "Value";
inline constexpr std::string_view insertDefaultHelp
    = "Default omits a column from the INSERT, allowing its server default or auto-increment value.";

inline constexpr std::string_view applyingChangeStatus = "Applying change…";
inline constexpr std::string_view createUserConfirmTitle = "Create MySQL user?";

// One column definition, e.g. "`id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT". `existing` is the
// column being modified, if any: its collation, ON UPDATE attribute and comment are carried over,
// since the form does not show them. Throws AppError with the form's message.
std::string columnDefinition(const ColumnDraft &draft, const std::optional<ColumnInfo> &existing = std::nullopt);

// The one statement a form stands for, or an AppError with the message the form shows inline.
// importCSV has no single statement (see management/CsvImport.h) and is refused here.
std::string generatedSQL(const ManagementDraft &draft, const ManagementContext &context);

// A column row filled from an existing column, for the modifyColumn form.
ColumnDraft draftFromColumn(const ColumnInfo &column);

// "Create database", "Create table", ... "Import CSV".
std::string formTitle(ManagementSheet kind);

// The type suggestions of a column row. Every one passes the simple-type check.
const std::vector<std::string> &typeSuggestions();

// Character sets offered for a new database, the recommended one ("utf8mb4") first.
const std::vector<std::string> &characterSets();

// Review of a schema change: "Apply " + the form's title, and a detail naming the target.
std::string reviewTitle(ManagementSheet kind);

// "Target: <profile> (<host>), database <database>, table <table>. Schema changes can commit
// immediately." Empty parts are left out.
std::string reviewDetail(
    const std::string &profileName, const std::string &host, const std::string &database, const std::string &table);

// The same, with the parts that matter for `kind`: no database for createDatabase, no table for
// createTable.
std::string reviewDetail(ManagementSheet kind, const ConnectionProfile &profile, const ManagementContext &context);

// createUser asks its own question instead of the SQL review (the account is created by
// MySQLConnection::createUser; the generated CREATE USER is only a preview). Throws "Enter a
// username, client host, and password." when a field is empty.
void checkUserFields(const ManagementDraft &draft);
std::string createUserDetail(const ManagementDraft &draft, const ConnectionProfile &profile);

} // namespace tallowick
