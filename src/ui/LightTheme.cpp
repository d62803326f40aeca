#include "ui/LightTheme.h"

#include <QApplication>
#include <QPalette>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <algorithm>

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

void applyLightTheme(QApplication &app)
{
    app.setStyle(new WorkspaceStyle(QStyleFactory::create(QStringLiteral("Fusion"))));
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0xfb, 0xfc, 0xfd));
    palette.setColor(QPalette::WindowText, QColor(0x1f, 0x29, 0x33));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xf5, 0xf7, 0xf9));
    palette.setColor(QPalette::Text, QColor(0x1f, 0x29, 0x33));
    palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0xa3, 0xad));
    palette.setColor(QPalette::Button, QColor(0xf3, 0xf4, 0xf6));
    palette.setColor(QPalette::ButtonText, QColor(0x1f, 0x29, 0x33));
    palette.setColor(QPalette::Highlight, QColor(0x0f, 0x8f, 0x87));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, QColor(0xff, 0xff, 0xf4));
    palette.setColor(QPalette::ToolTipText, QColor(0x1f, 0x29, 0x33));
    palette.setColor(QPalette::Link, QColor(0x0f, 0x8f, 0x87));
    palette.setColor(QPalette::Mid, QColor(0x8a, 0x93, 0x9d));
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0xa0, 0xa6, 0xad));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0xa0, 0xa6, 0xad));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0xa0, 0xa6, 0xad));
    app.setPalette(palette);
}

QColor secondaryTextColor()
{
    return QColor(0x6b, 0x72, 0x80);
}

QColor errorTextColor()
{
    return QColor(0xb9, 0x1c, 0x1c);
}

} // namespace tallowick
