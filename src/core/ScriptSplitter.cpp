#include "core/ScriptSplitter.h"

#include "core/AppError.h"
#include "core/StatementReview.h"
#include "core/Utf8Text.h"

#include <QtGlobal>
#include <algorithm>
#include <optional>

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

} // namespace

std::vector<std::string> statements(std::string_view script)
{
    StatementStream stream;
    stream.feed(script);
    stream.finish();
    std::vector<std::string> texts;
    ScriptStatement statement;
    while (stream.next(statement)) {
        texts.push_back(std::move(statement.text));
    }
    return texts;
}

std::string statementToRunAt(std::string_view script, std::size_t offset)
{
    StatementStream stream;
    stream.feed(script);
    stream.finish();
    std::optional<ScriptStatement> chosen;
    for (ScriptStatement statement; stream.next(statement);) {
        if (chosen && statement.begin > offset) {
            break;
        }
        chosen = std::move(statement);
    }
    if (!chosen) {
        return {};
    }
    const auto splitsBackInto = [&chosen](const std::string &text) {
        try {
            const std::vector<std::string> again = statements(text);
            return again.size() == 1 && again.front() == chosen->text;
        } catch (const AppError &) {
            return false;
        }
    };
    if (splitsBackInto(chosen->text)) {
        return std::move(chosen->text);
    }
    std::string delimiter = "$$";
    while (chosen->text.find(delimiter) != std::string::npos) {
        delimiter += '$';
    }
    std::string wrapped = "DELIMITER " + delimiter + "\n" + chosen->text + "\n" + delimiter;
    // Only a text whose first line reads as a DELIMITER line resists both forms; the server
    // would refuse it anyway.
    return splitsBackInto(wrapped) ? wrapped : std::string();
}

StatementStream::StatementStream()
{
    setDelimiter(";");
}

void StatementStream::feed(std::string_view bytes)
{
    // Only whole lines are scanned before the end: every look-ahead of the rules (CR LF, "-- ",
    // "*/", a doubled quote, a delimiter, a DELIMITER line) then finds its next byte in view. Only
    // the new bytes are searched, so a long line costs one pass, not one per piece.
    const std::size_t lineFeed = bytes.rfind('\n');
    m_buffer.append(bytes);
    if (lineFeed != std::string_view::npos) {
        scan(m_buffer.size() - bytes.size() + lineFeed + 1, false);
    }
}

void StatementStream::finish()
{
    scan(m_buffer.size(), true);
    if (m_state == State::quote || m_state == State::blockComment) {
        throw AppError("The SQL contains an unterminated string, identifier, or comment.");
    }
    finishStatement();
}

bool StatementStream::next(ScriptStatement &out)
{
    if (m_ready.empty()) {
        return false;
    }
    out = std::move(m_ready.front());
    m_ready.pop_front();
    return true;
}

void StatementStream::scan(std::size_t end, bool final)
{
    m_text = std::string_view(m_buffer).substr(0, end);
    m_final = final;
    m_needMore = false;
    std::size_t i = m_position;
    while (i < end && !m_needMore) {
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
    // Keep what the statement needs, and drop the scanned text from the buffer.
    appendSpanUpTo(i);
    lineAt(i);
    m_buffer.erase(0, i);
    m_erased += i;
    m_text = {};
    m_position = 0;
    m_spanStart = 0;
    m_countedUpTo = 0;
}

std::size_t StatementStream::scanLineComment(std::size_t i)
{
    const std::size_t lineFeed = nextBareLineFeed(m_text, i);
    if (lineFeed == m_text.size()) {
        return lineFeed;
    }
    m_state = State::plain;
    m_atLineStart = true;
    return lineFeed + 1;
}

std::size_t StatementStream::scanQuote(std::size_t i)
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

std::size_t StatementStream::scanBlockComment(std::size_t i)
{
    const std::size_t close = m_text.find("*/", i);
    if (close == std::string_view::npos) {
        return m_text.size();
    }
    m_state = State::plain;
    return close + 2;
}

std::size_t StatementStream::scanPlain(std::size_t i)
{
    const std::size_t n = m_text.size();
    if (m_atLineStart) {
        if (const std::size_t next = takeDelimiterLine(i); next != i || m_needMore) {
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
        if (!m_final && i + m_delimiter.size() > n
            && m_text.substr(i) == std::string_view(m_delimiter).substr(0, n - i)) {
            // A delimiter that holds a line feed (from a CR LF DELIMITER line) may go on in the
            // next piece.
            m_needMore = true;
            return i;
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
std::size_t StatementStream::takeDelimiterLine(std::size_t i)
{
    const std::size_t lineEnd = nextBareLineFeed(m_text, i);
    const std::size_t blanks = m_text.find_first_not_of(" \t", i);
    if (blanks == std::string_view::npos || blanks >= lineEnd) {
        return i;
    }
    if (lineEnd == m_text.size() && !m_final && startsWithWord(m_text.substr(blanks), "DELIMITER")) {
        // After CR LF line ends the line runs to a bare line feed that is not here yet.
        m_needMore = true;
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
    if (trimWhitespace(m_current).empty()) {
        // Nothing of a statement yet: the next one starts after this line, and so does its line.
        m_current.clear();
    }
    m_spanStart = lineEnd == m_text.size() ? lineEnd : lineEnd + 1;
    m_atLineStart = true;
    return m_spanStart;
}

// "--" starts a comment only when a blank or the end of the text follows it.
bool StatementStream::startsDashComment(std::size_t i) const
{
    if (i + 1 >= m_text.size() || m_text[i + 1] != '-') {
        return false;
    }
    if (i + 2 >= m_text.size()) {
        return true;
    }
    return isUnicodeWhitespace(decodeUtf8At(m_text, i + 2).codePoint);
}

bool StatementStream::delimiterAt(std::size_t i) const
{
    if (m_text.compare(i, m_delimiter.size(), m_delimiter) != 0) {
        return false;
    }
    // A delimiter ending in CR does not match the first half of a CR LF pair.
    const std::size_t end = i + m_delimiter.size();
    return !(m_delimiter.back() == '\r' && end < m_text.size() && m_text[end] == '\n');
}

void StatementStream::setDelimiter(std::string_view delimiter)
{
    m_delimiter = std::string(delimiter);
    m_interesting.fill(false);
    for (const char c : std::string_view("'\"`#-/\n\r")) {
        m_interesting[static_cast<unsigned char>(c)] = true;
    }
    m_interesting[static_cast<unsigned char>(m_delimiter.front())] = true;
}

void StatementStream::appendSpanUpTo(std::size_t end)
{
    if (end > m_spanStart) {
        if (m_current.empty()) {
            m_currentLine = lineAt(m_spanStart) + 1;
            m_pieces.clear();
        }
        const std::size_t from = m_erased + m_spanStart;
        if (m_pieces.empty() || m_pieces.back().second + (m_current.size() - m_pieces.back().first) != from) {
            m_pieces.emplace_back(m_current.size(), from);
        }
        m_current.append(m_text.substr(m_spanStart, end - m_spanStart));
    }
    m_spanStart = end;
}

// Where byte `index` of m_current lies in the script.
std::size_t StatementStream::scriptOffset(std::size_t index) const
{
    Q_ASSERT(!m_pieces.empty() && m_pieces.front().first == 0);
    const auto piece = std::prev(std::upper_bound(m_pieces.begin(),
        m_pieces.end(),
        index,
        [](std::size_t value, const std::pair<std::size_t, std::size_t> &entry) { return value < entry.first; }));
    return piece->second + (index - piece->first);
}

// Line feeds before `pos` in the whole script; `pos` never moves back within one scan.
std::int64_t StatementStream::lineAt(std::size_t pos)
{
    m_linesBefore += std::count(m_buffer.begin() + static_cast<std::ptrdiff_t>(m_countedUpTo),
        m_buffer.begin() + static_cast<std::ptrdiff_t>(pos),
        '\n');
    m_countedUpTo = pos;
    return m_linesBefore;
}

void StatementStream::finishStatement()
{
    const std::string_view statement = trimWhitespace(m_current);
    if (!statement.empty() && !commentOnly(statement)) {
        const auto leading = static_cast<std::ptrdiff_t>(statement.data() - m_current.data());
        const std::int64_t line = m_currentLine + std::count(m_current.begin(), m_current.begin() + leading, '\n');
        const auto first = static_cast<std::size_t>(leading);
        m_ready.push_back(
            { std::string(statement), line, scriptOffset(first), scriptOffset(first + statement.size() - 1) + 1 });
    }
    m_current.clear();
}

} // namespace tallowick::SQL
