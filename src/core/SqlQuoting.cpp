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

std::string lowerHex(std::string_view bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex.push_back(digits[byte >> 4]);
        hex.push_back(digits[byte & 0x0F]);
    }
    return hex;
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
        return "CONVERT(X'" + lowerHex(text) + "' USING utf8mb4)";
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
        return "X'" + lowerHex(text) + "'";
    }
    return value(text);
}

} // namespace tallowick::SQL
