#pragma once

#include "core/WorkspaceMode.h"

#include <QPointer>
#include <QWidget>
#include <map>

class QAbstractButton;
class QButtonGroup;
class QStackedWidget;

namespace tallowick
{

class AppStore;
class DataView;
class HistoryView;
class MetadataView;
class QueryWorkspace;
class ServerSession;
class ServerView;
class UsersView;

// The workspace of one server session: its top bar, a button per workspace mode, the view of the
// current mode and the status bar. While the session is not connected it offers to connect.
class SessionView final : public QWidget
{
    Q_OBJECT

public:
    SessionView(AppStore &store, ServerSession &session, QWidget *parent = nullptr);

    ServerSession *session() const;
    QAbstractButton *modeButton(WorkspaceMode mode) const;
    QWidget *currentView() const;
    DataView *dataView() const { return m_data; }
    MetadataView *metadataView() const { return m_metadata; }
    QueryWorkspace *queryWorkspace() const { return m_query; }
    ServerView *serverView() const { return m_server; }
    UsersView *usersView() const { return m_users; }
    HistoryView *historyView() const { return m_history; }

private:
    void modeClicked(WorkspaceMode mode);
    void refresh();

    QPointer<ServerSession> m_session;
    QButtonGroup *m_modes;
    QStackedWidget *m_stack;
    QWidget *m_disconnected;
    DataView *m_data;
    MetadataView *m_metadata;
    QueryWorkspace *m_query;
    ServerView *m_server;
    UsersView *m_users;
    HistoryView *m_history;
    std::map<WorkspaceMode, QWidget *> m_views;
};

} // namespace tallowick
