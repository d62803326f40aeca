#include "ui/WindowGeometry.h"

#include <algorithm>
#include <cmath>

namespace tallowick
{

QSize initialWindowSize(const std::optional<QRect> &availableGeometry)
{
    const QSize screen = availableGeometry ? availableGeometry->size() : QSize(1440, 900);
    const double width = std::min(screen.width() * 0.94, 1460.0);
    const double height = std::min(screen.height() * 0.90, 940.0);
    return QSize(static_cast<int>(std::lround(width)), static_cast<int>(std::lround(height)));
}

} // namespace tallowick
