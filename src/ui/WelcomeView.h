#pragma once

#include <QWidget>

class QPushButton;

namespace tallowick
{

// The page shown while no session is active: what Tallowick is, and a way to add a connection.
class WelcomeView final : public QWidget
{
    Q_OBJECT

public:
    explicit WelcomeView(QWidget *parent = nullptr);

    QPushButton *newConnectionButton() const { return m_newConnection; }

Q_SIGNALS:
    void newConnectionRequested();

private:
    QPushButton *m_newConnection;
};

} // namespace tallowick
