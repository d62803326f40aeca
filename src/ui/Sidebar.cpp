#include "ui/Sidebar.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/ConnectionRow.h"
#include "ui/DatabaseNavigator.h"
#include "ui/FormParts.h"
#include "ui/Symbols.h"
#include "ui/Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

Sidebar::Sidebar(AppStore &store, QWidget *parent)
    : QWidget(parent)
    , m_store(&store)
    , m_search(new QLineEdit)
    , m_list(new QWidget)
    , m_listLayout(new QVBoxLayout(m_list))
{
    setObjectName(QStringLiteral("sidebar"));
    setAttribute(Qt::WA_StyledBackground);
    setMinimumWidth(250);

    auto *brandIcon = new QLabel;
    brandIcon->setPixmap(symbolIcon(Symbol::brand).pixmap(30, 30));
    auto *brandName = new QLabel(QStringLiteral("Tallowick"));
    QFont brandFont = brandName->font();
    brandFont.setPointSizeF(brandFont.pointSizeF() * 1.3);
    brandFont.setWeight(QFont::Bold);
    brandName->setFont(brandFont);
    auto *caption = new QLabel(QStringLiteral("YOUR MYSQL WORKSPACE"));
    QFont captionFont = caption->font();
    captionFont.setPointSizeF(captionFont.pointSizeF() * 0.8);
    captionFont.setWeight(QFont::DemiBold);
    caption->setFont(captionFont);
    useSecondaryText(caption);
    auto *brandTexts = new QVBoxLayout;
    brandTexts->setSpacing(0);
    brandTexts->addWidget(brandName);
    brandTexts->addWidget(caption);
    auto *brand = new QHBoxLayout;
    brand->setSpacing(10);
    brand->addWidget(brandIcon);
    brand->addLayout(brandTexts, 1);

    m_search->setPlaceholderText(QStringLiteral("Find a connection…"));
    m_search->setClearButtonEnabled(true);
    m_search->addAction(symbolIcon(Symbol::search), QLineEdit::LeadingPosition);
    auto *plus = new QPushButton(symbolIcon(Symbol::plus), QString());
    plus->setToolTip(QStringLiteral("New connection"));
    plus->setAccessibleName(QStringLiteral("New connection"));
    plus->setFixedWidth(34);
    auto *searchRow = new QHBoxLayout;
    searchRow->setSpacing(6);
    searchRow->addWidget(m_search, 1);
    searchRow->addWidget(plus);

    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(2);
    auto *scroll = new QScrollArea;
    scroll->setWidget(m_list);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setStyleSheet(QStringLiteral("QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; }"));

    auto *footer = new QLabel(QStringLiteral("Native on your desktop"));
    followTheme(this, [this, footer] {
        setStyleSheet(QStringLiteral("#sidebar { background: %1; }").arg(themeColors().sidebar.name()));
        footer->setStyleSheet(QStringLiteral("color: %1;").arg(themeColors().faintText.name()));
    });

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 14, 12, 10);
    layout->setSpacing(10);
    layout->addLayout(brand);
    layout->addLayout(searchRow);
    layout->addWidget(scroll, 1);
    layout->addWidget(footer);

    QObject::connect(plus, &QPushButton::clicked, this, [this] { m_store->openConnectionSheet(ConnectionProfile {}); });
    QObject::connect(m_search, &QLineEdit::textChanged, this, &Sidebar::rebuild);
    QObject::connect(&store, &AppStore::profilesChanged, this, &Sidebar::rebuild);
    QObject::connect(&store, &AppStore::selectedChanged, this, &Sidebar::rebuild);
    QObject::connect(&store, &AppStore::sessionsChanged, this, &Sidebar::rebuild);
    QObject::connect(&store, &AppStore::changed, this, &Sidebar::refreshStates);
    rebuild();
}

DatabaseNavigator *Sidebar::navigator() const
{
    return m_navigator;
}

void Sidebar::rebuild()
{
    if (!m_store) {
        return;
    }
    // Selecting a row rebuilds the list; keyboard focus moves on to the new row of the selection.
    const bool rowHadFocus
        = std::any_of(m_rows.begin(), m_rows.end(), [](const ConnectionRow *row) { return row->hasFocus(); });
    for (ConnectionRow *row : m_rows) {
        m_listLayout->removeWidget(row);
        row->deleteLater();
    }
    m_rows.clear();
    while (QLayoutItem *item = m_listLayout->takeAt(0)) {
        delete item; // spacers; the navigator widget itself is kept
    }
    const QString wanted = m_search->text();
    for (const ConnectionProfile &profile : m_store->profiles()) {
        if (!wanted.isEmpty() && !QString::fromStdString(profile.name).contains(wanted, Qt::CaseInsensitive)) {
            continue;
        }
        auto *row = new ConnectionRow(*m_store, profile);
        row->setSelected(m_store->selected() == profile.id);
        QObject::connect(
            row, &ConnectionRow::stepRequested, this, [this, row](int offset) { moveSelection(row, offset); });
        m_rows.push_back(row);
        m_listLayout->addWidget(row);
    }
    // Tab enters the list once, at the selected row (or the first), and the arrows move inside it.
    const auto current = std::find_if(m_rows.begin(), m_rows.end(), [this](const ConnectionRow *row) {
        return m_store->selected() == row->profile().id;
    });
    ConnectionRow *entry = current != m_rows.end() ? *current : m_rows.empty() ? nullptr : m_rows.front();
    for (ConnectionRow *row : m_rows) {
        row->setFocusPolicy(row == entry ? Qt::StrongFocus : Qt::ClickFocus);
    }
    if (rowHadFocus && entry) {
        entry->show(); // a new row shows itself only later, and a hidden one cannot take focus
        entry->setFocus(Qt::OtherFocusReason);
    }
    placeNavigator();
}

void Sidebar::moveSelection(const ConnectionRow *from, int offset)
{
    const auto at = std::find(m_rows.begin(), m_rows.end(), from);
    if (at == m_rows.end() || !m_store) {
        return;
    }
    const auto target = std::clamp<std::ptrdiff_t>((at - m_rows.begin()) + offset, 0, std::ssize(m_rows) - 1);
    m_store->setSelected(m_rows[static_cast<std::size_t>(target)]->profile().id);
}

void Sidebar::placeNavigator()
{
    ServerSession *active = m_store->active();
    const bool show = active && active->connected();
    if (!show || m_navigatorSession != active->id()) {
        if (m_navigator) {
            m_listLayout->removeWidget(m_navigator);
            m_navigator->deleteLater();
        }
        m_navigator = nullptr;
        m_navigatorSession = QUuid();
    }
    if (show && !m_navigator) {
        m_navigator = new DatabaseNavigator(*active);
        m_navigatorSession = active->id();
    }
    // The navigator sits right under its connection's row and takes the spare height.
    int position = 0;
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i]->profile().id == m_navigatorSession) {
            position = static_cast<int>(i) + 1;
        }
    }
    if (m_navigator) {
        m_listLayout->removeWidget(m_navigator);
        if (position > 0) {
            m_listLayout->insertWidget(position, m_navigator, 1);
            m_navigator->show();
        } else {
            m_navigator->hide(); // filtered out of the list by the search
        }
    }
    if (!m_navigator || position == 0) {
        m_listLayout->addStretch(1);
    }
}

void Sidebar::refreshStates()
{
    if (!m_store) {
        return;
    }
    for (ConnectionRow *row : m_rows) {
        row->refreshState();
    }
    // A session that just connected or disconnected gains or loses its navigator.
    ServerSession *active = m_store->active();
    const bool wantNavigator = active && active->connected();
    if (wantNavigator != static_cast<bool>(m_navigator)
        || (m_navigator && active && m_navigatorSession != active->id())) {
        rebuild();
    }
}

} // namespace tallowick
