#pragma once

#include <string>
#include <string_view>

namespace tallowick
{

// UTF-8 text with every invalid sequence replaced by U+FFFD (one per maximal invalid subpart),
// never dropped and never an error. Valid input comes back unchanged.
std::string repairedUtf8(std::string_view bytes);

// "0x" followed by two upper-case hexadecimal digits per byte: how binary values are shown.
std::string hexDisplay(std::string_view bytes);

// The binary character set (63) with a string, bit, blob or geometry wire type. TEXT columns
// share the blob type numbers but not the character set, so they stay text.
bool isBinaryColumn(unsigned int characterSet, unsigned int wireType);

} // namespace tallowick
