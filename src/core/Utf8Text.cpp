#include "core/Utf8Text.h"

namespace tallowick
{

namespace
{

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

} // namespace

DecodedChar decodeUtf8At(std::string_view text, std::size_t pos)
{
    const auto lead = static_cast<unsigned char>(text[pos]);
    if (lead < 0x80) {
        return { lead, 1 };
    }
    std::size_t length = 0;
    char32_t value = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        value = lead & 0x07;
    } else {
        return { 0xFFFD, 1 };
    }
    if (pos + length > text.size()) {
        return { 0xFFFD, 1 };
    }
    for (std::size_t k = 1; k < length; ++k) {
        const auto byte = static_cast<unsigned char>(text[pos + k]);
        if (!isContinuation(byte)) {
            return { 0xFFFD, 1 };
        }
        value = (value << 6) | (byte & 0x3F);
    }
    return { value, length };
}

std::size_t previousCharStart(std::string_view text, std::size_t end)
{
    std::size_t start = end - 1;
    const std::size_t limit = end >= 4 ? end - 4 : 0;
    while (start > limit && isContinuation(static_cast<unsigned char>(text[start]))) {
        --start;
    }
    // Only accept the candidate if it really decodes to a character ending at `end`.
    if (decodeUtf8At(text, start).length == end - start) {
        return start;
    }
    return end - 1;
}

bool isUnicodeWhitespace(char32_t c)
{
    if (c <= 0x20) {
        return c == 0x20 || (c >= 0x09 && c <= 0x0D);
    }
    if (c < 0x85) {
        return false;
    }
    switch (c) {
    case 0x85:
    case 0xA0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
        return true;
    default:
        return c >= 0x2000 && c <= 0x200A;
    }
}

std::string_view trimSpacesAndTabs(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

std::string_view trimWhitespace(std::string_view text)
{
    std::size_t begin = 0;
    while (begin < text.size()) {
        const DecodedChar c = decodeUtf8At(text, begin);
        if (!isUnicodeWhitespace(c.codePoint)) {
            break;
        }
        begin += c.length;
    }
    std::size_t end = text.size();
    while (end > begin) {
        const std::size_t start = previousCharStart(text, end);
        if (!isUnicodeWhitespace(decodeUtf8At(text, start).codePoint)) {
            break;
        }
        end = start;
    }
    return text.substr(begin, end - begin);
}

} // namespace tallowick
