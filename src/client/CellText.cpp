#include "client/CellText.h"

namespace tallowick
{

namespace
{

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

std::string hexDisplay(std::string_view bytes)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text = "0x";
    text.reserve(2 + bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0F]);
    }
    return text;
}

bool isBinaryColumn(unsigned int characterSet, unsigned int wireType)
{
    return characterSet == 63 && (wireType == 15 || wireType == 16 || (wireType >= 249 && wireType <= 255));
}

} // namespace tallowick
