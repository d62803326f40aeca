#include "ui/WelcomeView.h"

#include "ui/LightTheme.h"
#include "ui/Symbols.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

QLabel *styled(const QString &text, qreal scale, QFont::Weight weight, const QString &color)
{
    auto *label = new QLabel(text);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setWeight(weight);
    label->setFont(font);
    label->setStyleSheet(QStringLiteral("color: %1;").arg(color));
    return label;
}

QWidget *tile(const QString &symbol, const QString &title, const QString &caption)
{
    auto *frame = new QFrame;
    frame->setObjectName(QStringLiteral("featureTile"));
    frame->setStyleSheet(
        QStringLiteral("#featureTile { background: #ffffff; border: 1px solid #e3e6ea; border-radius: 12px; }"));
    frame->setMinimumWidth(190);
    auto *layout = new QVBoxLayout(frame);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(4);
    layout->addWidget(styled(symbol, 1.5, QFont::Normal, QStringLiteral("#0f8f87")));
    layout->addWidget(styled(title, 1.05, QFont::DemiBold, QStringLiteral("#1f2933")));
    layout->addWidget(styled(caption, 0.95, QFont::Normal, secondaryTextColor().name()));
    return frame;
}

} // namespace

WelcomeView::WelcomeView(QWidget *parent)
    : QWidget(parent)
    , m_newConnection(new QPushButton(symbolIcon(Symbol::plusOnAccent), QStringLiteral("New connection")))
{
    setObjectName(QStringLiteral("welcome"));
    auto *column = new QVBoxLayout;
    column->setSpacing(10);
    column->addStretch(1);
    auto *eyebrow = new QHBoxLayout;
    eyebrow->setSpacing(10);
    eyebrow->addWidget(styled(QStringLiteral("MYSQL · MARIADB"), 0.9, QFont::DemiBold, QStringLiteral("#0f8f87")));
    eyebrow->addWidget(styled(QStringLiteral("WORKSPACE"), 0.9, QFont::DemiBold, QStringLiteral("#9aa3ad")));
    eyebrow->addStretch(1);
    column->addLayout(eyebrow);
    column->addWidget(
        styled(QStringLiteral("A clearer view of\nyour databases."), 2.6, QFont::Bold, QStringLiteral("#111827")));
    column->addWidget(
        styled(QStringLiteral("Every server. One workspace."), 1.3, QFont::Normal, QStringLiteral("#374151")));
    auto *body
        = styled(QStringLiteral("Connect to your MySQL servers, shape your queries,\nand manage your data—all in a "
                                "native desktop app."),
            1.05,
            QFont::Normal,
            QStringLiteral("#4b5563"));
    column->addWidget(body);
    column->addSpacing(12);

    auto *tiles = new QHBoxLayout;
    tiles->setSpacing(12);
    tiles->addWidget(
        tile(QStringLiteral("▤"), QStringLiteral("Multiple servers"), QStringLiteral("Separate, persistent sessions")));
    tiles->addWidget(tile(
        QStringLiteral("⋔"), QStringLiteral("Visual query builder"), QStringLiteral("Joins, filters & generated SQL")));
    tiles->addWidget(tile(QStringLiteral("✎"), QStringLiteral("Editable results"), QStringLiteral("Edit in place")));
    tiles->addStretch(1);
    column->addLayout(tiles);
    column->addSpacing(16);

    m_newConnection->setObjectName(QStringLiteral("primaryButton"));
    m_newConnection->setDefault(true);
    m_newConnection->setMinimumHeight(38);
    m_newConnection->setStyleSheet(QStringLiteral(
        "#primaryButton { background: #0f8f87; color: white; border: none; border-radius: 8px; padding: 8px 22px; "
        "font-weight: 600; } #primaryButton:hover { background: #0c7a73; }"));
    auto *buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_newConnection);
    buttonRow->addStretch(1);
    column->addLayout(buttonRow);
    column->addSpacing(18);

    auto *trust = new QHBoxLayout;
    trust->setSpacing(8);
    auto *shield = new QLabel;
    shield->setPixmap(symbolIcon(Symbol::shield).pixmap(18, 18));
    trust->addWidget(shield);
    for (const QString &note : { QStringLiteral("Keyring credentials"),
             QStringLiteral("TLS connections"),
             QStringLiteral("No cloud account") }) {
        trust->addWidget(styled(note, 0.95, QFont::Normal, QStringLiteral("#4b5563")));
        trust->addSpacing(10);
    }
    trust->addStretch(1);
    column->addLayout(trust);
    column->addStretch(2);

    auto *outer = new QHBoxLayout(this);
    outer->setContentsMargins(64, 48, 64, 48);
    outer->addLayout(column);
    outer->addStretch(1);
    QObject::connect(m_newConnection, &QPushButton::clicked, this, &WelcomeView::newConnectionRequested);
}

} // namespace tallowick
