#pragma once

#include "core/TableInfo.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tallowick
{

// What the server's schema offers for completion: its databases, the tables and views of the
// databases loaded so far, and their columns in table order.
struct SchemaCatalog {
    std::vector<std::string> databases;
    std::map<std::string, std::vector<TableInfo>> tables; // database -> tables and views
    std::map<std::string, std::map<std::string, std::vector<std::string>>> columns; // database -> table -> columns
};

enum class CompletionKind { column, table, view, database, keyword, function };

struct CompletionItem {
    std::string text;
    CompletionKind kind;
    bool operator==(const CompletionItem &) const = default;
};

struct CompletionList {
    std::string partial; // the word being typed, which the items start with (ignoring case)
    std::vector<CompletionItem> items;
    bool namesOnly = false; // a table or a qualified name goes here: keywords would not fit
    // Databases the statement names whose tables or columns the catalog does not hold yet.
    std::vector<std::string> missingDatabases;
};

// The names that fit at `cursor` in `text` (a stretch of a script; only the statement holding
// the cursor is read):
//   after FROM, JOIN, INTO, UPDATE, TABLE or DESCRIBE (and in a FROM list): tables and views of
//     the current database, then databases;
//   after "db.": that database's tables; after "alias." or "table.": that table's columns;
//   elsewhere: the columns of the tables the statement names, then keywords and functions.
// Matching ignores case; items keep the catalog's spelling. Pure and quick: a catalog of
// thousands of tables costs one pass over one database's names.
CompletionList completeAt(
    const SchemaCatalog &catalog, const std::string &currentDatabase, std::string_view text, std::size_t cursor);

} // namespace tallowick
