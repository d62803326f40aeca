#pragma once

#include "core/ColumnInfo.h"
#include "core/QueryResult.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tallowick
{

// Importing a CSV file into the selected table: plan it (pure, on any thread), show the preview,
// and turn it into INSERT statements. The session runs them in one transaction, all or nothing.

inline constexpr std::size_t csvImportMaxBytes = 10'000'000;
inline constexpr std::size_t csvPreviewRows = 20;
// Well under the server's max_allowed_packet (16 MiB by default) while still sending thousands
// of ordinary rows per statement.
inline constexpr std::size_t csvDefaultStatementBytes = 1'000'000;

inline constexpr std::string_view csvNullOptionTitle = "Treat \\N as SQL NULL";
inline constexpr std::string_view importingCsvStatus = "Importing CSV…";

struct CsvImportPlan {
    std::vector<std::string> header; // the names as the file spells them
    std::vector<std::string> columns; // the table's column for each header name, as the table spells it
    std::vector<Row> rows; // data rows, one cell per column; no value means SQL NULL

    // The first rows, for the form's preview; a view into `rows`.
    std::span<const Row> preview() const { return { rows.data(), std::min(rows.size(), csvPreviewRows) }; }
};

// Reads the file and maps it onto the table, or throws AppError with the form's message, checked
// in this order:
//   larger than csvImportMaxBytes      "Use SQL import for files larger than 10 MB."
//   not UTF-8 (a leading BOM is fine)  "The CSV must use UTF-8 encoding."
//   an open quoted field               SQL::parseCSV's message
//   no rows at all                     "The CSV is empty."
//   a header name twice                "CSV headers must be unique."
//   a header naming no column, or a generated one
//                                      "Unknown or generated column in CSV header: <name>"
//   a header but no data rows          "The CSV is empty."
//   a row whose field count differs    "Row <n> of the CSV has <k> fields, but the header has <m>."
// The first row is the header. Header names match column names exactly, or else ignoring ASCII
// case as the server does; so "ID" and "id" count as the same header. A ragged row refuses the
// whole file rather than guess where its fields belong; <n> counts the header as row 1, which is
// the line number unless quoted fields span lines.
// With `nullMarkerIsNull`, a field whose text is exactly \N becomes SQL NULL. The parser has
// already dropped the quotes, so a quoted "\N" becomes NULL too; every other field, the empty one
// included, is text.
CsvImportPlan planCsvImport(
    const std::string &fileBytes, const std::vector<ColumnInfo> &tableColumns, bool nullMarkerIsNull);

// Builds the plan's multi-row INSERT statements one at a time into a reused buffer, so memory
// stays near one statement however long the file. Each statement holds as many rows as fit in
// `maxStatementBytes`, and at least one, so a single row larger than the budget still gets its
// own statement (the server refuses it if it exceeds max_allowed_packet). Holds a reference to
// the plan, which must outlive it.
class CsvInsertBatches
{
public:
    CsvInsertBatches(const std::string &database,
        const std::string &table,
        const CsvImportPlan &plan,
        std::size_t maxStatementBytes);

    // Replaces `statement` with the next INSERT; false once every row has been written.
    bool next(std::string &statement);

    // Rows written into the statements returned so far.
    std::size_t rowsDone() const { return m_next; }

private:
    void buildTuple(std::size_t row);

    const CsvImportPlan &m_plan;
    const std::size_t m_maxStatementBytes;
    std::string m_prefix; // INSERT INTO `db`.`t` (`a`, `b`) VALUES
    std::string m_tuple; // the values of row m_tupleRow, kept when it did not fit the last statement
    std::size_t m_tupleRow = 0;
    bool m_tupleReady = false;
    std::size_t m_next = 0;
};

// Every statement at once: "INSERT INTO `db`.`t` (`a`, `b`) VALUES (...),(...);".
std::vector<std::string> csvInsertStatements(
    const std::string &database, const std::string &table, const CsvImportPlan &plan, std::size_t maxStatementBytes);

// "1 row", "2 rows"
std::string csvRowCountText(std::size_t count);

// "Importing CSV… 2000 of 5000 rows"
std::string csvImportStatus(std::size_t rowsDone, std::size_t rowsTotal);

} // namespace tallowick
