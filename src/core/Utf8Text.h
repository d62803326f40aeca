#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tallowick
{

// Byte-level helpers over UTF-8 text. A malformed sequence counts as one character that is
// neither blank nor a letter, so bad input never matches more than it should.

struct DecodedChar {
    char32_t codePoint;
    std::size_t length; // bytes taken by the character, at least 1
};

DecodedChar decodeUtf8At(std::string_view text, std::size_t pos);

// Start of the character that ends just before `end` (which must be greater than zero).
std::size_t previousCharStart(std::string_view text, std::size_t end);

// The Unicode White_Space set: the ASCII blanks and line breaks, NEL, and the space and
// separator characters.
bool isUnicodeWhitespace(char32_t c);

// Trims spaces and tabs only.
std::string_view trimSpacesAndTabs(std::string_view text);

// Trims every white-space and line-break character (Unicode White_Space).
std::string_view trimWhitespace(std::string_view text);

// UTF-8 text with every invalid sequence replaced by U+FFFD (one per maximal invalid subpart),
// never dropped and never an error. Valid input comes back unchanged.
std::string repairedUtf8(std::string_view bytes);

bool isValidUtf8(std::string_view bytes);

// Where `text` stops holding whole characters: for text arriving in pieces, a character cut by
// the end of a piece is left for the next one.
std::size_t wholeCharactersEnd(std::string_view text);

} // namespace tallowick
