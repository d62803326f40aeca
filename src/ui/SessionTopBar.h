#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;

namespace tallowick
{

class ServerSession;

// The session's header: the profile's colour and name, its endpoint, and what the server told
// us after connecting (version, TLS cipher or "unencrypted"), plus the current database.
class SessionTopBar final : public QWidget
{
    Q_OBJECT

public:
    explicit SessionTopBar(ServerSession &session, QWidget *parent = nullptr);

private:
    void refresh();

    QPointer<ServerSession> m_session;
    QLabel *m_mark;
    QLabel *m_name;
    QLabel *m_details;
};

} // namespace tallowick
