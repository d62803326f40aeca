#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QPushButton;

namespace tallowick
{

class NativeGrid;
class ServerSession;

// The structure, index and relation panels of the selected table: the session's metadata result
// in a read-only grid, with the table's CREATE statement one click away in a new query tab.
class MetadataView final : public QWidget
{
    Q_OBJECT

public:
    explicit MetadataView(ServerSession &session, QWidget *parent = nullptr);

    NativeGrid *grid() const { return m_grid; }

private:
    void refresh();

    QPointer<ServerSession> m_session;
    QLabel *m_title;
    QPushButton *m_showCreate;
    NativeGrid *m_grid;
};

} // namespace tallowick
