#include "ui/SessionTopBar.h"

#include "session/ServerSession.h"
#include "ui/ProfileColors.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tallowick
{

SessionTopBar::SessionTopBar(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_mark(new QLabel)
    , m_name(new QLabel)
    , m_details(new QLabel)
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(18, 12, 18, 8);
    layout->setSpacing(10);
    m_mark->setFixedSize(12, 12);
    m_mark->setStyleSheet(
        QStringLiteral("background: %1; border-radius: 6px;").arg(profileColor(session.profile().color).name()));
    QFont title = m_name->font();
    title.setPointSizeF(title.pointSizeF() * 1.35);
    title.setWeight(QFont::DemiBold);
    m_name->setFont(title);
    m_name->setText(QString::fromStdString(session.profile().name));
    m_details->setObjectName(QStringLiteral("sessionDetails"));
    m_details->setStyleSheet(QStringLiteral("color: palette(mid);"));
    m_details->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(m_name);
    texts->addWidget(m_details);
    layout->addWidget(m_mark, 0, Qt::AlignTop | Qt::AlignLeft);
    layout->addLayout(texts, 1);

    QObject::connect(&session, &ServerSession::versionChanged, this, &SessionTopBar::refresh);
    QObject::connect(&session, &ServerSession::cipherChanged, this, &SessionTopBar::refresh);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &SessionTopBar::refresh);
    QObject::connect(&session, &ServerSession::connectedChanged, this, &SessionTopBar::refresh);
    refresh();
}

void SessionTopBar::refresh()
{
    if (!m_session) {
        return;
    }
    QStringList parts { QString::fromStdString(m_session->profile().endpoint()) };
    if (m_session->profile().readOnly) {
        parts << QStringLiteral("read-only");
    }
    if (m_session->connected()) {
        parts << QStringLiteral("MySQL ") + QString::fromStdString(m_session->version());
        parts << (m_session->cipher().empty() ? QStringLiteral("unencrypted")
                                              : QStringLiteral("TLS ") + QString::fromStdString(m_session->cipher()));
    } else {
        parts << QStringLiteral("not connected");
    }
    if (!m_session->database().empty()) {
        parts << QStringLiteral("database ") + QString::fromStdString(m_session->database());
    }
    m_details->setText(parts.join(QStringLiteral(" · ")));
}

} // namespace tallowick
