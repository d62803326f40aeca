#include "ui/ProfileColors.h"

#include <array>
#include <utility>

namespace tallowick
{

namespace
{

struct NamedColor {
    const char *name;
    QRgb rgb;
};

constexpr std::array<NamedColor, 7> palette { {
    { "blue", 0x2f6fde },
    { "teal", 0x0f8f87 },
    { "green", 0x2f9a48 },
    { "orange", 0xd9822b },
    { "red", 0xd14343 },
    { "purple", 0x8a4fd6 },
    { "gray", 0x6b7280 },
} };

} // namespace

QStringList profileColorNames()
{
    QStringList names;
    for (const NamedColor &color : palette) {
        names << QString::fromLatin1(color.name);
    }
    return names;
}

QColor profileColor(const std::string &name)
{
    for (const NamedColor &color : palette) {
        if (name == color.name) {
            return QColor(color.rgb);
        }
    }
    return QColor(palette.front().rgb);
}

} // namespace tallowick
