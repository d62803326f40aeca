#include "builder/BuilderSpec.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <locale.h>

namespace tallowick
{

namespace
{

template <std::size_t N> bool isOneOf(const std::string &text, const std::array<std::string_view, N> &allowed)
{
    return std::find(allowed.begin(), allowed.end(), text) != allowed.end();
}

std::string joined(const std::vector<std::string> &pieces, std::string_view separator)
{
    std::string text;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) {
            text += separator;
        }
        text += pieces[i];
    }
    return text;
}

std::string filterCondition(const BuilderFilter &filter)
{
    if (!isOneOf(filter.operation, builderFilterOperators)) {
        throw AppError("Unsupported filter operator.");
    }
    std::string condition = BuilderSpec::column(filter.column) + " " + filter.operation;
    if (filter.operation.find("NULL") != std::string::npos) {
        return condition;
    }
    if (filter.numeric) {
        if (!isFiniteNumberText(filter.value)) {
            throw AppError("Enter a valid number for " + filter.column + ".");
        }
        return condition + " " + filter.value;
    }
    return condition + " " + SQL::value(filter.value);
}

} // namespace

bool isFiniteNumberText(std::string_view text)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) {
        return false;
    }
    std::string lower(text);
    std::transform(
        lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower.find("nan") != std::string::npos || lower.find("inf") != std::string::npos) {
        return false;
    }
    // Parse in the C locale: the user's locale may use a decimal comma.
    static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", locale_t(nullptr));
    const std::string copy(text);
    char *end = nullptr;
    const double number = strtod_l(copy.c_str(), &end, cLocale);
    return end == copy.c_str() + copy.size() && std::isfinite(number);
}

std::string BuilderSpec::column(std::string_view reference)
{
    // One split at most, and empty pieces are dropped without counting as the split: ".a.b"
    // names `a`.`b`, "a..b" names `a`.`.b`.
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t i = 0; i < reference.size() && pieces.empty(); ++i) {
        if (reference[i] == '.') {
            if (i > start) {
                pieces.push_back(SQL::identifier(reference.substr(start, i - start)));
            }
            start = i + 1;
        }
    }
    if (start < reference.size()) {
        pieces.push_back(SQL::identifier(reference.substr(start)));
    }
    return joined(pieces, ".");
}

std::string BuilderSpec::build() const
{
    if (table.empty()) {
        throw AppError("Choose a table to build a query.");
    }
    std::string columnList;
    if (columns.empty()) {
        columnList = SQL::identifier(table) + ".*";
    } else {
        std::vector<std::string> expressions;
        for (const BuilderColumn &selected : columns) {
            expressions.push_back(selected.expression());
        }
        // Continuation lines line up under the first column after "SELECT ".
        columnList = joined(expressions, ",\n       ");
    }
    std::string sql = "SELECT ";
    if (distinct) {
        sql += "DISTINCT ";
    }
    sql += columnList + "\nFROM " + SQL::qualified(database, table);

    for (const BuilderJoin &join : joins) {
        if (join.table.empty() || join.left.empty() || join.right.empty()) {
            throw AppError("Complete the table and both columns for each join.");
        }
        if (!isOneOf(join.kind, builderJoinKinds)) {
            throw AppError("Unsupported join type.");
        }
        sql += "\n" + join.kind + " " + SQL::qualified(database, join.table) + "\n  ON " + column(join.left) + " = "
            + column(join.right);
    }

    std::vector<std::string> conditions;
    for (const BuilderFilter &filter : filters) {
        conditions.push_back(filterCondition(filter));
    }
    if (!conditions.empty()) {
        sql += "\nWHERE " + joined(conditions, matchAll ? "\n  AND " : "\n  OR ");
    }

    if (!groupBy.empty()) {
        std::vector<std::string> groups;
        for (const std::string &reference : groupBy) {
            groups.push_back(column(reference));
        }
        sql += "\nGROUP BY " + joined(groups, ", ");
    }
    if (!orderBy.empty()) {
        sql += "\nORDER BY " + column(orderBy) + (descending ? " DESC" : " ASC");
    }
    if (limit < 1 || limit > 100000) {
        throw AppError("The row limit must be between 1 and 100,000.");
    }
    sql += "\nLIMIT " + std::to_string(limit) + ";";
    return sql;
}

} // namespace tallowick
