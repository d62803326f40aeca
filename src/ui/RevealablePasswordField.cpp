#include "ui/RevealablePasswordField.h"

#include "ui/Symbols.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QStyle>
#include <QToolButton>
#include <algorithm>

namespace tallowick
{

RevealablePasswordField::RevealablePasswordField(QWidget *parent)
    : QWidget(parent)
    , m_masked(new QLineEdit)
    , m_plain(new QLineEdit)
    , m_toggle(new QToolButton)
{
    m_masked->setObjectName(QStringLiteral("maskedPassword"));
    m_masked->setEchoMode(QLineEdit::Password);
    m_plain->setObjectName(QStringLiteral("plainPassword"));
    m_plain->setEchoMode(QLineEdit::Normal);
    m_plain->hide();
    m_toggle->setObjectName(QStringLiteral("revealPassword"));
    m_toggle->setCheckable(true);
    m_toggle->setAutoRaise(true);
    m_toggle->setToolButtonStyle(Qt::ToolButtonIconOnly);
    m_toggle->setCursor(Qt::ArrowCursor);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_masked, 1);
    layout->addWidget(m_plain, 1);
    // Over the fields, not beside them: whichever field shows keeps the button at its right end.
    m_toggle->setParent(this);
    m_toggle->raise();
    setFocusProxy(m_masked);

    // The masked field holds the one true text; the plain field mirrors it, and edits made in
    // the plain field are copied back, so textChanged fires once per change.
    QObject::connect(m_masked, &QLineEdit::textChanged, this, [this](const QString &value) {
        if (m_plain->text() != value) {
            m_plain->setText(value);
        }
        Q_EMIT textChanged(value);
    });
    QObject::connect(m_plain, &QLineEdit::textChanged, this, [this](const QString &value) {
        if (m_masked->text() != value) {
            m_masked->setText(value);
        }
    });
    QObject::connect(m_toggle, &QToolButton::toggled, this, &RevealablePasswordField::setRevealed);
    updateToggle();
}

QString RevealablePasswordField::text() const
{
    return m_masked->text();
}

void RevealablePasswordField::setText(const QString &text)
{
    m_masked->setText(text);
}

bool RevealablePasswordField::isRevealed() const
{
    return m_toggle->isChecked();
}

void RevealablePasswordField::setRevealed(bool revealed)
{
    QLineEdit *from = revealed ? m_masked : m_plain;
    QLineEdit *to = revealed ? m_plain : m_masked;
    if (!from->isHidden() || to->isHidden()) {
        // The toggle button counts too: a keyboard user who pressed it wants to type next. The
        // window's focus widget rather than the application's, so this holds in the background.
        const QWidget *focused = window()->focusWidget();
        const bool hadFocus = focused && (focused == this || isAncestorOf(focused));
        const int cursor = from->cursorPosition();
        to->setCursorPosition(cursor);
        to->show();
        setFocusProxy(to);
        if (hadFocus) {
            to->setFocus(Qt::OtherFocusReason);
        }
        from->hide();
    }
    if (m_toggle->isChecked() != revealed) {
        m_toggle->setChecked(revealed); // comes back here once, with nothing left to do
    }
    updateToggle();
}

void RevealablePasswordField::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    placeToggle();
}

void RevealablePasswordField::placeToggle()
{
    // A square inside the field's frame; the text stops short of it.
    const int frame = style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, m_masked) + 1;
    const int side = std::max(height() - 2 * frame, 0);
    m_toggle->setGeometry(width() - frame - side, frame, side, side);
    m_toggle->setIconSize(QSize(side, side) * 2 / 3);
    for (QLineEdit *field : { m_masked, m_plain }) {
        field->setTextMargins(0, 0, side, 0);
    }
}

void RevealablePasswordField::updateToggle()
{
    const bool revealed = isRevealed();
    const QString label = revealed ? QStringLiteral("Hide password") : QStringLiteral("Show password");
    m_toggle->setIcon(symbolIcon(revealed ? Symbol::eyeOff : Symbol::eye));
    m_toggle->setText(label);
    m_toggle->setToolTip(label);
    m_toggle->setAccessibleName(label);
    m_toggle->setAccessibleDescription(revealed ? QStringLiteral("Visible") : QStringLiteral("Hidden"));
}

} // namespace tallowick
