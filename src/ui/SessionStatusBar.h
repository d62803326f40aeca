#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace tallowick
{

class ServerSession;

// The bottom line of a session: its status text, its last error with a way to dismiss it, and
// while work runs a busy indicator with a Cancel button that stops the running statement.
class SessionStatusBar final : public QWidget
{
    Q_OBJECT

public:
    explicit SessionStatusBar(ServerSession &session, QWidget *parent = nullptr);

private:
    void refresh();

    QPointer<ServerSession> m_session;
    QLabel *m_status;
    QLabel *m_error;
    QPushButton *m_dismiss;
    QProgressBar *m_busy;
    QPushButton *m_cancel;
};

} // namespace tallowick
