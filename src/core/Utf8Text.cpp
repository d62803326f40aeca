#include "core/Utf8Text.h"

#include <string>

namespace tallowick
{

namespace
{

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

// Continuation-byte range allowed right after a lead byte; later continuations are 80..BF.
struct LeadByte {
    int continuations; // -1: not a valid lead byte
    unsigned char firstLow;
    unsigned char firstHigh;
};

LeadByte classify(unsigned char lead)
{
    if (lead >= 0xC2 && lead <= 0xDF) {
        return { 1, 0x80, 0xBF };
    }
    if (lead == 0xE0) {
        return { 2, 0xA0, 0xBF };
    }
    if (lead == 0xED) {
        return { 2, 0x80, 0x9F }; // no surrogates
    }
    if (lead >= 0xE1 && lead <= 0xEF) {
        return { 2, 0x80, 0xBF };
    }
    if (lead == 0xF0) {
        return { 3, 0x90, 0xBF };
    }
    if (lead >= 0xF1 && lead <= 0xF3) {
        return { 3, 0x80, 0xBF };
    }
    if (lead == 0xF4) {
        return { 3, 0x80, 0x8F }; // nothing above U+10FFFF
    }
    return { -1, 0, 0 };
}

// Length of the valid sequence at `pos`, or 0 with `consumed` set to the maximal invalid subpart.
std::size_t validSequenceAt(std::string_view bytes, std::size_t pos, std::size_t &consumed)
{
    const auto lead = static_cast<unsigned char>(bytes[pos]);
    if (lead < 0x80) {
        return 1;
    }
    const LeadByte kind = classify(lead);
    if (kind.continuations < 0) {
        consumed = 1;
        return 0;
    }
    std::size_t next = pos + 1;
    for (int k = 0; k < kind.continuations; ++k) {
        const unsigned char low = k == 0 ? kind.firstLow : 0x80;
        const unsigned char high = k == 0 ? kind.firstHigh : 0xBF;
        if (next >= bytes.size() || static_cast<unsigned char>(bytes[next]) < low
            || static_cast<unsigned char>(bytes[next]) > high) {
            consumed = next - pos;
            return 0;
        }
        ++next;
    }
    return next - pos;
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

std::string repairedUtf8(std::string_view bytes)
{
    std::size_t pos = 0;
    std::size_t consumed = 0;
    // Fast path: most values are valid and are returned as they are.
    while (pos < bytes.size()) {
        const std::size_t length = validSequenceAt(bytes, pos, consumed);
        if (length == 0) {
            break;
        }
        pos += length;
    }
    if (pos == bytes.size()) {
        return std::string(bytes);
    }
    std::string repaired(bytes.substr(0, pos));
    while (pos < bytes.size()) {
        const std::size_t length = validSequenceAt(bytes, pos, consumed);
        if (length == 0) {
            repaired += replacementCharacter;
            pos += consumed;
        } else {
            repaired.append(bytes.substr(pos, length));
            pos += length;
        }
    }
    return repaired;
}

bool isValidUtf8(std::string_view bytes)
{
    std::size_t pos = 0;
    std::size_t consumed = 0;
    while (pos < bytes.size()) {
        const std::size_t length = validSequenceAt(bytes, pos, consumed);
        if (length == 0) {
            return false;
        }
        pos += length;
    }
    return true;
}

std::size_t wholeCharactersEnd(std::string_view text)
{
    std::size_t lead = text.size();
    while (lead > 0 && text.size() - lead < 4 && (static_cast<unsigned char>(text[lead - 1]) & 0xC0) == 0x80) {
        --lead;
    }
    if (lead == 0) {
        return text.size();
    }
    const auto first = static_cast<unsigned char>(text[lead - 1]);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    return text.size() - (lead - 1) < length ? lead - 1 : text.size();
}

} // namespace tallowick
