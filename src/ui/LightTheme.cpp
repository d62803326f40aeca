#include "ui/LightTheme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace tallowick
{

void applyLightTheme(QApplication &app)
{
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
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
