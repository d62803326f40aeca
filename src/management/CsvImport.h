#pragma once

#include "core/ColumnInfo.h"
#include "core/Csv.h"
#include "core/QueryResult.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowick
{

// Importing a CSV file into the selected table: plan it from the start of the file (pure, on any
// thread), show the preview, then read the whole file as a stream and turn its rows into INSERT
// statements. The session runs them in one transaction, all or nothing.

inline constexpr std::size_t csvPreviewRows = 20;
// Read when a file is chosen, to map its header and preview its first rows; a file this small
// is checked whole before the import starts, a larger one as its rows go in.
inline constexpr std::size_t csvPlanningBytes = 4'000'000;
// Well under the server's max_allowed_packet (16 MiB by default) while still sending thousands
// of ordinary rows per statement.
inline constexpr std::size_t csvDefaultStatementBytes = 1'000'000;

inline constexpr std::string_view csvNullOptionTitle = "Treat \\N as SQL NULL";
inline constexpr std::string_view importingCsvStatus = "Importing CSV…";

struct CsvImportPlan {
    std::vector<std::string> header; // the names as the file spells them
    std::vector<std::string> columns; // the table's column for each header name, as the table spells it
    bool nullMarkerIsNull = true;
    std::vector<Row> preview; // the first data rows, at most csvPreviewRows
    std::optional<std::size_t> rowCount; // known when planning read the whole file
    std::uint64_t fileBytes = 0;
};

// Reads a CSV import file as it arrives in pieces: checks it and hands out its data rows, one
// cell per header name, so a file of any size is read with memory for one piece. Refusals are
// AppErrors with the form's messages:
//   not UTF-8 (a leading BOM is fine)  "The CSV must use UTF-8 encoding."
//   an open quoted field               SQL::parseCSV's message
//   no rows, or a header but no data   "The CSV is empty." (once the end is known)
//   a row whose field count differs    "Row <n> of the CSV has <k> fields, but the header has <m>."
// A ragged row refuses the whole file rather than guess where its fields belong; <n> counts the
// header as row 1, which is the line number unless quoted fields span lines.
// With `nullMarkerIsNull`, a field whose text is exactly \N becomes SQL NULL. The parser has
// already dropped the quotes, so a quoted "\N" becomes NULL too; every other field, the empty one
// included, is text.
class CsvImportReader
{
public:
    explicit CsvImportReader(bool nullMarkerIsNull);

    void feed(std::string_view bytes);
    // Marks the end of the file.
    void finish();

    // The header, once its line has been read; nullptr before.
    const std::vector<std::string> *header();
    // Moves the next complete data row into `row`; false when none is waiting (or the header is
    // not complete yet), or after the last row.
    bool next(Row &row);
    std::size_t rowsRead() const { return m_rowsRead; }

private:
    SQL::CsvStream m_csv;
    const bool m_nullMarkerIsNull;
    std::string m_carried; // a UTF-8 character cut by the end of the last piece
    bool m_started = false;
    bool m_finished = false;
    bool m_headerRead = false;
    std::vector<std::string> m_header;
    std::vector<std::string> m_record;
    std::size_t m_rowsRead = 0;
};

// The table's column for each header name, or throws AppError:
//   a header name twice                "CSV headers must be unique."
//   a header naming no column, or a generated one
//                                      "Unknown or generated column in CSV header: <name>"
// Header names match column names exactly, or else ignoring ASCII case as the server does; so
// "ID" and "id" count as the same header.
std::vector<std::string> csvHeaderColumns(
    const std::vector<std::string> &header, const std::vector<ColumnInfo> &tableColumns);

// Plans the import from the start of the file (`wholeFile` when `head` is all of it): maps the
// header, keeps the first rows for the preview and checks every complete row it holds, with the
// reader's and csvHeaderColumns's messages. A header line longer than the head is refused.
CsvImportPlan planCsvImport(std::string_view head,
    bool wholeFile,
    const std::vector<ColumnInfo> &tableColumns,
    bool nullMarkerIsNull,
    std::uint64_t fileBytes = 0);

// Builds multi-row INSERT statements one at a time into a reused buffer, from rows pulled from
// `source` as they are needed, so memory stays near one statement however long the file. Each
// statement holds as many rows as fit in `maxStatementBytes`, and at least one, so a single row
// larger than the budget still gets its own statement (the server refuses it if it exceeds
// max_allowed_packet).
class CsvInsertBatches
{
public:
    // Fills the row and returns true, or returns false when no rows are left.
    using RowSource = std::function<bool(Row &row)>;

    CsvInsertBatches(const std::string &database,
        const std::string &table,
        const std::vector<std::string> &columns,
        RowSource source,
        std::size_t maxStatementBytes);

    // Replaces `statement` with the next INSERT; false once every row has been written.
    bool next(std::string &statement);

    // Rows written into the statements returned so far.
    std::size_t rowsDone() const { return m_done; }

private:
    bool pull();

    const RowSource m_source;
    const std::size_t m_maxStatementBytes;
    std::string m_prefix; // INSERT INTO `db`.`t` (`a`, `b`) VALUES
    std::string m_tuple; // the values of the next row, kept when it did not fit the last statement
    bool m_tupleReady = false;
    bool m_exhausted = false;
    Row m_row;
    std::size_t m_done = 0;
};

// "1 row", "2 rows"
std::string csvRowCountText(std::size_t count);

// "Importing CSV… 2000 of 5000 rows" when the count is known, else
// "Importing CSV… 2000 rows · 1.2 MB of 461.0 MB"
std::string csvImportStatus(
    std::size_t rowsDone, std::optional<std::size_t> rowsTotal, std::uint64_t bytesDone, std::uint64_t bytesTotal);

} // namespace tallowick
