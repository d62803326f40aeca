#include "core/ScriptSplitter.h"

#include "core/AppError.h"
#include "core/StatementReview.h"
#include "core/Utf8Text.h"

#include <array>

namespace tallowick::SQL
{

namespace
{

bool isCrLfAt(std::string_view text, std::size_t pos)
{
    return text[pos] == '\r' && pos + 1 < text.size() && text[pos + 1] == '\n';
}

std::size_t charLengthAt(std::string_view text, std::size_t pos)
{
    return isCrLfAt(text, pos) ? 2 : 1;
}

// The next bare line feed at or after `from` (a LF preceded by CR belongs to a CR LF pair), or
// the end of the text.
std::size_t nextBareLineFeed(std::string_view text, std::size_t from)
{
    std::size_t pos = from;
    while ((pos = text.find('\n', pos)) != std::string_view::npos) {
        if (pos == 0 || text[pos - 1] != '\r') {
            return pos;
        }
        ++pos;
    }
    return text.size();
}

// Whether `text` begins with `word` (upper-case ASCII), matching letters in any case.
bool startsWithWord(std::string_view text, std::string_view word)
{
    if (text.size() < word.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        char c = text[i];
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - ('a' - 'A'));
        }
        if (c != word[i]) {
            return false;
        }
    }
    return true;
}

class Splitter
{
public:
    explicit Splitter(std::string_view script)
        : m_text(script)
    {
        setDelimiter(";");
    }

    std::vector<std::string> run()
    {
        const std::size_t n = m_text.size();
        std::size_t i = 0;
        while (i < n) {
            switch (m_state) {
            case State::lineComment:
                i = scanLineComment(i);
                break;
            case State::quote:
                i = scanQuote(i);
                break;
            case State::blockComment:
                i = scanBlockComment(i);
                break;
            case State::plain:
                i = scanPlain(i);
                break;
            }
        }
        if (m_state == State::quote || m_state == State::blockComment) {
            throw AppError("The SQL contains an unterminated string, identifier, or comment.");
        }
        appendSpanUpTo(n);
        finishStatement();
        return std::move(m_statements);
    }

private:
    enum class State { plain, quote, lineComment, blockComment };

    std::size_t scanLineComment(std::size_t i)
    {
        const std::size_t lineFeed = nextBareLineFeed(m_text, i);
        if (lineFeed == m_text.size()) {
            return lineFeed;
        }
        m_state = State::plain;
        m_atLineStart = true;
        return lineFeed + 1;
    }

    std::size_t scanQuote(std::size_t i)
    {
        const std::size_t n = m_text.size();
        while (i < n) {
            const char c = m_text[i];
            if (c == '\\' && i + 1 < n) {
                // The backslash protects the next character in every kind of quote.
                i += 1 + charLengthAt(m_text, i + 1);
            } else if (c == m_quote) {
                if (i + 1 < n && m_text[i + 1] == m_quote) {
                    i += 2;
                } else {
                    m_state = State::plain;
                    return i + 1;
                }
            } else {
                ++i;
            }
        }
        return n;
    }

    std::size_t scanBlockComment(std::size_t i)
    {
        const std::size_t close = m_text.find("*/", i);
        if (close == std::string_view::npos) {
            return m_text.size();
        }
        m_state = State::plain;
        return close + 2;
    }

    std::size_t scanPlain(std::size_t i)
    {
        const std::size_t n = m_text.size();
        if (m_atLineStart) {
            if (const std::size_t next = takeDelimiterLine(i); next != i) {
                return next;
            }
        }
        while (i < n) {
            const auto byte = static_cast<unsigned char>(m_text[i]);
            if (!m_interesting[byte]) {
                m_atLineStart = false;
                ++i;
                continue;
            }
            const char c = m_text[i];
            m_atLineStart = c == '\n';
            if (c == '\'' || c == '"' || c == '`') {
                m_quote = c;
                m_state = State::quote;
                return i + 1;
            }
            if (c == '#' || (c == '-' && startsDashComment(i))) {
                m_state = State::lineComment;
                return i + 1;
            }
            if (c == '/' && i + 1 < n && m_text[i + 1] == '*') {
                m_state = State::blockComment;
                return i + 2;
            }
            if (delimiterAt(i)) {
                appendSpanUpTo(i);
                finishStatement();
                m_spanStart = i + m_delimiter.size();
                return m_spanStart;
            }
            i += charLengthAt(m_text, i);
            if (m_atLineStart) {
                return i;
            }
        }
        return n;
    }

    // At a line start: when the line is a DELIMITER command, adopt the new delimiter, drop the
    // line from the statement text and return where the next line begins. Otherwise return `i`.
    std::size_t takeDelimiterLine(std::size_t i)
    {
        const std::size_t lineEnd = nextBareLineFeed(m_text, i);
        const std::size_t blanks = m_text.find_first_not_of(" \t", i);
        if (blanks == std::string_view::npos || blanks >= lineEnd) {
            return i;
        }
        const std::string_view line = trimSpacesAndTabs(m_text.substr(i, lineEnd - i));
        // The bare word names no delimiter: refuse it rather than send it to the server.
        if (line.size() == 9 && startsWithWord(line, "DELIMITER")) {
            throw AppError("DELIMITER cannot be empty.");
        }
        if (!startsWithWord(line, "DELIMITER ")) {
            return i;
        }
        const std::string_view delimiter = trimSpacesAndTabs(line.substr(10));
        if (delimiter.empty()) {
            throw AppError("DELIMITER cannot be empty.");
        }
        setDelimiter(delimiter);
        appendSpanUpTo(i);
        m_spanStart = lineEnd == m_text.size() ? lineEnd : lineEnd + 1;
        m_atLineStart = true;
        return m_spanStart;
    }

    // "--" starts a comment only when a blank or the end of the text follows it.
    bool startsDashComment(std::size_t i) const
    {
        if (i + 1 >= m_text.size() || m_text[i + 1] != '-') {
            return false;
        }
        if (i + 2 >= m_text.size()) {
            return true;
        }
        return isUnicodeWhitespace(decodeUtf8At(m_text, i + 2).codePoint);
    }

    bool delimiterAt(std::size_t i) const
    {
        if (m_text.compare(i, m_delimiter.size(), m_delimiter) != 0) {
            return false;
        }
        // A delimiter ending in CR does not match the first half of a CR LF pair.
        const std::size_t end = i + m_delimiter.size();
        return !(m_delimiter.back() == '\r' && end < m_text.size() && m_text[end] == '\n');
    }

    void setDelimiter(std::string_view delimiter)
    {
        m_delimiter = std::string(delimiter);
        m_interesting.fill(false);
        for (const char c : std::string_view("'\"`#-/\n\r")) {
            m_interesting[static_cast<unsigned char>(c)] = true;
        }
        m_interesting[static_cast<unsigned char>(m_delimiter.front())] = true;
    }

    void appendSpanUpTo(std::size_t end)
    {
        if (end > m_spanStart) {
            m_current.append(m_text.substr(m_spanStart, end - m_spanStart));
        }
        m_spanStart = end;
    }

    void finishStatement()
    {
        const std::string_view statement = trimWhitespace(m_current);
        if (!statement.empty() && !commentOnly(statement)) {
            m_statements.emplace_back(statement);
        }
        m_current.clear();
    }

    std::string_view m_text;
    std::vector<std::string> m_statements;
    std::string m_current; // the pending statement, assembled from spans of the text
    std::size_t m_spanStart = 0; // start of the text not yet copied into m_current
    std::string m_delimiter;
    std::array<bool, 256> m_interesting {}; // bytes the plain-text scan has to stop at
    State m_state = State::plain;
    char m_quote = 0;
    bool m_atLineStart = true;
};

} // namespace

std::vector<std::string> statements(std::string_view script)
{
    return Splitter(script).run();
}

} // namespace tallowick::SQL
