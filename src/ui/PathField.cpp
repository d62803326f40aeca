#include "ui/PathField.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOptionFrame>

namespace tallowick
{

namespace
{

// The room QLineEdit leaves between its contents rectangle and its text.
constexpr int horizontalTextMargin = 2;
constexpr int verticalTextMargin = 1;

} // namespace

PathField::PathField(QWidget *parent)
    : QLineEdit(parent)
{
    QObject::connect(this, &QLineEdit::textChanged, this, [this](const QString &path) { setToolTip(path); });
}

QString PathField::shownText() const
{
    if (hasFocus()) {
        return text();
    }
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, textArea().width());
}

QRect PathField::textArea() const
{
    QStyleOptionFrame option;
    initStyleOption(&option);
    return style()
        ->subElementRect(QStyle::SE_LineEditContents, &option, this)
        .marginsRemoved(textMargins())
        .adjusted(horizontalTextMargin, verticalTextMargin, -horizontalTextMargin, -verticalTextMargin);
}

void PathField::paintEvent(QPaintEvent *event)
{
    const QString shown = shownText();
    if (shown == text()) {
        QLineEdit::paintEvent(event);
        return;
    }
    // The frame as the line edit draws it, then the shortened path in place of the text.
    QPainter painter(this);
    QStyleOptionFrame option;
    initStyleOption(&option);
    style()->drawPrimitive(QStyle::PE_PanelLineEdit, &option, &painter, this);
    painter.setPen(palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::Text));
    painter.drawText(textArea(), Qt::AlignLeft | Qt::AlignVCenter, shown);
}

} // namespace tallowick
