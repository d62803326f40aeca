#pragma once

#include <QPointer>
#include <QWidget>

class QLineEdit;
class QTableWidget;

namespace tallowick
{

class AppStore;
class ServerSession;

// The query history of all sessions, newest first, with a filter; double-clicking an entry
// opens its SQL in a new query tab of this session.
class HistoryView final : public QWidget
{
    Q_OBJECT

public:
    HistoryView(AppStore &store, ServerSession &session, QWidget *parent = nullptr);

    QTableWidget *list() const { return m_list; }

private:
    void refresh();
    void openEntry(int row);

    QPointer<AppStore> m_store;
    QPointer<ServerSession> m_session;
    QLineEdit *m_filter;
    QTableWidget *m_list;
};

} // namespace tallowick
