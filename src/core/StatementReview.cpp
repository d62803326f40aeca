#include "core/StatementReview.h"

#include "core/Utf8Text.h"

#include <QChar>
#include <QString>
#include <array>
#include <cstdint>

namespace tallowick::SQL
{

namespace
{

// \s of the pattern under Unicode rules: White_Space plus U+180E, as PCRE2 counts it.
bool isPatternSpace(char32_t c)
{
    return isUnicodeWhitespace(c) || c == 0x180E;
}

// The pattern as a set of live states, advanced one code point at a time. Only the block
// comment is ambiguous (a "*/" may end it or be part of it), so a set of states replaces the
// regular-expression engine's backtracking.
enum StateBit : std::uint8_t {
    betweenTokens = 1 << 0, // accepting
    afterDash = 1 << 1, // "-" seen, "-" must follow
    inLineComment = 1 << 2, // accepting at the end ($)
    afterSlash = 1 << 3, // "/" seen, "*" must follow
    afterCommentOpen = 1 << 4, // "/*" seen, "!" may not follow
    inBlockComment = 1 << 5,
    afterStar = 1 << 6, // "*" seen inside a block comment, "/" would close it
};

std::uint8_t advance(std::uint8_t states, char32_t c)
{
    std::uint8_t next = 0;
    if (states & betweenTokens) {
        if (isPatternSpace(c)) {
            next |= betweenTokens;
        } else if (c == '-') {
            next |= afterDash;
        } else if (c == '#') {
            next |= inLineComment;
        } else if (c == '/') {
            next |= afterSlash;
        }
    }
    if ((states & afterDash) && c == '-') {
        next |= inLineComment;
    }
    if (states & inLineComment) {
        next |= c == '\n' ? betweenTokens : inLineComment;
    }
    if ((states & afterSlash) && c == '*') {
        next |= afterCommentOpen;
    }
    if ((states & inBlockComment) || ((states & afterCommentOpen) && c != '!')) {
        next |= inBlockComment;
        if (c == '*') {
            next |= afterStar;
        }
    }
    if ((states & afterStar) && c == '/') {
        next |= betweenTokens;
    }
    return next;
}

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

// Drops one leading comment. Returns false when the text does not start with a comment, or
// starts a block comment that is never closed.
bool dropLeadingComment(std::string_view &text)
{
    if (startsWith(text, "--") || startsWith(text, "#")) {
        // Only a bare line feed ends a line comment; with CR LF line ends it takes the rest.
        std::size_t pos = 0;
        while ((pos = text.find('\n', pos)) != std::string_view::npos && pos > 0 && text[pos - 1] == '\r') {
            ++pos;
        }
        text = pos == std::string_view::npos ? std::string_view() : text.substr(pos);
        return true;
    }
    if (startsWith(text, "/*")) {
        const std::size_t close = text.find("*/", 2);
        if (close == std::string_view::npos) {
            return false;
        }
        text = text.substr(close + 2);
        return true;
    }
    return false;
}

bool isLetter(char32_t c)
{
    if (c < 0x80) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    }
    return c != 0xFFFD && QChar::isLetter(c);
}

} // namespace

bool commentOnly(std::string_view text)
{
    std::uint8_t states = betweenTokens;
    for (std::size_t i = 0; i < text.size() && states != 0;) {
        const DecodedChar c = decodeUtf8At(text, i);
        states = advance(states, c.codePoint);
        i += c.length;
    }
    return (states & (betweenTokens | inLineComment)) != 0;
}

std::string leadingKeyword(std::string_view statement)
{
    std::string_view text = trimWhitespace(statement);
    while (dropLeadingComment(text)) {
        text = trimWhitespace(text);
    }
    if (startsWith(text, "/*")) {
        return {};
    }
    std::size_t end = 0;
    bool ascii = true;
    while (end < text.size()) {
        const DecodedChar c = decodeUtf8At(text, end);
        if (!isLetter(c.codePoint)) {
            break;
        }
        ascii = ascii && c.codePoint < 0x80;
        end += c.length;
    }
    const std::string_view word = text.substr(0, end);
    if (!ascii) {
        return QString::fromUtf8(word.data(), static_cast<qsizetype>(word.size())).toUpper().toStdString();
    }
    std::string upper(word);
    for (char &c : upper) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - ('a' - 'A'));
        }
    }
    return upper;
}

bool requiresReview(std::string_view statement)
{
    static constexpr std::array<std::string_view, 5> readKeywords { "SELECT", "SHOW", "DESCRIBE", "DESC", "EXPLAIN" };
    const std::string keyword = leadingKeyword(statement);
    for (const std::string_view read : readKeywords) {
        if (keyword == read) {
            return false;
        }
    }
    return true;
}

} // namespace tallowick::SQL
