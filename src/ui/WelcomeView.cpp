#include "ui/WelcomeView.h"

#include "ui/Symbols.h"
#include "ui/Theme.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

QLabel *styled(const QString &text, qreal scale, QFont::Weight weight, QColor ThemeColors::*color)
{
    auto *label = new QLabel(text);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setWeight(weight);
    label->setFont(font);
    followTheme(label,
        [label, color] { label->setStyleSheet(QStringLiteral("color: %1;").arg((themeColors().*color).name())); });
    return label;
}

QWidget *tile(const QString &symbol, const QString &title, const QString &caption)
{
    auto *frame = new QFrame;
    frame->setObjectName(QStringLiteral("featureTile"));
    followTheme(frame, [frame] {
        frame->setStyleSheet(
            QStringLiteral("#featureTile { background: %1; border: 1px solid %2; border-radius: 12px; }")
                .arg(themeColors().base.name(), themeColors().border.name()));
    });
    frame->setMinimumWidth(190);
    auto *layout = new QVBoxLayout(frame);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(4);
    layout->addWidget(styled(symbol, 1.5, QFont::Normal, &ThemeColors::accentText));
    layout->addWidget(styled(title, 1.05, QFont::DemiBold, &ThemeColors::text));
    layout->addWidget(styled(caption, 0.95, QFont::Normal, &ThemeColors::secondaryText));
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
    eyebrow->addWidget(styled(QStringLiteral("MYSQL · MARIADB"), 0.9, QFont::DemiBold, &ThemeColors::accentText));
    eyebrow->addWidget(styled(QStringLiteral("WORKSPACE"), 0.9, QFont::DemiBold, &ThemeColors::faintText));
    eyebrow->addStretch(1);
    column->addLayout(eyebrow);
    column->addWidget(
        styled(QStringLiteral("A clearer view of\nyour databases."), 2.6, QFont::Bold, &ThemeColors::strongText));
    column->addWidget(
        styled(QStringLiteral("Every server. One workspace."), 1.3, QFont::Normal, &ThemeColors::bodyText));
    auto *body
        = styled(QStringLiteral("Connect to your MySQL servers, shape your queries,\nand manage your data—all in a "
                                "native desktop app."),
            1.05,
            QFont::Normal,
            &ThemeColors::bodyText);
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
    followTheme(m_newConnection, [this] {
        const ThemeColors &colors = themeColors();
        m_newConnection->setStyleSheet(
            QStringLiteral("#primaryButton { background: %1; color: %2; border: none; border-radius: 8px; padding: 8px "
                           "22px; font-weight: 600; } #primaryButton:hover { background: %3; }")
                .arg(colors.accent.name(), colors.onAccent.name(), colors.accentHover.name()));
    });
    auto *buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_newConnection);
    buttonRow->addStretch(1);
    column->addLayout(buttonRow);
    column->addSpacing(18);

    auto *trust = new QHBoxLayout;
    trust->setSpacing(8);
    auto *shield = new QLabel;
    showSymbol(shield, Symbol::shield, 18);
    trust->addWidget(shield);
    for (const QString &note : { QStringLiteral("Keyring credentials"),
             QStringLiteral("TLS connections"),
             QStringLiteral("No cloud account") }) {
        trust->addWidget(styled(note, 0.95, QFont::Normal, &ThemeColors::bodyText));
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
