#include "core/Csv.h"

#include "core/AppError.h"

#include <utility>

namespace tallowick::SQL
{

namespace
{

void appendQuoted(std::string &out, std::string_view text)
{
    out.push_back('"');
    std::size_t start = 0;
    std::size_t quote = 0;
    while ((quote = text.find('"', start)) != std::string_view::npos) {
        out.append(text.substr(start, quote + 1 - start));
        out.push_back('"');
        start = quote + 1;
    }
    out.append(text.substr(start));
    out.push_back('"');
}

} // namespace

std::string csv(const QueryResult &result)
{
    std::string out;
    appendCsvHeader(out, result.columnNames());
    for (const Row &row : result.rows) {
        appendCsvRow(out, row);
    }
    return out;
}

void appendCsvHeader(std::string &out, const std::vector<std::string> &names)
{
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) {
            out.push_back(',');
        }
        appendQuoted(out, names[i]);
    }
    out.append("\r\n");
}

void appendCsvRow(std::string &out, const Row &row)
{
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (i > 0) {
            out.push_back(',');
        }
        if (row[i]) {
            appendQuoted(out, *row[i]);
        } else {
            out.append("\\N");
        }
    }
    out.append("\r\n");
}

std::vector<std::vector<std::string>> parseCSV(std::string_view text)
{
    CsvStream stream;
    stream.feed(text);
    stream.finish();
    std::vector<std::vector<std::string>> rows;
    for (std::vector<std::string> row; stream.next(row);) {
        rows.push_back(std::move(row));
    }
    return rows;
}

void CsvStream::feed(std::string_view bytes)
{
    if (bytes.empty()) {
        return;
    }
    std::string joined;
    std::string_view text = bytes;
    if (!m_carried.empty()) {
        joined = std::exchange(m_carried, {}) + std::string(bytes);
        text = joined;
    }
    // What ends the text is read with the bytes after it: a run of quotes (doubled or not), or
    // a CR (alone, or the first half of CR LF).
    std::size_t keep = text.size();
    if (text.back() == '"') {
        keep = text.find_last_not_of('"') + 1; // npos + 1 is 0: the text is all quotes
    } else if (text.back() == '\r') {
        keep = text.size() - 1;
    }
    m_carried = text.substr(keep);
    scan(text.substr(0, keep));
}

void CsvStream::finish()
{
    scan(std::exchange(m_carried, {}));
    if (m_quoted) {
        throw AppError("The CSV has an unterminated quoted field.");
    }
    // A last line of just "" is a row holding one empty field.
    if (!m_field.empty() || !m_row.empty() || m_fieldStarted) {
        m_row.push_back(std::move(m_field));
        m_ready.push_back(std::move(m_row));
        m_field.clear();
        m_row.clear();
    }
}

bool CsvStream::next(std::vector<std::string> &row)
{
    if (m_ready.empty()) {
        return false;
    }
    row = std::move(m_ready.front());
    m_ready.pop_front();
    return true;
}

void CsvStream::scan(std::string_view text)
{
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        const char c = text[i];
        if (m_quoted) {
            if (c == '"') {
                if (i + 1 < n && text[i + 1] == '"') {
                    m_field.push_back('"');
                    i += 2;
                } else {
                    m_quoted = false;
                    ++i;
                }
                continue;
            }
            // Copy the run up to the next quote in one go; commas and line breaks included.
            const std::size_t next = text.find('"', i);
            const std::size_t end = next == std::string_view::npos ? n : next;
            m_field.append(text.substr(i, end - i));
            i = end;
            continue;
        }
        if (c == '"' && m_field.empty()) {
            m_quoted = true;
            m_fieldStarted = true;
            ++i;
        } else if (c == ',') {
            m_row.push_back(std::move(m_field));
            m_field.clear();
            m_fieldStarted = false;
            ++i;
        } else if (c == '\n' || c == '\r') {
            m_row.push_back(std::move(m_field));
            m_field.clear();
            m_fieldStarted = false;
            m_ready.push_back(std::move(m_row));
            m_row.clear();
            i += (c == '\r' && i + 1 < n && text[i + 1] == '\n') ? 2 : 1;
        } else {
            m_field.push_back(c);
            ++i;
        }
    }
}

} // namespace tallowick::SQL
