#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QPushButton;

namespace tallowick
{

class NativeGrid;
class ServerSession;

// The users panel: the server's accounts, and the grants of the account picked in the list.
class UsersView final : public QWidget
{
    Q_OBJECT

public:
    explicit UsersView(ServerSession &session, QWidget *parent = nullptr);

    NativeGrid *accounts() const { return m_accounts; }
    NativeGrid *grants() const { return m_grants; }

private:
    void refresh();
    void accountChosen(std::int64_t row);

    QPointer<ServerSession> m_session;
    QPushButton *m_reload;
    QPushButton *m_createUser;
    NativeGrid *m_accounts;
    QLabel *m_grantsTitle;
    NativeGrid *m_grants;
    std::int64_t m_selectedRow = -1;
};

} // namespace tallowick
