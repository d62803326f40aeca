#include "session/TableBrowsing.h"

#include "core/AppError.h"
#include "core/AsciiText.h"
#include "core/SqlQuoting.h"

#include <QString>
#include <algorithm>
#include <cstdio>

namespace tallowick
{

namespace
{

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// Compares two runs of ASCII digits by their value, however long they are.
int compareNumbers(QStringView a, QStringView b)
{
    while (a.size() > 1 && a.front() == u'0') {
        a = a.mid(1);
    }
    while (b.size() > 1 && b.front() == u'0') {
        b = b.mid(1);
    }
    if (a.size() != b.size()) {
        return a.size() < b.size() ? -1 : 1;
    }
    return a.compare(b);
}

// The next run of digits or of non-digits, starting at `position`.
QStringView runAt(const QString &text, qsizetype position)
{
    const bool digits = isDigit(text[position]);
    qsizetype end = position;
    while (end < text.size() && isDigit(text[end]) == digits) {
        ++end;
    }
    return QStringView(text).mid(position, end - position);
}

bool isBlobType(const std::string &type)
{
    return asciiLower(type).find("blob") != std::string::npos;
}

} // namespace

bool precedesInFileOrder(const std::string &a, const std::string &b)
{
    // Case-insensitive and locale-aware for text, by value for digit runs: t2 before t10.
    const QString left = QString::fromStdString(a).toCaseFolded();
    const QString right = QString::fromStdString(b).toCaseFolded();
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < left.size() && j < right.size()) {
        const QStringView x = runAt(left, i);
        const QStringView y = runAt(right, j);
        const bool numbers = isDigit(x.front()) && isDigit(y.front());
        const int order = numbers ? compareNumbers(x, y) : QString::localeAwareCompare(x, y);
        if (order != 0) {
            return order < 0;
        }
        i += x.size();
        j += y.size();
    }
    return i == left.size() && j < right.size();
}

std::vector<std::string> databaseNames(const QueryResult &listing)
{
    std::vector<std::string> names;
    for (const Row &row : listing.rows) {
        if (!row.empty() && row.front()) {
            names.push_back(*row.front());
        }
    }
    return names;
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

std::string usersStatement(const std::string &serverVersion)
{
    if (serverVersion.find("MariaDB") != std::string::npos) {
        // JSON_VALUE reads a JSON true as 1 (older releases as "true"); an account without a
        // plugin entry signs in with mysql_native_password.
        return "SELECT User, Host, IFNULL(JSON_VALUE(Priv, '$.plugin'), 'mysql_native_password') AS plugin, "
               "IF(JSON_VALUE(Priv, '$.account_locked') IN ('1', 'true'), 'Y', 'N') AS account_locked "
               "FROM mysql.global_priv ORDER BY User, Host";
    }
    return "SELECT User, Host, plugin, account_locked FROM mysql.user ORDER BY User, Host";
}

std::string formatSeconds(double seconds)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.3fs", seconds);
    return text;
}

} // namespace tallowick
