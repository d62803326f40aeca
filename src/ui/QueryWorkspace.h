#pragma once

#include <QPointer>
#include <QUuid>
#include <QWidget>
#include <string>

class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTabBar;
class QToolButton;

namespace tallowick
{

class NativeGrid;
class SQLEditor;
class ServerSession;

// The query mode of a session: its tabs, a toolbar, the SQL editor of the current tab and the
// current tab's results. It owns no data; everything is the session's.
class QueryWorkspace final : public QWidget
{
    Q_OBJECT

public:
    explicit QueryWorkspace(ServerSession &session, QWidget *parent = nullptr);

    SQLEditor *editor() const { return m_editor; }
    NativeGrid *grid() const { return m_grid; }
    QTabBar *tabBar() const { return m_tabs; }
    QComboBox *resultPicker() const { return m_resultPicker; }
    QPushButton *runButton() const { return m_run; }
    QPushButton *explainButton() const { return m_explain; }
    QToolButton *transactionButton() const { return m_transaction; }
    QLabel *countsLabel() const { return m_counts; }
    QLabel *limitNote() const { return m_limitNote; }
    QLabel *editNote() const { return m_editNote; }
    QLabel *timeLabel() const { return m_time; }

private:
    void refreshTabs();
    void refreshEditor();
    void refreshResult();
    void refreshControls();
    void refreshCompletions();
    void explain();

    QPointer<ServerSession> m_session;
    QTabBar *m_tabs;
    QPushButton *m_newTab;
    QPushButton *m_run;
    QPushButton *m_explain;
    QToolButton *m_transaction;
    QPushButton *m_open;
    QPushButton *m_save;
    SQLEditor *m_editor;
    QWidget *m_resultHeader;
    QComboBox *m_resultPicker;
    QLabel *m_counts;
    QLabel *m_limitNote;
    QLabel *m_editNote;
    QLabel *m_time;
    QPushButton *m_export;
    QStackedWidget *m_resultArea;
    QWidget *m_emptyState;
    NativeGrid *m_grid;
    bool m_updatingTabs = false;
    QUuid m_editorTab; // the tab whose text the editor holds
    std::string m_editorText; // that text, as last exchanged with the session
};

} // namespace tallowick
