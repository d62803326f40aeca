#pragma once

#include <QPointer>
#include <QWidget>
#include <set>
#include <string>

class QAction;
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;

namespace tallowick
{

class ServerSession;

// The tree of a connected session's side column: the server's databases, each expandable to its
// tables and views, under a filter field. It reads the session's lists and calls the session's
// navigation operations; what is expanded and the filter are its own state, kept across every
// refresh from the session.
class DatabaseNavigator final : public QWidget
{
    Q_OBJECT

public:
    // What a row of the tree stands for, in ItemKindRole.
    enum class ItemKind { database, table, view, placeholder };
    static constexpr int ItemKindRole = Qt::UserRole;
    static constexpr int DatabaseRole = Qt::UserRole + 1;
    static constexpr int TableRole = Qt::UserRole + 2;

    explicit DatabaseNavigator(ServerSession &session, QWidget *parent = nullptr);

    QLineEdit *filterField() const { return m_filter; }
    QTreeWidget *tree() const { return m_tree; }
    bool isExpanded(const std::string &database) const { return m_expanded.count(database) > 0; }

    // Expands or collapses a database as a click on its row does.
    void toggleDatabase(const std::string &database);
    // Opens a table's data as a click on its row does.
    void openTable(const std::string &database, const std::string &table);
    // The table's context menu actions, in order, owned by `owner`.
    QList<QAction *> tableActions(const std::string &database, const std::string &table, QObject *owner);

Q_SIGNALS:
    void tableOpened(const QString &name);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh();
    void activate(const QTreeWidgetItem *item);
    void showContextMenu(const QPoint &position);
    void followCurrentDatabase();

    QPointer<ServerSession> m_session;
    QLineEdit *m_filter;
    QTreeWidget *m_tree;
    std::set<std::string> m_expanded;
    std::string m_currentDatabase;
    // The last table opened here, highlighted while the session is still loading it.
    std::string m_lastOpenedDatabase;
    std::string m_lastOpened;
    bool m_opening = false;
};

} // namespace tallowick
