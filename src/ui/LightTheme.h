#pragma once

#include <QColor>

class QApplication;

namespace tallowick
{

// The Fusion style with a fixed light palette (the program does not follow a dark desktop theme),
// with padding around button contents and room for a menu button's arrow.
void applyLightTheme(QApplication &app);

// Text colours the palette has no role for: captions and hints, and inline errors.
QColor secondaryTextColor();
QColor errorTextColor();

} // namespace tallowick
