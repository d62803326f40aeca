#pragma once

#include "session/ServerSession.h"

#include <QDialog>
#include <QPointer>
#include <functional>

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace tallowick
{

// A modal form that ends in one operation on a session: a title, an optional caption, the
// subclass's fields, an inline error, and Cancel beside the acting button. While its operation
// runs the acting button is off; success closes the form, a failure shows next to the fields.
// Main thread only; the session may go away while the form is open.
class JobDialog : public QDialog
{
    Q_OBJECT

public:
    QString errorText() const;

protected:
    JobDialog(ServerSession &session, const QString &title, const QString &actLabel, QWidget *parent);

    // Where the subclass puts its fields, between the caption and the error.
    QVBoxLayout *content() const { return m_content; }
    ServerSession *session() const { return m_session; }
    QPushButton *actButton() const { return m_act; }
    void setErrorText(const QString &message);
    // The session is there and idle, and this form's operation is not running.
    bool idle() const;
    // Calls `start` with a completion that closes the form or shows the failure.
    void startJob(const std::function<void(ServerSession &, ServerSession::Finished)> &start);
    // Enables the controls for the current state; the default enables the acting button when idle.
    virtual void updateButtons();
    // What the acting button does.
    virtual void act() = 0;

private:
    QPointer<ServerSession> m_session;
    QVBoxLayout *m_content;
    QLabel *m_error;
    QPushButton *m_act;
    bool m_running = false;
};

} // namespace tallowick
