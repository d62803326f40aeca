#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tallowick
{

// Case folding of ASCII letters only: SQL keywords, type names and the server's own names for
// things are ASCII, and a letter of any other script must stay exactly as typed.

inline std::string asciiUpper(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c);
    });
    return result;
}

inline std::string asciiLower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    });
    return result;
}

inline bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view prefix)
{
    const auto fold = [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; };
    return text.size() >= prefix.size()
        && std::equal(prefix.begin(), prefix.end(), text.begin(), [&fold](unsigned char a, unsigned char b) {
               return fold(a) == fold(b);
           });
}

inline bool equalIgnoringAsciiCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && startsWithIgnoringAsciiCase(a, b);
}

// A byte of an unquoted SQL name: ASCII letters, digits, "_" and "$", and every byte of a
// multi-byte UTF-8 character, since names may hold letters of any script.
inline bool isSqlNameByte(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '_'
        || byte == '$' || byte >= 0x80;
}

} // namespace tallowick
