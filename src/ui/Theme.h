#pragma once

#include <QColor>
#include <QString>
#include <functional>
#include <optional>

class QApplication;
class QWidget;

namespace tallowick
{

// What the user picked under View › Theme. System follows the desktop's colour-scheme setting.
enum class ThemeChoice { system, light, dark };
// What is on screen.
enum class Appearance { light, dark };

// The one place the program's colours come from. The palette roles carry the plain widgets; these
// carry what the palette has no role for (captions, errors, the accent's tints, SQL colours).
struct ThemeColors {
    QColor window;
    QColor base; // fields, grids, tiles
    QColor alternateBase;
    QColor button;
    QColor text;
    QColor strongText; // the welcome page's headline
    QColor bodyText; // longer passages a little softer than text
    QColor secondaryText; // captions and hints
    QColor faintText; // placeholders, NULL cells, footers
    QColor disabledText;
    QColor mid; // grid lines and quiet details
    QColor error;
    QColor accent; // buttons, focus rings, the caret, selection
    QColor accentHover;
    QColor accentText; // the accent used for text and symbols on the window colour
    QColor onAccent; // text on an accent-filled button
    QColor selected; // a chosen row or mode button
    QColor selectedBorder;
    QColor selectedText;
    QColor hover;
    QColor border;
    QColor sidebar;
    QColor toolTip;
    QColor idleState; // a connection's status dot
    QColor busyState;
    QColor readyState;
    QColor sqlKeyword;
    QColor sqlQuoted;
    QColor sqlComment;
};

const ThemeColors &colorsFor(Appearance appearance);
// The colours of the appearance applied last (light before any is applied).
const ThemeColors &themeColors();
Appearance currentAppearance();

// The freedesktop portal's org.freedesktop.appearance color-scheme: 1 prefers dark, 2 prefers
// light, 0 has no preference. Anything but a dark preference, or no answer, gives light.
Appearance appearanceFor(ThemeChoice choice, std::optional<uint> desktopColorScheme);

// The choice's name as kept between runs, and back; an unknown name reads as system.
QString choiceName(ThemeChoice choice);
ThemeChoice choiceFromName(const QString &name);

// Sets the Fusion-based workspace style: padding around button contents and room for a menu
// button's arrow. Once, before the first window.
void applyWorkspaceStyle(QApplication &app);
// Sets the application palette and the colours themeColors() returns. Widgets that build style
// sheets from those colours rebuild them through followTheme().
void applyAppearance(QApplication &app, Appearance appearance);

// Calls `restyle` now and again after every change of appearance, for as long as `widget` lives.
// For style sheets, pixmaps and formats made from themeColors(), which a palette change does not
// reach by itself.
void followTheme(QWidget *widget, std::function<void()> restyle);

// Text colours the palette has no role for: captions and hints, and inline errors.
inline QColor secondaryTextColor()
{
    return themeColors().secondaryText;
}
inline QColor errorTextColor()
{
    return themeColors().error;
}

} // namespace tallowick
