#include "ui/JobDialog.h"

#include "ui/FormParts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tallowick
{

JobDialog::JobDialog(ServerSession &session, const QString &title, const QString &actLabel, QWidget *parent)
    : QDialog(parent)
    , m_session(&session)
    , m_content(new QVBoxLayout)
    , m_error(errorLabel(QStringLiteral("error")))
    , m_act(new QPushButton(actLabel))
{
    setModal(true);
    setWindowTitle(title);
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(24, 22, 24, 20);
    root->setSpacing(12);
    root->addWidget(titleLabel(title));
    m_content->setContentsMargins(0, 0, 0, 0);
    m_content->setSpacing(12);
    root->addLayout(m_content, 1);
    root->addWidget(m_error);

    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("cancel"));
    m_act->setObjectName(QStringLiteral("apply"));
    m_act->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cancel);
    buttons->addWidget(m_act);
    root->addLayout(buttons);

    QObject::connect(cancel, &QPushButton::clicked, this, &JobDialog::reject);
    QObject::connect(m_act, &QPushButton::clicked, this, [this] { act(); });
    QObject::connect(&session, &ServerSession::busyChanged, this, [this] { updateButtons(); });
}

QString JobDialog::errorText() const
{
    return m_error->text();
}

void JobDialog::setErrorText(const QString &message)
{
    showError(m_error, message);
}

bool JobDialog::idle() const
{
    return m_session && !m_session->busy() && !m_running;
}

void JobDialog::startJob(const std::function<void(ServerSession &, ServerSession::Finished)> &start)
{
    if (!idle()) {
        return;
    }
    setErrorText({});
    m_running = true;
    updateButtons();
    const QPointer<JobDialog> form(this);
    start(*m_session, [form](const std::optional<std::string> &failure) {
        if (!form) {
            return;
        }
        form->m_running = false;
        if (failure) {
            form->setErrorText(QString::fromStdString(*failure));
            form->updateButtons();
        } else {
            form->accept();
        }
    });
}

void JobDialog::updateButtons()
{
    m_act->setEnabled(idle());
}

} // namespace tallowick
