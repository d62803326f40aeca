#include "ui/ConnectionRow.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/FormParts.h"
#include "ui/ProfileColors.h"
#include "ui/Symbols.h"
#include "ui/Theme.h"

#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QVBoxLayout>

namespace tallowick
{

ConnectionRow::ConnectionRow(AppStore &store, const ConnectionProfile &profile, QWidget *parent)
    : QFrame(parent)
    , m_store(&store)
    , m_profile(profile)
    , m_state(new QLabel)
{
    setObjectName(QStringLiteral("connectionRow"));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(QString::fromStdString(profile.name));
    auto *mark = new QLabel;
    mark->setFixedSize(10, 10);
    mark->setStyleSheet(QStringLiteral("background: %1; border-radius: 5px;").arg(profileColor(profile.color).name()));
    auto *name = new QLabel(QString::fromStdString(profile.name));
    QFont nameFont = name->font();
    nameFont.setWeight(QFont::DemiBold);
    name->setFont(nameFont);
    auto *endpoint = new QLabel(QString::fromStdString(profile.endpoint()));
    useSecondaryText(endpoint);
    QFont small = endpoint->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    endpoint->setFont(small);

    auto *texts = new QVBoxLayout;
    texts->setSpacing(1);
    texts->addWidget(name);
    texts->addWidget(endpoint);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 7, 10, 7);
    layout->setSpacing(9);
    layout->addWidget(mark, 0, Qt::AlignVCenter);
    layout->addLayout(texts, 1);
    if (profile.readOnly) {
        auto *lock = new QLabel;
        showSymbol(lock, Symbol::lock, 14);
        lock->setToolTip(QStringLiteral("Read-only connection"));
        layout->addWidget(lock);
    }
    m_state->setFixedWidth(16);
    layout->addWidget(m_state);
    setSelected(false);
    refreshState();
    followTheme(this, [this] {
        setSelected(m_selected);
        refreshState();
    });
}

ServerSession *ConnectionRow::session() const
{
    if (!m_store) {
        return nullptr;
    }
    const auto found = m_store->sessions().find(m_profile.id);
    return found == m_store->sessions().end() ? nullptr : found->second;
}

void ConnectionRow::setSelected(bool selected)
{
    m_selected = selected;
    // The border is always there, transparent until the row has keyboard focus, so gaining focus
    // does not shift the row's contents.
    const ThemeColors &colors = themeColors();
    setStyleSheet((selected ? QStringLiteral("#connectionRow { background: %1; }").arg(colors.selected.name())
                            : QStringLiteral("#connectionRow { background: transparent; }"
                                             "#connectionRow:hover { background: %1; }")
                                  .arg(colors.hover.name()))
        + QStringLiteral("#connectionRow { border: 1px solid transparent; border-radius: 8px; }"
                         "#connectionRow:focus { border-color: %1; }")
              .arg(colors.accent.name()));
}

void ConnectionRow::refreshState()
{
    const ServerSession *current = session();
    QColor color = themeColors().idleState;
    QString help = QStringLiteral("Not connected");
    if (current && current->busy()) {
        color = themeColors().busyState;
        help = QString::fromStdString(current->status());
    } else if (current && current->connected()) {
        color = themeColors().readyState;
        help = QStringLiteral("Connected");
    }
    m_state->setText(QStringLiteral("●"));
    m_state->setStyleSheet(QStringLiteral("color: %1;").arg(color.name()));
    m_state->setToolTip(help);
}

QList<QAction *> ConnectionRow::menuActions(QObject *owner)
{
    ServerSession *current = session();
    const bool busy = current && current->busy();
    const bool connected = current && current->connected();
    QList<QAction *> actions;

    auto *toggle = new QAction(connected ? QStringLiteral("Disconnect") : QStringLiteral("Connect"), owner);
    toggle->setEnabled(!busy);
    QObject::connect(toggle, &QAction::triggered, this, [this, connected] {
        if (connected) {
            if (ServerSession *open = session()) {
                open->disconnect();
            }
        } else if (m_store) {
            m_store->connect(m_profile);
        }
    });
    auto *edit = new QAction(QStringLiteral("Edit connection…"), owner);
    edit->setEnabled(!busy);
    QObject::connect(edit, &QAction::triggered, this, [this] {
        if (m_store) {
            m_store->openConnectionSheet(m_profile);
        }
    });
    auto *duplicate = new QAction(QStringLiteral("Duplicate connection"), owner);
    QObject::connect(duplicate, &QAction::triggered, this, [this] {
        if (m_store) {
            ConnectionProfile copy = m_profile;
            copy.id = QUuid::createUuid();
            copy.name += " copy";
            // The tunnel goes with the copy; the secrets stay with the original.
            m_store->openConnectionSheet(copy, m_store->tunnel(m_profile.id));
        }
    });
    auto *remove = new QAction(QStringLiteral("Remove connection…"), owner);
    remove->setEnabled(!busy);
    QObject::connect(remove, &QAction::triggered, this, [this] {
        if (m_store) {
            m_store->remove(m_profile);
        }
    });
    actions << toggle << edit << duplicate << remove;
    return actions;
}

void ConnectionRow::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Up:
        Q_EMIT stepRequested(-1);
        return;
    case Qt::Key_Down:
        Q_EMIT stepRequested(1);
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_store) {
            m_store->connect(m_profile);
        }
        return;
    default:
        QFrame::keyPressEvent(event);
    }
}

void ConnectionRow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_store) {
        m_store->setSelected(m_profile.id);
    }
    QFrame::mousePressEvent(event);
}

void ConnectionRow::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_store) {
        m_store->connect(m_profile);
    }
}

void ConnectionRow::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu menu;
    menu.addActions(menuActions(&menu));
    menu.exec(event->globalPos());
}

} // namespace tallowick
