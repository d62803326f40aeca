#include "ui/Theme.h"

#include <QApplication>
#include <QPalette>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <QWidget>
#include <algorithm>
#include <vector>

namespace tallowick
{

namespace
{

// Room on each side of a push button's icon and text; Fusion leaves an icon touching the frame.
constexpr int buttonSidePadding = 12;
// Room at a menu button's right end for its arrow.
constexpr int menuArrowRoom = 14;
constexpr int menuArrowSize = 9;

// A tool button whose whole face opens its menu, with a text beside or instead of its icon.
bool isTextMenuButton(const QStyleOption *option)
{
    const auto *button = qstyleoption_cast<const QStyleOptionToolButton *>(option);
    return button && button->features.testFlag(QStyleOptionToolButton::HasMenu)
        && !button->features.testFlag(QStyleOptionToolButton::MenuButtonPopup)
        && button->toolButtonStyle != Qt::ToolButtonIconOnly && !button->text.isEmpty();
}

// Fusion with two corrections: buttons keep padding around their contents, and a menu button's
// arrow gets a place of its own beside the text instead of being drawn over its last letter.
class WorkspaceStyle final : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;

    QSize sizeFromContents(
        ContentsType type, const QStyleOption *option, const QSize &contents, const QWidget *widget) const override
    {
        QSize size = QProxyStyle::sizeFromContents(type, option, contents, widget);
        if (type == CT_PushButton) {
            const auto *button = qstyleoption_cast<const QStyleOptionButton *>(option);
            if (button && !button->text.isEmpty()) {
                size.setWidth(std::max(size.width(), contents.width() + 2 * buttonSidePadding));
            }
        } else if (type == CT_ToolButton && isTextMenuButton(option)) {
            size.rwidth() += menuArrowRoom;
        }
        return size;
    }

    void drawComplexControl(ComplexControl control,
        const QStyleOptionComplex *option,
        QPainter *painter,
        const QWidget *widget) const override
    {
        if (control != CC_ToolButton || !isTextMenuButton(option)) {
            QProxyStyle::drawComplexControl(control, option, painter, widget);
            return;
        }
        const auto *button = qstyleoption_cast<const QStyleOptionToolButton *>(option);
        // The face alone, then the label left of the arrow's room, then the arrow centred in it.
        QStyleOptionToolButton face = *button;
        face.features &= ~QStyleOptionToolButton::HasMenu;
        face.text.clear();
        face.icon = QIcon();
        QProxyStyle::drawComplexControl(control, &face, painter, widget);
        const int frame = proxy()->pixelMetric(PM_DefaultFrameWidth, option, widget);
        QStyleOptionToolButton label = *button;
        label.rect = button->rect.adjusted(frame, frame, -frame - menuArrowRoom + 4, -frame);
        proxy()->drawControl(CE_ToolButtonLabel, &label, painter, widget);
        QStyleOption arrow = *button;
        arrow.rect = QRect(button->rect.right() - frame - menuArrowRoom + 2,
            button->rect.center().y() - menuArrowSize / 2,
            menuArrowSize,
            menuArrowSize);
        proxy()->drawPrimitive(PE_IndicatorArrowDown, &arrow, painter, widget);
    }
};

} // namespace

namespace
{

const ThemeColors lightColors {
    .window = QColor(0xfb, 0xfc, 0xfd),
    .base = QColor(0xff, 0xff, 0xff),
    .alternateBase = QColor(0xf5, 0xf7, 0xf9),
    .button = QColor(0xf3, 0xf4, 0xf6),
    .text = QColor(0x1f, 0x29, 0x33),
    .strongText = QColor(0x11, 0x18, 0x27),
    .bodyText = QColor(0x4b, 0x55, 0x63),
    .secondaryText = QColor(0x6b, 0x72, 0x80),
    .faintText = QColor(0x9a, 0xa3, 0xad),
    .disabledText = QColor(0xa0, 0xa6, 0xad),
    .mid = QColor(0x8a, 0x93, 0x9d),
    .error = QColor(0xb9, 0x1c, 0x1c),
    .accent = QColor(0x0f, 0x8f, 0x87),
    .accentHover = QColor(0x0c, 0x7a, 0x73),
    .accentText = QColor(0x0f, 0x8f, 0x87),
    .onAccent = QColor(0xff, 0xff, 0xff),
    .selected = QColor(0xdf, 0xf3, 0xf1),
    .selectedBorder = QColor(0xb9, 0xe2, 0xdd),
    .selectedText = QColor(0x0b, 0x6e, 0x68),
    .hover = QColor(0xee, 0xf1, 0xf4),
    .border = QColor(0xe3, 0xe6, 0xea),
    .sidebar = QColor(0xf4, 0xf6, 0xf8),
    .toolTip = QColor(0xff, 0xff, 0xf4),
    .idleState = QColor(0xc4, 0xc9, 0xcf),
    .busyState = QColor(0xd9, 0x82, 0x2b),
    .readyState = QColor(0x2f, 0x9a, 0x48),
    .sqlKeyword = QColor(0x05, 0x66, 0x5e),
    .sqlQuoted = QColor(0x9c, 0x4f, 0x0f),
    // Secondary text on white: the lightest grey that still keeps 4.5:1.
    .sqlComment = QColor(0x76, 0x76, 0x76),
};

// Every text colour keeps at least 4.5:1 against base and window.
const ThemeColors darkColors {
    .window = QColor(0x1b, 0x1f, 0x24),
    .base = QColor(0x22, 0x27, 0x2e),
    .alternateBase = QColor(0x27, 0x2d, 0x35),
    .button = QColor(0x2c, 0x32, 0x3a),
    .text = QColor(0xe4, 0xe8, 0xec),
    .strongText = QColor(0xf5, 0xf7, 0xfa),
    .bodyText = QColor(0xc0, 0xc7, 0xd0),
    .secondaryText = QColor(0x9d, 0xa6, 0xb1),
    .faintText = QColor(0x86, 0x90, 0x9c),
    .disabledText = QColor(0x62, 0x6a, 0x74),
    .mid = QColor(0x6b, 0x74, 0x80),
    .error = QColor(0xf8, 0x8a, 0x8a),
    .accent = QColor(0x12, 0x9a, 0x91),
    .accentHover = QColor(0x16, 0xad, 0xa3),
    .accentText = QColor(0x4f, 0xd1, 0xc5),
    .onAccent = QColor(0xff, 0xff, 0xff),
    .selected = QColor(0x16, 0x3f, 0x3c),
    .selectedBorder = QColor(0x1f, 0x6a, 0x64),
    .selectedText = QColor(0x8a, 0xe6, 0xdc),
    .hover = QColor(0x2c, 0x32, 0x3a),
    .border = QColor(0x37, 0x3e, 0x48),
    .sidebar = QColor(0x17, 0x1a, 0x1e),
    .toolTip = QColor(0x2c, 0x32, 0x3a),
    .idleState = QColor(0x5d, 0x66, 0x71),
    .busyState = QColor(0xf0, 0xa0, 0x4b),
    .readyState = QColor(0x4c, 0xc2, 0x6a),
    .sqlKeyword = QColor(0x5c, 0xd0, 0xc4),
    .sqlQuoted = QColor(0xe8, 0xa8, 0x62),
    .sqlComment = QColor(0x8e, 0x98, 0xa3),
};

Appearance appliedAppearance = Appearance::light;

class ThemeFollower;
// Every widget's restyle hook, called straight after a change of appearance. Palette events
// cannot stand in: a widget whose style sheet sets its background no longer hears of a new
// application palette. Main thread only.
std::vector<ThemeFollower *> followers;

QPalette paletteFor(const ThemeColors &colors)
{
    QPalette palette;
    palette.setColor(QPalette::Window, colors.window);
    palette.setColor(QPalette::WindowText, colors.text);
    palette.setColor(QPalette::Base, colors.base);
    palette.setColor(QPalette::AlternateBase, colors.alternateBase);
    palette.setColor(QPalette::Text, colors.text);
    palette.setColor(QPalette::PlaceholderText, colors.faintText);
    palette.setColor(QPalette::Button, colors.button);
    palette.setColor(QPalette::ButtonText, colors.text);
    palette.setColor(QPalette::Highlight, colors.accent);
    palette.setColor(QPalette::HighlightedText, colors.onAccent);
    palette.setColor(QPalette::ToolTipBase, colors.toolTip);
    palette.setColor(QPalette::ToolTipText, colors.text);
    palette.setColor(QPalette::Link, colors.accentText);
    palette.setColor(QPalette::Mid, colors.mid);
    for (const QPalette::ColorRole role : { QPalette::Text, QPalette::WindowText, QPalette::ButtonText }) {
        palette.setColor(QPalette::Disabled, role, colors.disabledText);
    }
    if (&colors == &darkColors) {
        // Fusion draws frames, bevels and headers from these; Qt's defaults suit only light.
        palette.setColor(QPalette::Light, colors.button.lighter(125));
        palette.setColor(QPalette::Midlight, colors.button.lighter(112));
        palette.setColor(QPalette::Dark, colors.button.darker(160));
        palette.setColor(QPalette::Shadow, colors.button.darker(300));
        palette.setColor(QPalette::Disabled, QPalette::Base, colors.window);
        palette.setColor(QPalette::Disabled, QPalette::Button, colors.window);
    }
    return palette;
}

// Restyles its widget after each change of appearance; goes with the widget.
class ThemeFollower final : public QObject
{
public:
    ThemeFollower(QWidget *widget, std::function<void()> restyle)
        : QObject(widget)
        , m_restyle(std::move(restyle))
    {
        m_restyle();
        followers.push_back(this);
    }
    ~ThemeFollower() override { std::erase(followers, this); }

    void restyle() { m_restyle(); }

private:
    std::function<void()> m_restyle;
};

} // namespace

const ThemeColors &colorsFor(Appearance appearance)
{
    return appearance == Appearance::dark ? darkColors : lightColors;
}

const ThemeColors &themeColors()
{
    return colorsFor(appliedAppearance);
}

Appearance currentAppearance()
{
    return appliedAppearance;
}

Appearance appearanceFor(ThemeChoice choice, std::optional<uint> desktopColorScheme)
{
    switch (choice) {
    case ThemeChoice::light:
        return Appearance::light;
    case ThemeChoice::dark:
        return Appearance::dark;
    case ThemeChoice::system:
        break;
    }
    return desktopColorScheme == 1U ? Appearance::dark : Appearance::light;
}

QString choiceName(ThemeChoice choice)
{
    switch (choice) {
    case ThemeChoice::light:
        return QStringLiteral("light");
    case ThemeChoice::dark:
        return QStringLiteral("dark");
    case ThemeChoice::system:
        break;
    }
    return QStringLiteral("system");
}

ThemeChoice choiceFromName(const QString &name)
{
    if (name == QLatin1String("light")) {
        return ThemeChoice::light;
    }
    if (name == QLatin1String("dark")) {
        return ThemeChoice::dark;
    }
    return ThemeChoice::system;
}

void applyWorkspaceStyle(QApplication &app)
{
    app.setStyle(new WorkspaceStyle(QStyleFactory::create(QStringLiteral("Fusion"))));
    app.setPalette(paletteFor(themeColors()));
}

void applyAppearance(QApplication &app, Appearance appearance)
{
    const bool changed = appearance != appliedAppearance;
    appliedAppearance = appearance;
    // Set even when unchanged: a program started without applyWorkspaceStyle() still gets it.
    app.setPalette(paletteFor(themeColors()));
    if (changed) {
        // A restyle may make widgets, and so followers: walk a copy, skipping any gone meanwhile.
        const std::vector<QPointer<ThemeFollower>> current(followers.begin(), followers.end());
        for (const QPointer<ThemeFollower> &follower : current) {
            if (follower) {
                follower->restyle();
            }
        }
    }
}

void followTheme(QWidget *widget, std::function<void()> restyle)
{
    new ThemeFollower(widget, std::move(restyle));
}

} // namespace tallowick
