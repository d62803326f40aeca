#include "management/CsvImport.h"

#include "core/AppError.h"
#include "core/Csv.h"
#include "core/SqlQuoting.h"
#include "core/Utf8Text.h"

#include <algorithm>
#include <set>

namespace tallowick
{

namespace
{

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view nullMarker = "\\N";

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    });
    return result;
}

// The column a header name stands for: the exact name first, then the same name in another case.
const ColumnInfo *matchingColumn(const std::string &name, const std::vector<ColumnInfo> &columns)
{
    const auto exact
        = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo &column) { return column.name == name; });
    if (exact != columns.end()) {
        return &*exact;
    }
    const std::string folded = lower(name);
    const auto loose = std::find_if(
        columns.begin(), columns.end(), [&](const ColumnInfo &column) { return lower(column.name) == folded; });
    return loose != columns.end() ? &*loose : nullptr;
}

std::string fieldCount(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " field" : " fields");
}

} // namespace

CsvImportPlan planCsvImport(
    const std::string &fileBytes, const std::vector<ColumnInfo> &tableColumns, bool nullMarkerIsNull)
{
    if (fileBytes.size() > csvImportMaxBytes) {
        throw AppError("Use SQL import for files larger than 10 MB.");
    }
    std::string_view text(fileBytes);
    if (text.starts_with(byteOrderMark)) {
        text.remove_prefix(byteOrderMark.size());
    }
    if (!isValidUtf8(text)) {
        throw AppError("The CSV must use UTF-8 encoding.");
    }
    std::vector<std::vector<std::string>> records = SQL::parseCSV(text);
    if (records.empty()) {
        throw AppError("The CSV is empty.");
    }

    CsvImportPlan plan;
    plan.header = std::move(records.front());
    std::set<std::string> seen;
    for (const std::string &name : plan.header) {
        if (!seen.insert(lower(name)).second) {
            throw AppError("CSV headers must be unique.");
        }
    }
    for (const std::string &name : plan.header) {
        const ColumnInfo *column = matchingColumn(name, tableColumns);
        if (!column || column->generated()) {
            throw AppError("Unknown or generated column in CSV header: " + name);
        }
        plan.columns.push_back(column->name);
    }
    if (records.size() == 1) {
        throw AppError("The CSV is empty.");
    }

    plan.rows.reserve(records.size() - 1);
    for (std::size_t i = 1; i < records.size(); ++i) {
        std::vector<std::string> &record = records[i];
        if (record.size() != plan.header.size()) {
            throw AppError("Row " + std::to_string(i + 1) + " of the CSV has " + fieldCount(record.size())
                + ", but the header has " + std::to_string(plan.header.size()) + ".");
        }
        Row row;
        row.reserve(record.size());
        for (std::string &field : record) {
            if (nullMarkerIsNull && field == nullMarker) {
                row.emplace_back(std::nullopt);
            } else {
                row.emplace_back(std::move(field));
            }
        }
        plan.rows.push_back(std::move(row));
        // Frees the parsed copy as we go, so the file is held about once, not twice.
        record = {};
    }
    return plan;
}

CsvInsertBatches::CsvInsertBatches(
    const std::string &database, const std::string &table, const CsvImportPlan &plan, std::size_t maxStatementBytes)
    : m_plan(plan)
    , m_maxStatementBytes(maxStatementBytes)
{
    m_prefix = "INSERT INTO " + SQL::qualified(database, table) + " (";
    for (std::size_t i = 0; i < plan.columns.size(); ++i) {
        m_prefix += (i > 0 ? ", " : "") + SQL::identifier(plan.columns[i]);
    }
    m_prefix += ") VALUES ";
}

void CsvInsertBatches::buildTuple(std::size_t row)
{
    m_tuple.assign(1, '(');
    const Row &cells = m_plan.rows[row];
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) {
            m_tuple += ", ";
        }
        m_tuple += SQL::value(cells[i]);
    }
    m_tuple += ')';
    m_tupleRow = row;
    m_tupleReady = true;
}

bool CsvInsertBatches::next(std::string &statement)
{
    if (m_next >= m_plan.rows.size()) {
        return false;
    }
    statement.assign(m_prefix);
    bool first = true;
    while (m_next < m_plan.rows.size()) {
        if (!m_tupleReady || m_tupleRow != m_next) {
            buildTuple(m_next);
        }
        // The separator before the tuple and the closing semicolon count against the budget.
        const std::size_t needed = statement.size() + (first ? 0 : 1) + m_tuple.size() + 1;
        if (!first && needed > m_maxStatementBytes) {
            break; // m_tuple stays built for the next statement
        }
        if (!first) {
            statement += ',';
        }
        statement += m_tuple;
        m_tupleReady = false;
        first = false;
        ++m_next;
    }
    statement += ';';
    return true;
}

std::vector<std::string> csvInsertStatements(
    const std::string &database, const std::string &table, const CsvImportPlan &plan, std::size_t maxStatementBytes)
{
    std::vector<std::string> statements;
    CsvInsertBatches batches(database, table, plan, maxStatementBytes);
    std::string statement;
    while (batches.next(statement)) {
        statements.push_back(statement);
    }
    return statements;
}

std::string csvRowCountText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " row" : " rows");
}

std::string csvImportStatus(std::size_t rowsDone, std::size_t rowsTotal)
{
    return std::string(importingCsvStatus) + " " + std::to_string(rowsDone) + " of " + std::to_string(rowsTotal)
        + " rows";
}

} // namespace tallowick
