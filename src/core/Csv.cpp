#include "core/Csv.h"

#include "core/AppError.h"

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
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    std::string field;
    bool quoted = false;
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        const char c = text[i];
        if (quoted) {
            if (c == '"') {
                if (i + 1 < n && text[i + 1] == '"') {
                    field.push_back('"');
                    i += 2;
                } else {
                    quoted = false;
                    ++i;
                }
                continue;
            }
            // Copy the run up to the next quote in one go; commas and line breaks included.
            const std::size_t next = text.find('"', i);
            const std::size_t end = next == std::string_view::npos ? n : next;
            field.append(text.substr(i, end - i));
            i = end;
            continue;
        }
        if (c == '"' && field.empty()) {
            quoted = true;
            ++i;
        } else if (c == ',') {
            row.push_back(std::move(field));
            field.clear();
            ++i;
        } else if (c == '\n' || c == '\r') {
            row.push_back(std::move(field));
            field.clear();
            rows.push_back(std::move(row));
            row.clear();
            i += (c == '\r' && i + 1 < n && text[i + 1] == '\n') ? 2 : 1;
        } else {
            field.push_back(c);
            ++i;
        }
    }
    if (quoted) {
        throw AppError("The CSV has an unterminated quoted field.");
    }
    if (!field.empty() || !row.empty()) {
        row.push_back(std::move(field));
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace tallowick::SQL
