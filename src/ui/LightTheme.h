#pragma once

class QApplication;

namespace tallowick
{

// The Fusion style with a fixed light palette: the program does not follow a dark desktop theme.
void applyLightTheme(QApplication &app);

} // namespace tallowick
