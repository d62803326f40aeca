#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

namespace tallowick
{

class ServerSession;

// The one job a form starts on its session. Success is the job's own completion (which closes
// the form); a failure, the session idle again with an error, is handed to the form so it can
// show the message next to its fields. Every change of the session's state is announced, for the
// form's buttons.
class FormJob final : public QObject
{
    Q_OBJECT

public:
    FormJob(ServerSession &session, std::function<void(const QString &)> failed, QObject *parent);

    bool running() const { return m_running; }
    // Runs `perform`, which starts the job on the session. A request the session refused at once
    // (not connected, say) is reported like a failure.
    void start(const std::function<void()> &perform);
    // Called from the job's completion.
    void finished() { m_running = false; }

Q_SIGNALS:
    void stateChanged();

private:
    void sessionChanged();

    QPointer<ServerSession> m_session;
    std::function<void(const QString &)> m_failed;
    bool m_running = false;
};

} // namespace tallowick
