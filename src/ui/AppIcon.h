#pragma once

#include <QImage>
#include <string>

namespace tallowick
{

// The application icon at 1024 x 1024: a very dark blue rounded square with glowing teal row
// strokes (a stylised stack of table rows) and three dots beneath them.
QImage drawAppIcon();

// Writes drawAppIcon() as a PNG file. Throws AppError when the file cannot be written.
void createAppIcon(const std::string &path);

} // namespace tallowick
