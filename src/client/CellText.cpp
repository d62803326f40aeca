#include "client/CellText.h"

namespace tallowick
{

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

std::string cellText(std::string_view bytes, bool binary)
{
    return binary ? hexDisplay(bytes) : repairedUtf8(bytes);
}

bool isBinaryColumn(unsigned int characterSet, unsigned int wireType)
{
    return characterSet == 63 && (wireType == 15 || wireType == 16 || (wireType >= 249 && wireType <= 255));
}

} // namespace tallowick
