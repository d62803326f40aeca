#include "management/CsvImport.h"

#include "core/AppError.h"
#include "core/AsciiText.h"
#include "core/FileText.h"
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

// The column a header name stands for: the exact name first, then the same name in another case.
const ColumnInfo *matchingColumn(const std::string &name, const std::vector<ColumnInfo> &columns)
{
    const auto exact
        = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo &column) { return column.name == name; });
    if (exact != columns.end()) {
        return &*exact;
    }
    const std::string folded = asciiLower(name);
    const auto loose = std::find_if(
        columns.begin(), columns.end(), [&](const ColumnInfo &column) { return asciiLower(column.name) == folded; });
    return loose != columns.end() ? &*loose : nullptr;
}

std::string fieldCount(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " field" : " fields");
}

} // namespace

CsvImportReader::CsvImportReader(bool nullMarkerIsNull)
    : m_nullMarkerIsNull(nullMarkerIsNull)
{
}

void CsvImportReader::feed(std::string_view bytes)
{
    m_carried.append(bytes);
    std::string_view text(m_carried);
    if (!m_started) {
        // Too short yet to tell whether the file starts with a byte-order mark.
        if (text.size() < byteOrderMark.size() && byteOrderMark.starts_with(text)) {
            return;
        }
        if (text.starts_with(byteOrderMark)) {
            text.remove_prefix(byteOrderMark.size());
        }
        m_started = true;
    }
    const std::string_view whole = text.substr(0, wholeCharactersEnd(text));
    if (!isValidUtf8(whole)) {
        throw AppError("The CSV must use UTF-8 encoding.");
    }
    m_csv.feed(whole);
    m_carried.erase(0, m_carried.size() - (text.size() - whole.size()));
}

void CsvImportReader::finish()
{
    // A character cut short by the end of the file (the start of a byte-order mark included).
    if (!m_carried.empty()) {
        throw AppError("The CSV must use UTF-8 encoding.");
    }
    m_carried.clear();
    m_csv.finish();
    m_finished = true;
}

const std::vector<std::string> *CsvImportReader::header()
{
    if (!m_headerRead) {
        if (!m_csv.next(m_header)) {
            if (m_finished) {
                throw AppError("The CSV is empty.");
            }
            return nullptr;
        }
        m_headerRead = true;
    }
    return &m_header;
}

bool CsvImportReader::next(Row &row)
{
    if (!header()) {
        return false;
    }
    if (!m_csv.next(m_record)) {
        if (m_finished && m_rowsRead == 0) {
            throw AppError("The CSV is empty.");
        }
        return false;
    }
    if (m_record.size() != m_header.size()) {
        throw AppError("Row " + std::to_string(m_rowsRead + 2) + " of the CSV has " + fieldCount(m_record.size())
            + ", but the header has " + std::to_string(m_header.size()) + ".");
    }
    row.resize(m_record.size());
    for (std::size_t i = 0; i < m_record.size(); ++i) {
        if (m_nullMarkerIsNull && m_record[i] == nullMarker) {
            row[i].reset();
        } else {
            row[i] = std::move(m_record[i]);
        }
    }
    ++m_rowsRead;
    return true;
}

std::vector<std::string> csvHeaderColumns(
    const std::vector<std::string> &header, const std::vector<ColumnInfo> &tableColumns)
{
    std::set<std::string> seen;
    for (const std::string &name : header) {
        if (!seen.insert(asciiLower(name)).second) {
            throw AppError("CSV headers must be unique.");
        }
    }
    std::vector<std::string> columns;
    for (const std::string &name : header) {
        const ColumnInfo *column = matchingColumn(name, tableColumns);
        if (!column || column->generated()) {
            throw AppError("Unknown or generated column in CSV header: " + name);
        }
        columns.push_back(column->name);
    }
    return columns;
}

CsvImportPlan planCsvImport(std::string_view head,
    bool wholeFile,
    const std::vector<ColumnInfo> &tableColumns,
    bool nullMarkerIsNull,
    std::uint64_t fileBytes)
{
    CsvImportReader reader(nullMarkerIsNull);
    reader.feed(head);
    if (wholeFile) {
        reader.finish();
    }
    CsvImportPlan plan;
    plan.nullMarkerIsNull = nullMarkerIsNull;
    plan.fileBytes = fileBytes;
    const std::vector<std::string> *header = reader.header();
    if (!header) {
        throw AppError(
            "The CSV's first line does not end within its first " + std::to_string(head.size() / 1'000'000) + " MB.");
    }
    plan.header = *header;
    plan.columns = csvHeaderColumns(plan.header, tableColumns);
    for (Row row; reader.next(row);) {
        if (plan.preview.size() < csvPreviewRows) {
            plan.preview.push_back(row);
        }
    }
    if (wholeFile) {
        plan.rowCount = reader.rowsRead();
    }
    return plan;
}

CsvInsertBatches::CsvInsertBatches(const std::string &database,
    const std::string &table,
    const std::vector<std::string> &columns,
    RowSource source,
    std::size_t maxStatementBytes)
    : m_source(std::move(source))
    , m_maxStatementBytes(maxStatementBytes)
{
    m_prefix = "INSERT INTO " + SQL::qualified(database, table) + " (";
    for (std::size_t i = 0; i < columns.size(); ++i) {
        m_prefix += (i > 0 ? ", " : "") + SQL::identifier(columns[i]);
    }
    m_prefix += ") VALUES ";
}

bool CsvInsertBatches::pull()
{
    if (m_tupleReady) {
        return true;
    }
    if (m_exhausted || !m_source(m_row)) {
        m_exhausted = true;
        return false;
    }
    m_tuple.assign(1, '(');
    for (std::size_t i = 0; i < m_row.size(); ++i) {
        if (i > 0) {
            m_tuple += ", ";
        }
        m_tuple += SQL::value(m_row[i]);
    }
    m_tuple += ')';
    m_tupleReady = true;
    return true;
}

bool CsvInsertBatches::next(std::string &statement)
{
    if (!pull()) {
        return false;
    }
    statement.assign(m_prefix);
    bool first = true;
    while (pull()) {
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
        ++m_done;
    }
    statement += ';';
    return true;
}

std::string csvRowCountText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " row" : " rows");
}

std::string csvImportStatus(
    std::size_t rowsDone, std::optional<std::size_t> rowsTotal, std::uint64_t bytesDone, std::uint64_t bytesTotal)
{
    const std::string lead = std::string(importingCsvStatus) + " " + std::to_string(rowsDone);
    if (rowsTotal) {
        return lead + " of " + std::to_string(*rowsTotal) + " rows";
    }
    return lead + " rows · " + byteText(bytesDone) + " of " + byteText(bytesTotal);
}

} // namespace tallowick
