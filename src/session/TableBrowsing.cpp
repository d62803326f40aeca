#include "session/TableBrowsing.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <QCollator>
#include <QString>
#include <algorithm>
#include <cstdio>

namespace tallowick
{

namespace
{

const QCollator &fileOrderCollator()
{
    static const QCollator collator = [] {
        QCollator c;
        c.setNumericMode(true);
        c.setCaseSensitivity(Qt::CaseInsensitive);
        return c;
    }();
    return collator;
}

bool isBlobType(const std::string &type)
{
    std::string lower = type;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    });
    return lower.find("blob") != std::string::npos;
}

} // namespace

bool precedesInFileOrder(const std::string &a, const std::string &b)
{
    return fileOrderCollator().compare(QString::fromStdString(a), QString::fromStdString(b)) < 0;
}

std::vector<TableInfo> tableListFrom(const QueryResult &listing)
{
    std::vector<TableInfo> tables;
    for (const Row &row : listing.rows) {
        if (row.empty() || !row.front()) {
            continue;
        }
        const bool hasKind = row.size() >= 2 && row[1];
        tables.push_back({ *row.front(), hasKind ? *row[1] : "BASE TABLE" });
    }
    std::stable_sort(tables.begin(), tables.end(), [](const TableInfo &a, const TableInfo &b) {
        return precedesInFileOrder(a.name, b.name);
    });
    return tables;
}

std::string pageStatement(const PageRequest &request)
{
    std::string sql = "SELECT * FROM " + SQL::qualified(request.database, request.table);
    if (!request.filter.empty()) {
        const std::string pattern = SQL::value("%" + request.filter + "%");
        std::string conditions;
        for (const ColumnInfo &column : request.columns) {
            if (isBlobType(column.type)) {
                continue;
            }
            conditions += (conditions.empty() ? "" : " OR ") + std::string("CAST(") + SQL::identifier(column.name)
                + " AS CHAR) LIKE " + pattern;
        }
        if (!conditions.empty()) {
            sql += " WHERE " + conditions;
        }
    }
    if (!request.sortColumn.empty()) {
        sql += " ORDER BY " + SQL::identifier(request.sortColumn) + (request.sortDescending ? " DESC" : " ASC");
    } else {
        const auto key = std::find_if(
            request.columns.begin(), request.columns.end(), [](const ColumnInfo &column) { return column.primary; });
        if (key != request.columns.end()) {
            sql += " ORDER BY " + SQL::identifier(key->name);
        }
    }
    std::int64_t offset = 0;
    if (__builtin_mul_overflow(request.page, request.pageSize, &offset)) {
        throw AppError("That page is beyond the end of any table.");
    }
    sql += " LIMIT " + std::to_string(request.pageSize) + " OFFSET " + std::to_string(offset);
    return sql;
}

std::optional<std::string> inspectionStatement(
    WorkspaceMode mode, const std::string &database, const std::string &table)
{
    switch (mode) {
    case WorkspaceMode::structure:
        return "SHOW FULL COLUMNS FROM " + SQL::qualified(database, table);
    case WorkspaceMode::indexes:
        return "SHOW INDEX FROM " + SQL::qualified(database, table);
    case WorkspaceMode::relations:
        return "SELECT COLUMN_NAME, CONSTRAINT_NAME, REFERENCED_TABLE_SCHEMA, REFERENCED_TABLE_NAME, "
               "REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = "
            + SQL::value(database) + " AND TABLE_NAME = " + SQL::value(table)
            + " AND REFERENCED_TABLE_NAME IS NOT NULL";
    default:
        return std::nullopt;
    }
}

std::string formatSeconds(double seconds)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.3fs", seconds);
    return text;
}

} // namespace tallowick
