#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tallowick::SQL
{

// Splits a script into the statements a MySQL command-line client would send, in order.
// Quotes (' " `), comments and client-side DELIMITER lines are honoured; each statement is
// trimmed, keeps its own comments, lacks its delimiter and is never empty or comment-only.
//
// The text is read as UTF-8 bytes in which a CR LF pair is one character that is not a line
// feed: a line comment runs on to the next bare LF, and after CR LF line ends a DELIMITER line is
// only recognised as the very first line. One linear pass; memory proportional to the input.
//
// Throws AppError when a quote or block comment is still open at the end, or when a DELIMITER
// line names no delimiter. Nothing is returned in either case.
std::vector<std::string> statements(std::string_view script);

// One statement of a script, the 1-based line of the script on which its text begins, and the
// byte range [begin, end) its text spans in the script. The delimiter lies outside the range; a
// DELIMITER line met inside the statement lies inside it but is missing from the text.
struct ScriptStatement {
    std::string text;
    std::int64_t line = 1;
    std::size_t begin = 0;
    std::size_t end = 0;

    bool operator==(const ScriptStatement &) const = default;
};

// What running the statement at byte `offset` of `script` sends: the statement whose range holds
// the offset; for an offset between statements (blanks, delimiters, DELIMITER lines, comments of
// no statement) the one before it, and before the first statement the first. A statement that
// `statements` would cut again on its own, one holding semicolons from a DELIMITER block, comes
// between DELIMITER lines of a delimiter it does not contain. Empty when there is nothing to run:
// no statements, or one that reads as a DELIMITER line itself (possible after CR LF line ends).
// Throws AppError as `statements` does.
std::string statementToRunAt(std::string_view script, std::size_t offset);

// The same splitting over a script that arrives in pieces of any size, so a file of any length
// is split with memory for the statement being read and one piece. Pieces may cut anywhere,
// inside a quote, a comment, a CR LF pair, a UTF-8 character or a DELIMITER line; the statements
// are exactly those `statements` gives for the whole text.
class StatementStream
{
public:
    StatementStream();

    // Adds the next bytes of the script; statements they complete become available to `next`.
    // Throws AppError for a DELIMITER line that names no delimiter.
    void feed(std::string_view bytes);
    // Marks the end of the script and makes the last statement available. Throws AppError as
    // `statements` does.
    void finish();
    // Moves the oldest complete statement into `out`; false when none is waiting.
    bool next(ScriptStatement &out);
    // Bytes held for text not yet split: the statement being read and the last partial line.
    std::size_t heldBytes() const { return m_buffer.size() + m_current.size(); }

private:
    enum class State { plain, quote, lineComment, blockComment };

    void scan(std::size_t end, bool final);
    std::size_t scanLineComment(std::size_t i);
    std::size_t scanQuote(std::size_t i);
    std::size_t scanBlockComment(std::size_t i);
    std::size_t scanPlain(std::size_t i);
    std::size_t takeDelimiterLine(std::size_t i);
    bool startsDashComment(std::size_t i) const;
    bool delimiterAt(std::size_t i) const;
    void setDelimiter(std::string_view delimiter);
    void appendSpanUpTo(std::size_t end);
    std::size_t scriptOffset(std::size_t index) const;
    std::int64_t lineAt(std::size_t pos);
    void finishStatement();

    std::string m_buffer; // text received and not yet consumed
    std::string_view m_text; // the part of m_buffer that may be scanned now
    bool m_final = false;
    bool m_needMore = false; // the rule at the scan position needs bytes not received yet
    std::deque<ScriptStatement> m_ready;
    std::string m_current; // the pending statement, assembled from spans of the text
    std::int64_t m_currentLine = 1; // the line on which m_current begins
    std::size_t m_spanStart = 0; // start of the text not yet copied into m_current
    std::size_t m_erased = 0; // script bytes dropped from the front of m_buffer so far
    // Where m_current's pieces came from: (offset in m_current, offset in the script), one entry
    // per stretch of the script, so only a DELIMITER line inside a statement adds a second.
    std::vector<std::pair<std::size_t, std::size_t>> m_pieces;
    std::size_t m_position = 0; // where scanning resumes in m_buffer
    std::size_t m_countedUpTo = 0; // m_buffer position up to which line feeds are counted
    std::int64_t m_linesBefore = 0; // line feeds before m_countedUpTo
    std::string m_delimiter;
    std::array<bool, 256> m_interesting {}; // bytes the plain-text scan has to stop at
    State m_state = State::plain;
    char m_quote = 0;
    bool m_atLineStart = true;
};

} // namespace tallowick::SQL
