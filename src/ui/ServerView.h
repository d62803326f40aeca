#pragma once

#include "core/QueryResult.h"

#include <QPointer>
#include <QWidget>

class QButtonGroup;
class QLineEdit;
class QPushButton;

namespace tallowick
{

class NativeGrid;
class ServerSession;

// The server panel: global status, variables and the process list, each narrowed by a filter;
// a process can be stopped after a confirmation.
class ServerView final : public QWidget
{
    Q_OBJECT

public:
    enum class Listing { status, variables, processes };

    explicit ServerView(ServerSession &session, QWidget *parent = nullptr);

    // Reads the chosen listing from the server again.
    void reload();
    Listing listing() const { return m_listing; }
    void showListing(Listing listing);
    NativeGrid *grid() const { return m_grid; }

private:
    void refresh();
    void stopSelectedProcess();
    // The session's listing narrowed by the filter, recomputed only when either changes.
    const QueryResult &shown();

    QPointer<ServerSession> m_session;
    Listing m_listing = Listing::status;
    QButtonGroup *m_choices;
    QLineEdit *m_filter;
    QPushButton *m_reload;
    QPushButton *m_stop;
    NativeGrid *m_grid;
    std::int64_t m_selectedRow = -1;
    QueryResult m_shown;
    QUuid m_shownSource;
    QString m_shownFilter;
};

} // namespace tallowick
