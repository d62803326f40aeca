#include "ui/SessionStatusBar.h"

#include "session/ServerSession.h"
#include "ui/FormParts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <algorithm>

namespace tallowick
{

SessionStatusBar::SessionStatusBar(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_status(new QLabel)
    , m_error(errorLabel(QStringLiteral("sessionError")))
    , m_dismiss(new QPushButton(QStringLiteral("Dismiss")))
    , m_busy(new QProgressBar)
    , m_cancel(new QPushButton(QStringLiteral("Cancel")))
{
    setObjectName(QStringLiteral("sessionStatusBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(14, 6, 14, 6);
    layout->setSpacing(10);

    m_busy->setRange(0, 0); // an indeterminate, moving bar
    m_busy->setFixedSize(90, 10);
    m_busy->setTextVisible(false);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_cancel->setToolTip(QStringLiteral("Stop the running statement on the server"));
    m_dismiss->setFlat(true);
    m_dismiss->setToolTip(QStringLiteral("Hide this error"));

    layout->addWidget(m_busy);
    layout->addWidget(m_status);
    layout->addWidget(m_error, 1);
    layout->addWidget(m_dismiss);
    layout->addWidget(m_cancel);

    QObject::connect(m_cancel, &QPushButton::clicked, this, [this] {
        if (m_session) {
            m_session->cancel();
        }
    });
    QObject::connect(m_dismiss, &QPushButton::clicked, this, [this] {
        if (m_session) {
            m_session->clearError();
        }
    });
    QObject::connect(&session, &ServerSession::statusChanged, this, &SessionStatusBar::refresh);
    QObject::connect(&session, &ServerSession::errorChanged, this, &SessionStatusBar::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &SessionStatusBar::refresh);
    QObject::connect(&session, &ServerSession::progressChanged, this, &SessionStatusBar::refresh);
    refresh();
}

void SessionStatusBar::refresh()
{
    if (!m_session) {
        return;
    }
    m_status->setText(QString::fromStdString(m_session->status()));
    const bool hasError = m_session->error().has_value();
    m_error->setText(hasError ? QString::fromStdString(*m_session->error()) : QString());
    m_error->setVisible(hasError);
    m_dismiss->setVisible(hasError);
    m_busy->setVisible(m_session->busy());
    // A moving bar while the job cannot tell how far it is, a filling one when it can.
    const int progress = m_session->progress();
    m_busy->setRange(0, progress < 0 ? 0 : 100);
    m_busy->setValue(std::max(progress, 0));
    m_cancel->setVisible(m_session->busy());
}

} // namespace tallowick
