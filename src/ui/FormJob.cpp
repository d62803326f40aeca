#include "ui/FormJob.h"

#include "session/ServerSession.h"

namespace tallowick
{

FormJob::FormJob(ServerSession &session, std::function<void(const QString &)> failed, QObject *parent)
    : QObject(parent)
    , m_session(&session)
    , m_failed(std::move(failed))
{
    // The session clears busy before it sets the error of a failed job, so both are watched.
    QObject::connect(&session, &ServerSession::busyChanged, this, &FormJob::sessionChanged);
    QObject::connect(&session, &ServerSession::errorChanged, this, &FormJob::sessionChanged);
}

void FormJob::start(const std::function<void()> &perform)
{
    m_running = true;
    perform();
    if (m_session && !m_session->busy()) {
        // Refused before it started (a closed connection, say); the session says why, if at all.
        m_running = false;
        if (m_session->error()) {
            m_failed(QString::fromStdString(*m_session->error()));
        }
    }
    Q_EMIT stateChanged();
}

void FormJob::sessionChanged()
{
    if (m_running && m_session && !m_session->busy() && m_session->error()) {
        m_running = false;
        m_failed(QString::fromStdString(*m_session->error()));
    }
    Q_EMIT stateChanged();
}

} // namespace tallowick
