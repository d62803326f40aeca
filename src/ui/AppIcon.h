#pragma once

#include <QImage>
#include <cstdint>
#include <string>

namespace tallowick
{

// The application icon, `size` pixels square (designed at 1024 x 1024): a very dark blue rounded
// square with glowing teal row strokes (a stylised stack of table rows) and three dots beneath
// them. Smaller sizes are painted at their size, not scaled down from the large picture.
QImage drawAppIcon(int size = 1024);

// Writes drawAppIcon(size) as a PNG file. Throws AppError when the size is outside 16 to 1024 or
// the file cannot be written.
void createAppIcon(const std::string &path, std::int64_t size = 1024);

} // namespace tallowick
