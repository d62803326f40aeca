#include "core/SqlQuoting.h"

namespace tallowick::SQL
{

namespace
{

bool needsHexLiteral(std::string_view text)
{
    for (const char c : text) {
        if (c == '\'' || c == '\\' || c == '\0' || c == '\n' || c == '\r') {
            return true;
        }
    }
    return false;
}

void appendLowerHex(std::string &out, std::string_view bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    const std::size_t start = out.size();
    out.resize(start + bytes.size() * 2);
    char *cursor = out.data() + start;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        *cursor++ = digits[byte >> 4];
        *cursor++ = digits[byte & 0x0F];
    }
}

} // namespace

std::string identifier(std::string_view name)
{
    std::string quoted;
    quoted.reserve(name.size() + 2);
    quoted.push_back('`');
    for (const char c : name) {
        quoted.push_back(c);
        if (c == '`') {
            quoted.push_back('`');
        }
    }
    quoted.push_back('`');
    return quoted;
}

std::string qualified(std::string_view database, std::string_view table)
{
    return identifier(database) + "." + identifier(table);
}

std::string value(const std::optional<std::string> &text)
{
    if (!text) {
        return "NULL";
    }
    return value(std::string_view(*text));
}

std::string value(std::string_view text)
{
    if (text.empty()) {
        return "''";
    }
    if (needsHexLiteral(text)) {
        std::string literal;
        appendUtf8HexLiteral(literal, text);
        return literal;
    }
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted.push_back('\'');
    quoted.append(text);
    quoted.push_back('\'');
    return quoted;
}

std::string defaultLiteral(std::string_view text)
{
    // Same decision as value(); only the CONVERT wrapper is dropped.
    if (!text.empty() && needsHexLiteral(text)) {
        std::string literal;
        appendHexLiteral(literal, text);
        return literal;
    }
    return value(text);
}

void appendHexLiteral(std::string &out, std::string_view bytes)
{
    out += "X'";
    appendLowerHex(out, bytes);
    out += '\'';
}

void appendUtf8HexLiteral(std::string &out, std::string_view bytes)
{
    out += "CONVERT(X'";
    appendLowerHex(out, bytes);
    out += "' USING utf8mb4)";
}

} // namespace tallowick::SQL
