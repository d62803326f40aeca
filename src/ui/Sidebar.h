#pragma once

#include <QPointer>
#include <QUuid>
#include <QWidget>
#include <vector>

class QLineEdit;
class QVBoxLayout;

namespace tallowick
{

class AppStore;
class ConnectionRow;
class DatabaseNavigator;

// The left column of the main window: the brand, a search field and "plus", the saved
// connections, and under the selected connection, while it is connected, its database navigator.
class Sidebar final : public QWidget
{
    Q_OBJECT

public:
    explicit Sidebar(AppStore &store, QWidget *parent = nullptr);

    QLineEdit *searchField() const { return m_search; }
    // The rows on show, in order.
    const std::vector<ConnectionRow *> &rows() const { return m_rows; }
    DatabaseNavigator *navigator() const;

private:
    void rebuild();
    // Selects the row `offset` places from `from`, stopping at either end.
    void moveSelection(const ConnectionRow *from, int offset);
    void refreshStates();
    void placeNavigator();

    QPointer<AppStore> m_store;
    QLineEdit *m_search;
    QWidget *m_list;
    QVBoxLayout *m_listLayout;
    std::vector<ConnectionRow *> m_rows;
    QPointer<DatabaseNavigator> m_navigator;
    QUuid m_navigatorSession;
};

} // namespace tallowick
