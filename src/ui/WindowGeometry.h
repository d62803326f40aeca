#pragma once

#include <QRect>
#include <QSize>
#include <optional>

namespace tallowick
{

// The main window's first size: 94 % of the screen's available width (at most 1460) and 90 % of
// its available height (at most 940), from 1440 x 900 when there is no screen. Never below the
// window's minimum size.
QSize initialWindowSize(const std::optional<QRect> &availableGeometry);

inline constexpr QSize minimumWindowSize { 1080, 680 };

} // namespace tallowick
