#include "core/InsertRows.h"

#include "core/AsciiText.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace tallowick::SQL
{

namespace
{

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Reads the text left to right; every step either moves on or reports that the form is not one
// that can be combined.
class Reader
{
public:
    Reader(std::string_view text, bool backslashEscapes)
        : m_text(text)
        , m_backslashEscapes(backslashEscapes)
    {
    }

    std::size_t position() const { return m_pos; }
    bool atEnd() const { return m_pos >= m_text.size(); }
    void step() { ++m_pos; }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }

    void skipBlanks()
    {
        while (!atEnd() && isBlank(m_text[m_pos])) {
            ++m_pos;
        }
    }

    // A keyword in any letter case, followed by something that is not part of a word.
    bool keyword(std::string_view word)
    {
        if (m_text.size() - m_pos < word.size()) {
            return false;
        }
        for (std::size_t i = 0; i < word.size(); ++i) {
            char c = m_text[m_pos + i];
            if (c >= 'a' && c <= 'z') {
                c = static_cast<char>(c - ('a' - 'A'));
            }
            if (c != word[i]) {
                return false;
            }
        }
        const std::size_t end = m_pos + word.size();
        if (end < m_text.size() && isSqlNameByte(m_text[end])) {
            return false;
        }
        m_pos = end;
        return true;
    }

    // A bare or back-quoted name, optionally qualified by another.
    bool name()
    {
        if (!namePart()) {
            return false;
        }
        if (peek() == '.') {
            ++m_pos;
            return namePart();
        }
        return true;
    }

    // A quoted string or name starting at the current position; false when it never closes.
    bool quoted()
    {
        const char quote = m_text[m_pos++];
        while (!atEnd()) {
            const char c = m_text[m_pos];
            if (c == '\\' && m_backslashEscapes && quote != '`') {
                m_pos += 2;
                continue;
            }
            ++m_pos;
            if (c == quote) {
                if (peek() != quote) {
                    return true;
                }
                ++m_pos;
            }
        }
        return false;
    }

    // "( ... )" with nested parentheses and quotes, and no comment anywhere inside. With
    // `literalsOnly`, no function but CONVERT and no subquery either: a function of the session
    // (NOW(), ROW_COUNT(), LAST_INSERT_ID()) would read another moment in a combined statement.
    bool parenthesised(bool literalsOnly)
    {
        if (peek() != '(') {
            return false;
        }
        int depth = 0;
        while (!atEnd()) {
            const char c = m_text[m_pos];
            if (literalsOnly && isSqlNameByte(c)) {
                if (!literalWord()) {
                    return false;
                }
                continue;
            }
            if (c == '\'' || c == '"' || c == '`') {
                if (!quoted()) {
                    return false;
                }
                continue;
            }
            if (c == '#' || (c == '-' && m_text.substr(m_pos, 2) == "--")
                || (c == '/' && m_text.substr(m_pos, 2) == "/*")) {
                return false;
            }
            ++m_pos;
            if (c == '(') {
                ++depth;
            } else if (c == ')' && --depth == 0) {
                return true;
            }
        }
        return false;
    }

private:
    bool literalWord()
    {
        const std::size_t start = m_pos;
        while (!atEnd() && isSqlNameByte(m_text[m_pos])) {
            ++m_pos;
        }
        std::string word(m_text.substr(start, m_pos - start));
        for (char &c : word) {
            if (c >= 'a' && c <= 'z') {
                c = static_cast<char>(c - ('a' - 'A'));
            }
        }
        std::size_t next = m_pos;
        while (next < m_text.size() && isBlank(m_text[next])) {
            ++next;
        }
        const bool call = next < m_text.size() && m_text[next] == '(';
        // Functions of the moment or the session that need no parentheses.
        static constexpr std::string_view bare[] = { "SELECT",
            "CURRENT_TIMESTAMP",
            "CURRENT_DATE",
            "CURRENT_TIME",
            "LOCALTIME",
            "LOCALTIMESTAMP",
            "UTC_TIMESTAMP",
            "UTC_DATE",
            "UTC_TIME",
            "CURRENT_USER",
            "CURRENT_ROLE" };
        return std::find(std::begin(bare), std::end(bare), word) == std::end(bare) && (!call || word == "CONVERT");
    }

    bool namePart()
    {
        if (peek() == '`') {
            return quoted();
        }
        const std::size_t start = m_pos;
        while (!atEnd() && isSqlNameByte(m_text[m_pos])) {
            ++m_pos;
        }
        return m_pos > start;
    }

    std::string_view m_text;
    bool m_backslashEscapes;
    std::size_t m_pos = 0;
};

} // namespace

std::optional<InsertRows> insertRows(std::string_view statement, bool backslashEscapes)
{
    Reader reader(statement, backslashEscapes);
    if (!reader.keyword("INSERT") && !reader.keyword("REPLACE")) {
        return std::nullopt;
    }
    reader.skipBlanks();
    reader.keyword("INTO");
    reader.skipBlanks();
    const std::size_t tableStart = reader.position();
    if (!reader.name()) {
        return std::nullopt;
    }
    const std::string_view table = statement.substr(tableStart, reader.position() - tableStart);
    reader.skipBlanks();
    if (reader.peek() == '(') {
        if (!reader.parenthesised(false)) {
            return std::nullopt;
        }
        reader.skipBlanks();
    }
    if (!reader.keyword("VALUES") && !reader.keyword("VALUE")) {
        return std::nullopt;
    }
    const std::size_t headEnd = reader.position();
    reader.skipBlanks();
    const std::size_t rowsStart = reader.position();
    while (true) {
        if (!reader.parenthesised(true)) {
            return std::nullopt;
        }
        const std::size_t rowsEnd = reader.position();
        reader.skipBlanks();
        if (reader.atEnd()) {
            return InsertRows { statement.substr(0, headEnd), statement.substr(rowsStart, rowsEnd - rowsStart), table };
        }
        if (reader.peek() != ',') {
            return std::nullopt;
        }
        reader.step();
        reader.skipBlanks();
    }
}

} // namespace tallowick::SQL
