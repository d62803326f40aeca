#pragma once

#include <QPointer>
#include <QUuid>
#include <QWidget>
#include <map>

class QStackedWidget;

namespace tallowick
{

class AppStore;
class ConnectionSheet;
class SessionView;
class Sidebar;
class WelcomeView;

// The main window's content: the sidebar beside the active session's workspace, or the welcome
// page when no session is active. It also opens the connection sheet and shows store errors.
class RootView final : public QWidget
{
    Q_OBJECT

public:
    explicit RootView(AppStore &store, QWidget *parent = nullptr);

    Sidebar *sidebar() const { return m_sidebar; }
    WelcomeView *welcome() const { return m_welcome; }
    QWidget *detail() const;
    SessionView *sessionView(const QUuid &id) const;
    ConnectionSheet *sheet() const;

private:
    void refreshDetail();
    void dropClosedSessions();
    void refreshSheet();
    void showStoreError();

    QPointer<AppStore> m_store;
    Sidebar *m_sidebar;
    QStackedWidget *m_detail;
    WelcomeView *m_welcome;
    std::map<QUuid, SessionView *> m_sessionViews;
    QPointer<ConnectionSheet> m_sheet;
    bool m_errorShown = false;
};

} // namespace tallowick
