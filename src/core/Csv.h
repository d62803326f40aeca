#pragma once

#include "core/QueryResult.h"

#include <deque>
#include <string>
#include <string_view>
#include <vector>

// The program's one CSV dialect: comma separators, double-quote quoting, CR LF line ends on
// output, and the unquoted two-character marker \N for SQL NULL.
namespace tallowick::SQL
{

// Header line of quoted column names, then one line per row. Every present value is quoted (so
// only an unquoted \N is NULL); every line, the last included, ends in CR LF.
std::string csv(const QueryResult &result);
// The same lines one at a time, for output written as it streams.
void appendCsvHeader(std::string &out, const std::vector<std::string> &names);
void appendCsvRow(std::string &out, const Row &row);

// Rows of plain text cells. LF, CR and CR LF each end a row; a final line end adds no empty
// row, a trailing comma keeps its empty field; rows are not padded. Whether \N means NULL is
// the importer's decision. Throws AppError for a quoted field left open at the end.
std::vector<std::vector<std::string>> parseCSV(std::string_view text);

// The same reading over text that arrives in pieces cut anywhere (inside a quoted field, between
// the quotes of a doubled quote, between CR and LF), so a file of any size is read with memory for
// one piece and the rows not yet taken.
class CsvStream
{
public:
    // Adds the next bytes; the rows they complete become available to `next`.
    void feed(std::string_view bytes);
    // Marks the end of the text and completes the last row. Throws AppError for a quoted field
    // left open.
    void finish();
    // Moves the oldest complete row into `row`; false when none is waiting.
    bool next(std::vector<std::string> &row);

private:
    void scan(std::string_view text);

    std::string m_carried; // a last byte whose meaning depends on the next one
    std::deque<std::vector<std::string>> m_ready;
    std::vector<std::string> m_row;
    std::string m_field;
    bool m_quoted = false;
    bool m_fieldStarted = false; // an opening quote was read, so even an empty field counts
};

} // namespace tallowick::SQL
