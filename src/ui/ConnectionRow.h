#pragma once

#include "core/ConnectionProfile.h"

#include <QFrame>
#include <QPointer>

class QLabel;

namespace tallowick
{

class AppStore;
class ServerSession;

// One saved connection in the sidebar: colour mark, name, endpoint, a lock when read-only, and
// the state of its session. Clicking selects it, double-clicking or Enter connects, and the
// context menu connects, edits, duplicates or removes it. The arrow keys ask the sidebar for a
// neighbouring row.
class ConnectionRow final : public QFrame
{
    Q_OBJECT

public:
    ConnectionRow(AppStore &store, const ConnectionProfile &profile, QWidget *parent = nullptr);

    const ConnectionProfile &profile() const { return m_profile; }
    void setSelected(bool selected);
    // Shows the session's current state (none, connecting or busy, connected).
    void refreshState();
    // The context menu's actions, in order; built fresh so their enabling follows the session.
    QList<QAction *> menuActions(QObject *owner);

Q_SIGNALS:
    // The user asked for the row `step` places down (negative: up) with the keyboard.
    void stepRequested(int step);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    ServerSession *session() const;

    QPointer<AppStore> m_store;
    const ConnectionProfile m_profile;
    QLabel *m_state;
    bool m_selected = false;
};

} // namespace tallowick
