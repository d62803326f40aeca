#pragma once

#include "core/ColumnInfo.h"
#include "core/QueryResult.h"
#include "core/TableInfo.h"
#include "core/WorkspaceMode.h"

#include <optional>
#include <string>
#include <vector>

namespace tallowick
{

// The table list of SHOW FULL TABLES in the order a file browser uses (case-insensitive, digit
// runs compared by value, so t2 comes before t10), views and tables mixed. A row without a
// kind counts as a base table; a row without a name is skipped.
std::vector<TableInfo> tableListFrom(const QueryResult &listing);

// The first cell of each row of SHOW DATABASES, in server order; rows without one are skipped.
std::vector<std::string> databaseNames(const QueryResult &listing);

// True when `a` comes before `b` in that order, under the user's locale.
bool precedesInFileOrder(const std::string &a, const std::string &b);

struct PageRequest {
    std::string database;
    std::string table;
    std::vector<ColumnInfo> columns; // of the table, in table order
    std::string filter; // as typed: not trimmed, % and _ keep their meaning
    std::string sortColumn; // empty: order by the first primary-key column, if any
    bool sortDescending = false;
    std::int64_t page = 0;
    std::int64_t pageSize = 200;
};

// One page of the table browser. Throws AppError when the offset does not fit in 64 bits.
std::string pageStatement(const PageRequest &request);

// The statement behind the structure, index and relation panels; no value for other modes.
std::optional<std::string> inspectionStatement(
    WorkspaceMode mode, const std::string &database, const std::string &table);

// The accounts listing. MariaDB keeps no account_locked column in mysql.user (its accounts live
// in mysql.global_priv), so it is asked for the same four columns there.
std::string usersStatement(const std::string &serverVersion);

// Seconds with three decimals, as status lines show them: "0.042s".
std::string formatSeconds(double seconds);

} // namespace tallowick
