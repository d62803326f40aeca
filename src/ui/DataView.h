#pragma once

#include <QPointer>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tallowick
{

class NativeGrid;
class ServerSession;

// The table browser: one page of the selected table in the grid, with paging, page size, a
// filter over the text of every non-blob column, sorting by header click, refresh, row delete,
// CSV export of the page and export of the whole database.
class DataView final : public QWidget
{
    Q_OBJECT

public:
    explicit DataView(ServerSession &session, QWidget *parent = nullptr);

    NativeGrid *grid() const { return m_grid; }

private:
    void refreshGrid();
    void refreshControls();
    void goToPage(qint64 page);
    void applyFilter();
    void sortBy(const std::string &column);

    QPointer<ServerSession> m_session;
    QLabel *m_title;
    QLineEdit *m_filter;
    QPushButton *m_previous;
    QLabel *m_pageLabel;
    QPushButton *m_next;
    QComboBox *m_pageSize;
    QPushButton *m_refresh;
    QPushButton *m_delete;
    QPushButton *m_insertRow;
    QPushButton *m_importCSV;
    QPushButton *m_exportCSV;
    QPushButton *m_exportDatabase;
    NativeGrid *m_grid;
    QLabel *m_empty;
};

} // namespace tallowick
