#pragma once

#include "core/ManagementSheet.h"

#include <QPointer>
#include <QWidget>
#include <cstdint>

class QLabel;
class QPushButton;

namespace tallowick
{

class NativeGrid;
class ServerSession;

// The structure, index and relation panels of the selected table: the session's metadata result
// in a read-only grid, under the schema toolbar that opens the management forms (new database,
// new table, add or edit a column, new index) and shows the table's CREATE statement.
class MetadataView final : public QWidget
{
    Q_OBJECT

public:
    explicit MetadataView(ServerSession &session, QWidget *parent = nullptr);

    NativeGrid *grid() const { return m_grid; }
    QPushButton *editColumnButton() const { return m_editColumn; }

private:
    void refresh();
    void openForm(ManagementSheet kind);
    void editSelectedColumn();

    QPointer<ServerSession> m_session;
    QLabel *m_title;
    QPushButton *m_createDatabase;
    QPushButton *m_createTable;
    QPushButton *m_addColumn;
    QPushButton *m_editColumn;
    QPushButton *m_createIndex;
    QPushButton *m_showCreate;
    NativeGrid *m_grid;
    std::int64_t m_selectedRow = -1;
};

} // namespace tallowick
