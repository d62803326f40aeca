#pragma once

#include "core/Utf8Text.h"

#include <string>
#include <string_view>

namespace tallowick
{

// "0x" followed by two upper-case hexadecimal digits per byte: how binary values are shown.
std::string hexDisplay(std::string_view bytes);

// A value as the grid shows it: binary as hexDisplay, text with invalid UTF-8 repaired.
std::string cellText(std::string_view bytes, bool binary);

// The binary character set (63) with a string, bit, blob or geometry wire type. TEXT columns
// share the blob type numbers but not the character set, so they stay text.
bool isBinaryColumn(unsigned int characterSet, unsigned int wireType);

} // namespace tallowick
