#include "ui/SessionView.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/BuilderPanel.h"
#include "ui/DataView.h"
#include "ui/HistoryView.h"
#include "ui/MetadataView.h"
#include "ui/QueryWorkspace.h"
#include "ui/ServerView.h"
#include "ui/SessionStatusBar.h"
#include "ui/SessionTopBar.h"
#include "ui/Theme.h"
#include "ui/UsersView.h"

#include <QButtonGroup>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

QFrame *separator()
{
    auto *line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Plain);
    followTheme(line, [line] { line->setStyleSheet(QStringLiteral("color: %1;").arg(themeColors().border.name())); });
    return line;
}

} // namespace

SessionView::SessionView(AppStore &store, ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_modes(new QButtonGroup(this))
    , m_stack(new QStackedWidget)
    , m_disconnected(new QWidget)
    , m_data(new DataView(session))
    , m_metadata(new MetadataView(session))
    , m_query(new QueryWorkspace(session))
    , m_server(new ServerView(session))
    , m_users(new UsersView(session))
    , m_history(new HistoryView(store, session))
{
    auto *modeBar = new QHBoxLayout;
    modeBar->setContentsMargins(14, 0, 14, 6);
    modeBar->setSpacing(4);
    for (const WorkspaceMode mode : allWorkspaceModes) {
        auto *button
            = new QPushButton(QString::fromLatin1(title(mode).data(), static_cast<qsizetype>(title(mode).size())));
        button->setCheckable(true);
        button->setFlat(true);
        button->setObjectName(QStringLiteral("modeButton"));
        // The same padding around every title: a minimum button width would put more air around
        // the short titles than the long ones.
        followTheme(button, [button] {
            const ThemeColors &colors = themeColors();
            button->setStyleSheet(QStringLiteral(
                "QPushButton { padding: 4px 10px; border: 1px solid transparent; border-radius: 6px; background: "
                "transparent; }"
                "QPushButton:hover { background: %1; }"
                "QPushButton:checked { background: %2; border-color: %3; color: %4; }"
                "QPushButton:focus { border-color: %5; }")
                                      .arg(colors.hover.name(),
                                          colors.selected.name(),
                                          colors.selectedBorder.name(),
                                          colors.selectedText.name(),
                                          colors.accent.name()));
        });
        m_modes->addButton(button, static_cast<int>(mode));
        modeBar->addWidget(button);
    }
    m_modes->setExclusive(true);
    modeBar->addStretch(1);

    // Shown while the session is not connected: what went wrong, and a way to try again.
    auto *offline = new QVBoxLayout(m_disconnected);
    auto *offlineText = new QLabel(QStringLiteral("This connection is not open."));
    QFont bigger = offlineText->font();
    bigger.setPointSizeF(bigger.pointSizeF() * 1.2);
    offlineText->setFont(bigger);
    auto *connectButton = new QPushButton(QStringLiteral("Connect"));
    connectButton->setDefault(true);
    offline->addStretch(1);
    offline->addWidget(offlineText, 0, Qt::AlignHCenter);
    offline->addWidget(connectButton, 0, Qt::AlignHCenter);
    offline->addStretch(1);
    QObject::connect(connectButton, &QPushButton::clicked, this, [this] { m_session->connect(); });
    QObject::connect(&session, &ServerSession::busyChanged, connectButton, [this, connectButton] {
        connectButton->setEnabled(!m_session->busy());
    });

    m_stack->addWidget(m_disconnected);
    m_views = {
        { WorkspaceMode::data, m_data },
        { WorkspaceMode::structure, m_metadata },
        { WorkspaceMode::indexes, m_metadata },
        { WorkspaceMode::relations, m_metadata },
        { WorkspaceMode::query, m_query },
        { WorkspaceMode::server, m_server },
        { WorkspaceMode::users, m_users },
        { WorkspaceMode::history, m_history },
    };
    for (QWidget *view : { static_cast<QWidget *>(m_data),
             static_cast<QWidget *>(m_metadata),
             static_cast<QWidget *>(m_query),
             static_cast<QWidget *>(m_server),
             static_cast<QWidget *>(m_users),
             static_cast<QWidget *>(m_history) }) {
        m_stack->addWidget(view);
    }
    auto *builder = new BuilderPanel(session);
    m_views.emplace(WorkspaceMode::builder, builder);
    m_stack->addWidget(builder);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(new SessionTopBar(session));
    layout->addLayout(modeBar);
    layout->addWidget(separator());
    layout->addWidget(m_stack, 1);
    layout->addWidget(separator());
    layout->addWidget(new SessionStatusBar(session));

    QObject::connect(
        m_modes, &QButtonGroup::idClicked, this, [this](int id) { modeClicked(static_cast<WorkspaceMode>(id)); });
    QObject::connect(&session, &ServerSession::modeChanged, this, &SessionView::refresh);
    QObject::connect(&session, &ServerSession::connectedChanged, this, &SessionView::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &SessionView::refresh);
    refresh();
}

ServerSession *SessionView::session() const
{
    return m_session;
}

QAbstractButton *SessionView::modeButton(WorkspaceMode mode) const
{
    return m_modes->button(static_cast<int>(mode));
}

QWidget *SessionView::currentView() const
{
    return m_stack->currentWidget();
}

void SessionView::modeClicked(WorkspaceMode mode)
{
    switch (mode) {
    case WorkspaceMode::structure:
    case WorkspaceMode::indexes:
    case WorkspaceMode::relations:
        if (!m_session->selectedTable().empty()) {
            m_session->inspect(mode);
            // A busy session drops the request; the mode still changes so the click is seen.
        }
        m_session->setMode(mode);
        break;
    case WorkspaceMode::server:
        m_session->setMode(mode);
        m_server->reload();
        break;
    case WorkspaceMode::builder:
        m_session->setMode(mode);
        // The source table's columns may not be loaded yet (a table opened before the builder).
        m_session->loadBuilderColumns(m_session->builder().table);
        break;
    case WorkspaceMode::users:
        m_session->setMode(mode);
        m_session->users();
        break;
    default:
        m_session->setMode(mode);
        break;
    }
}

void SessionView::refresh()
{
    if (!m_session) {
        return;
    }
    const WorkspaceMode mode = m_session->mode();
    if (QAbstractButton *button = modeButton(mode)) {
        button->setChecked(true);
    }
    for (const WorkspaceMode each : allWorkspaceModes) {
        // History and the editor work offline; the rest need the server.
        const bool needsServer = each != WorkspaceMode::history && each != WorkspaceMode::query;
        if (QAbstractButton *button = modeButton(each); button && m_views.count(each)) {
            button->setEnabled(!needsServer || m_session->connected());
        }
    }
    const bool offlineUsable = mode == WorkspaceMode::history || mode == WorkspaceMode::query;
    if (!m_session->connected() && !offlineUsable) {
        m_stack->setCurrentWidget(m_disconnected);
    } else if (const auto view = m_views.find(mode); view != m_views.end()) {
        m_stack->setCurrentWidget(view->second);
    }
}

} // namespace tallowick
