#pragma once

#include <optional>
#include <string>
#include <string_view>

// The one quoting layer: every name and value the program puts into SQL passes through here.
// Generated SQL must mean the same under any SQL mode and connection character set, so names
// are always back-quoted and values that hold a character whose meaning depends on the
// server's escaping rules are sent as hexadecimal UTF-8 instead. Backslashes are never relied
// on as escapes.
namespace tallowick::SQL
{

// The name back-quoted, inner back-quotes doubled.
std::string identifier(std::string_view name);

// `database`.`table`
std::string qualified(std::string_view database, std::string_view table);

// A complete SQL value expression: NULL for no value, '' for empty text, a CONVERT of a
// hexadecimal literal when the text holds an apostrophe, backslash, NUL, LF or CR, and the
// text in apostrophes otherwise.
std::string value(const std::optional<std::string> &text);
std::string value(std::string_view text);
inline std::string value(const std::string &text)
{
    return value(std::string_view(text));
}
inline std::string value(const char *text)
{
    return value(std::string_view(text));
}

// A literal usable after DEFAULT in a column definition, where a function call is refused:
// the bare X'..' literal instead of the CONVERT wrapper.
std::string defaultLiteral(std::string_view text);

// Literals of raw bytes for the schema-and-data export, appended to `out` to keep long exports
// cheap: X'..' (binary data) and CONVERT(X'..' USING utf8mb4) (text), lower-case digits.
void appendHexLiteral(std::string &out, std::string_view bytes);
void appendUtf8HexLiteral(std::string &out, std::string_view bytes);

} // namespace tallowick::SQL
