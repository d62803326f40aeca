// The writes the program generates itself: one grid cell, one browsed row, one account.
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/RowPredicate.h"
#include "core/SqlQuoting.h"

#include <algorithm>

namespace tallowick
{

namespace
{

std::vector<std::string> primaryKeyNames(const std::vector<ColumnInfo> &columns)
{
    std::vector<std::string> names;
    for (const ColumnInfo &column : columns) {
        if (column.primary) {
            names.push_back(column.name);
        }
    }
    return names;
}

} // namespace

void MySQLConnection::updateCell(const QueryResult &result, std::int64_t row, std::int64_t column, const Cell &value)
{
    refuseWhenReadOnly();
    if (row < 0 || static_cast<std::size_t>(row) >= result.rows.size() || column < 0
        || static_cast<std::size_t>(column) >= result.fields.size()) {
        throw AppError("That result row is no longer available.");
    }
    const Field &field = result.fields[static_cast<std::size_t>(column)];
    if (!field.editable()) {
        throw AppError("Calculated columns and binary values are read-only.");
    }
    const Row &values = result.rows[static_cast<std::size_t>(row)];
    const Cell &oldValue
        = static_cast<std::size_t>(column) < values.size() ? values[static_cast<std::size_t>(column)] : Cell {};
    if (oldValue == value) {
        return;
    }

    const std::vector<ColumnInfo> tableColumns = columns(field.database, field.table);
    const std::vector<std::string> primary = primaryKeyNames(tableColumns);
    if (primary.empty()) {
        throw AppError("This table has no primary key. Add one before editing cells in the grid.");
    }
    if (std::any_of(tableColumns.begin(), tableColumns.end(), [&field](const ColumnInfo &candidate) {
            return candidate.name == field.originalName && candidate.generated();
        })) {
        throw AppError("Generated columns are read-only.");
    }

    // Key material comes only from fields of the same table instance: the same alias keeps the
    // two sides of a self-join apart, and the original names undo column aliases.
    std::vector<Field> keyFields;
    Row keyValues;
    for (std::size_t i = 0; i < result.fields.size(); ++i) {
        const Field &candidate = result.fields[i];
        if (candidate.database == field.database && candidate.table == field.table
            && candidate.sourceAlias == field.sourceAlias && !candidate.originalName.empty() && i < values.size()) {
            Field named = candidate;
            named.name = candidate.originalName;
            keyFields.push_back(std::move(named));
            keyValues.push_back(values[i]);
        }
    }
    const std::string predicate = SQL::rowPredicate(keyFields, keyValues, primary);

    // The last term is the stale-row guard: if another session changed this cell since the
    // grid was read, no row matches. It compares what the grid showed with what the server would
    // show now, so a FLOAT shown rounded still matches and a trailing space still counts.
    const std::string editedColumn = SQL::identifier(field.originalName);
    const QueryResult outcome = query("UPDATE " + SQL::qualified(field.database, field.table) + " SET " + editedColumn
        + " = " + SQL::value(value) + " WHERE " + predicate + " AND "
        + SQL::sameShownValue(editedColumn, field, oldValue) + " LIMIT 1");
    if (outcome.affected != 1) {
        throw AppError("The row was changed or deleted by another session. Refresh before editing it again.");
    }
}

void MySQLConnection::deleteRow(
    const QueryResult &result, std::int64_t row, const std::string &database, const std::string &table)
{
    refuseWhenReadOnly();
    if (row < 0 || static_cast<std::size_t>(row) >= result.rows.size()) {
        throw AppError("That result row is no longer available.");
    }
    const std::vector<std::string> primary = primaryKeyNames(columns(database, table));
    const std::string predicate = SQL::rowPredicate(result.fields, result.rows[static_cast<std::size_t>(row)], primary);
    const QueryResult outcome
        = query("DELETE FROM " + SQL::qualified(database, table) + " WHERE " + predicate + " LIMIT 1");
    if (outcome.affected != 1) {
        throw AppError("The row no longer exists. Refresh the table.");
    }
}

void MySQLConnection::createUser(const std::string &name, const std::string &host, const std::string &password)
{
    refuseWhenReadOnly();
    query(
        "CREATE USER " + stringLiteral(name) + "@" + stringLiteral(host) + " IDENTIFIED BY " + stringLiteral(password));
}

} // namespace tallowick
