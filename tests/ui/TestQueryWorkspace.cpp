#include "client/ClientThreadScope.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/NativeGrid.h"
#include "ui/QueryWorkspace.h"
#include "ui/SQLEditor.h"

#include <QAbstractItemView>
#include <QAction>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTabBar>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// Replaces the editor's whole text by typing, which is how the tab's SQL normally changes.
void typeScript(SQLEditor &editor, const QString &text)
{
    editor.setFocus();
    QTest::keyClick(&editor, Qt::Key_A, Qt::ControlModifier);
    const QStringList lines = text.split(u'\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (i > 0) {
            QTest::keyClick(&editor, Qt::Key_Return);
        }
        QTest::keyClicks(&editor, lines[i]);
    }
}

QAbstractButton *closeButton(QTabBar &tabs, int index)
{
    if (QWidget *right = tabs.tabButton(index, QTabBar::RightSide)) {
        return qobject_cast<QAbstractButton *>(right);
    }
    return qobject_cast<QAbstractButton *>(tabs.tabButton(index, QTabBar::LeftSide));
}

} // namespace

// The query mode driven like a user: real widgets, a real session, the disposable server.
class TestQueryWorkspace final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void emptyStateBeforeTheFirstRun();
    void scriptResultsArePickedByStatement();
    void resultHeaderCountsTimeAndDisplayLimit();
    void explainOpensAndRunsAnExplainTab();
    void controlsAreDisabledWhileTheSessionWorks();
    void controlReturnRunsTheSelectionOrTheScript();
    void typingUpdatesTheTabAndMarksItUnsaved();
    void tabBarSwitchesAndClosesTabs();
    void editingAQueryResultCellSavesIt();
    void readOnlyConnectionOffersNoEditing();
    void transactionMenuStartsAndRollsBack();

private:
    const QueryTab &activeTab() const { return m_session->tabs()[m_session->tabIndex()]; }
    QString cell(int row, int column) const { return m_view->grid()->model()->index(row, column).data().toString(); }
    void runWithButton(const QString &script);

    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<QueryWorkspace> m_view;
    ClientThreadScope m_clientThread;
};

void TestQueryWorkspace::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE items (id INT PRIMARY KEY, name VARCHAR(50), price DECIMAL(8,2))");
    m_scratch->run("INSERT INTO items VALUES (1, 'bolt', 0.25), (2, 'nut', 0.10), (3, 'washer', 0.05)");
    m_session = m_harness->session(m_harness->profile());
    m_view = std::make_unique<QueryWorkspace>(*m_session);
    m_view->resize(1100, 700);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->database(), m_scratch->name());
}

void TestQueryWorkspace::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_view.reset();
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

void TestQueryWorkspace::runWithButton(const QString &script)
{
    typeScript(*m_view->editor(), script);
    QCOMPARE(activeTab().sql, script.toStdString());
    QTest::mouseClick(m_view->runButton(), Qt::LeftButton);
    QVERIFY(settle(*m_session));
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
}

void TestQueryWorkspace::emptyStateBeforeTheFirstRun()
{
    QLabel *empty = titled<QLabel>(*m_view, QStringLiteral("Your results will appear here."));
    QVERIFY(empty);
    QVERIFY(empty->isVisible());
    QVERIFY(!m_view->grid()->isVisible());

    runWithButton(QStringLiteral("SELECT name FROM items ORDER BY id"));
    QVERIFY(!empty->isVisible());

    // A new tab has no result of its own, so the empty state comes back for it.
    QTest::mouseClick(titled<QPushButton>(*m_view, QStringLiteral("+")), Qt::LeftButton);
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QVERIFY(empty->isVisible());
}

void TestQueryWorkspace::scriptResultsArePickedByStatement()
{
    runWithButton(QStringLiteral("SELECT 'one' AS first;\nSELECT name FROM items WHERE id <= 2 ORDER BY id;\n"
                                 "SELECT id, name, price FROM items ORDER BY id"));
    QComboBox *picker = m_view->resultPicker();
    QVERIFY(picker->isVisible());
    // The last statement is the one on display.
    QCOMPARE(picker->currentText(), QStringLiteral("Statement 3"));

    QVERIFY(choose(picker, QStringLiteral("Statement 2")));
    QCOMPARE(activeTab().resultIndex, std::int64_t(1));
    QCOMPARE(m_view->grid()->model()->rowCount(), 2);
    QCOMPARE(cell(1, 0), QStringLiteral("nut"));
    QCOMPARE(m_view->countsLabel()->text(), QStringLiteral("2 rows · 1 columns"));

    // Export writes the result on display, not the last one.
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("shown.csv"));
    m_harness->prompts.files = { path.toStdString() };
    QPushButton *exportButton = nullptr;
    for (QPushButton *candidate : m_view->findChildren<QPushButton *>()) {
        if (candidate->toolTip() == QStringLiteral("Export result as CSV")) {
            exportButton = candidate;
        }
    }
    QVERIFY(exportButton && exportButton->isVisible());
    QTest::mouseClick(exportButton, Qt::LeftButton);
    QFile written(path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), QByteArray("\"name\"\r\n\"bolt\"\r\n\"nut\"\r\n"));
}

void TestQueryWorkspace::resultHeaderCountsTimeAndDisplayLimit()
{
    runWithButton(QStringLiteral("SELECT seq FROM seq_1_to_12000"));
    QCOMPARE(m_view->grid()->model()->rowCount(), 10000);
    QVERIFY(m_view->limitNote()->isVisible());
    QVERIFY2(QRegularExpression(QStringLiteral("Completed in \\d+\\.\\d{3}s$"))
                 .match(m_view->timeLabel()->text())
                 .hasMatch(),
        qPrintable(m_view->timeLabel()->text()));

    // A small result afterwards in the same tab drops the note again.
    runWithButton(QStringLiteral("SELECT id, name FROM items ORDER BY id"));
    QVERIFY(!m_view->limitNote()->isVisible());
}

void TestQueryWorkspace::explainOpensAndRunsAnExplainTab()
{
    runWithButton(QStringLiteral("SELECT 1"));
    const QUuid original = m_session->activeTab();
    QTest::mouseClick(m_view->explainButton(), Qt::LeftButton);
    QVERIFY(settle(*m_session));
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());

    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QVERIFY(m_session->activeTab() != original);
    QCOMPARE(m_view->editor()->sql(), QStringLiteral("EXPLAIN SELECT 1"));

    // It ran: the plan is on display, and the original tab still holds its own result.
    const auto names = m_view->grid()->result().columnNames();
    QVERIFY(std::find(names.begin(), names.end(), "select_type") != names.end());
    QCOMPARE(m_session->tabs()[0].result->columnNames(), std::vector<std::string> { "1" });
}

void TestQueryWorkspace::controlsAreDisabledWhileTheSessionWorks()
{
    typeScript(*m_view->editor(), QStringLiteral("SELECT SLEEP(1) AS slept"));
    QTest::mouseClick(m_view->runButton(), Qt::LeftButton);
    QVERIFY(m_session->busy());
    QVERIFY(!m_view->runButton()->isEnabled());
    QVERIFY(!m_view->explainButton()->isEnabled());
    QVERIFY(!m_view->transactionButton()->isEnabled());

    // A workspace that appears while the session works starts out disabled too.
    QueryWorkspace late(*m_session);
    QVERIFY(!late.runButton()->isEnabled());

    // Clicks on the disabled buttons start nothing.
    QTest::mouseClick(m_view->explainButton(), Qt::LeftButton);
    QCOMPARE(m_session->tabs().size(), std::size_t(1));

    QVERIFY(settle(*m_session));
    QVERIFY(m_view->explainButton()->isEnabled());
    QVERIFY(late.runButton()->isEnabled());
}

// In the editor, Ctrl+Return runs the selection or the whole script even though the main window
// offers "Run Query" on the same keys for any focus inside it; elsewhere the window's shortcut runs.
void TestQueryWorkspace::controlReturnRunsTheSelectionOrTheScript()
{
    QMainWindow host;
    auto *workspace = new QueryWorkspace(*m_session);
    host.setCentralWidget(workspace);
    auto *runQuery = new QAction(QStringLiteral("Run Query"), &host);
    runQuery->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    host.addAction(runQuery);
    QObject::connect(runQuery, &QAction::triggered, m_session.get(), [this] { m_session->run(); });
    QSignalSpy windowRuns(runQuery, &QAction::triggered);
    host.resize(1000, 700);
    host.show();
    host.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&host));

    SQLEditor *editor = workspace->editor();
    const QString script = QStringLiteral("SELECT 'whole' AS first;\nSELECT name AS picked FROM items WHERE id = 2");
    typeScript(*editor, script);
    QTextCursor cursor = editor->textCursor();
    cursor.setPosition(static_cast<int>(script.indexOf(QStringLiteral("SELECT name"))));
    cursor.setPosition(static_cast<int>(script.size()), QTextCursor::KeepAnchor);
    editor->setTextCursor(cursor);
    QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
    QVERIFY(settle(*m_session));
    QCOMPARE(activeTab().results.size(), std::size_t(1));
    QCOMPARE(workspace->grid()->model()->index(0, 0).data().toString(), QStringLiteral("nut"));
    QCOMPARE(editor->sql(), script); // running part of the text leaves the text alone

    cursor.clearSelection();
    editor->setTextCursor(cursor);
    QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
    QVERIFY(settle(*m_session));
    QCOMPARE(activeTab().results.size(), std::size_t(2));
    QCOMPARE(activeTab().results.front().columnNames(), std::vector<std::string> { "first" });
    QCOMPARE(windowRuns.count(), 0);

    // Anywhere else in the window the window's shortcut runs the whole tab.
    workspace->grid()->setFocus();
    QTest::keyClick(workspace->grid(), Qt::Key_Return, Qt::ControlModifier);
    QVERIFY(settle(*m_session));
    QCOMPARE(windowRuns.count(), 1);
}

void TestQueryWorkspace::typingUpdatesTheTabAndMarksItUnsaved()
{
    QTabBar *tabs = m_view->tabBar();
    const QString title = tabs->tabText(0);

    typeScript(*m_view->editor(), QStringLiteral("SELECT 4"));
    QTest::keyClicks(m_view->editor(), QStringLiteral("2 AS answer"));
    QCOMPARE(activeTab().sql, std::string("SELECT 42 AS answer"));
    QCOMPARE(tabs->tabText(0), title + QStringLiteral(" •"));
    // The editor keeps the caret where the user typed: the session's echo did not reset it.
    QCOMPARE(m_view->editor()->textCursor().position(), static_cast<int>(QStringLiteral("SELECT 42 AS answer").size()));

    // Run runs what was typed.
    QTest::mouseClick(m_view->runButton(), Qt::LeftButton);
    QVERIFY(settle(*m_session));
    QCOMPARE(cell(0, 0), QStringLiteral("42"));
}

void TestQueryWorkspace::tabBarSwitchesAndClosesTabs()
{
    QTabBar *tabs = m_view->tabBar();
    typeScript(*m_view->editor(), QStringLiteral("SELECT 'first tab'"));
    QTest::mouseClick(titled<QPushButton>(*m_view, QStringLiteral("+")), Qt::LeftButton);
    QTest::mouseClick(titled<QPushButton>(*m_view, QStringLiteral("+")), Qt::LeftButton);
    QCOMPARE(tabs->currentIndex(), 2);
    typeScript(*m_view->editor(), QStringLiteral("SELECT 'third tab'"));

    // Clicking a tab makes it the session's current tab and shows its text.
    QTest::mouseClick(tabs, Qt::LeftButton, {}, tabs->tabRect(0).center());
    QCOMPARE(m_session->activeTab(), m_session->tabs()[0].id);
    QCOMPARE(m_view->editor()->sql(), QStringLiteral("SELECT 'first tab'"));

    // The untouched middle tab closes at once, and the right one goes.
    const QUuid middle = m_session->tabs()[1].id;
    QVERIFY(closeButton(*tabs, 1));
    QTest::mouseClick(closeButton(*tabs, 1), Qt::LeftButton);
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QVERIFY(m_session->tabs()[1].id != middle);
    QCOMPARE(m_session->activeTab(), m_session->tabs()[0].id);

    // An unsaved tab asks first; declining keeps it.
    m_harness->prompts.confirmations = { false };
    QTest::mouseClick(closeButton(*tabs, 1), Qt::LeftButton);
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Close an unsaved query?"));
    QCOMPARE(tabs->count(), 2);

    // Closing the current tab moves to the one that is left.
    m_harness->prompts.confirmations = { true };
    QTest::mouseClick(closeButton(*tabs, 0), Qt::LeftButton);
    QCOMPARE(tabs->count(), 1);
    QCOMPARE(m_view->editor()->sql(), QStringLiteral("SELECT 'third tab'"));
}

void TestQueryWorkspace::editingAQueryResultCellSavesIt()
{
    runWithButton(QStringLiteral("SELECT id, name, UPPER(name) AS shout FROM items ORDER BY id"));
    NativeGrid *grid = m_view->grid();
    QVERIFY(m_view->editNote()->isVisible());

    // A calculated column opens no editor.
    const QModelIndex derived = grid->model()->index(1, 2);
    doubleClickCell(*grid, derived);
    QVERIFY(!grid->indexWidget(derived));

    const QModelIndex name = grid->model()->index(1, 1);
    doubleClickCell(*grid, name);
    auto *editor = qobject_cast<QLineEdit *>(grid->indexWidget(name));
    QVERIFY(editor);
    QSignalSpy edits(grid, &NativeGrid::cellEdited);
    QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClicks(editor, "hex nut");
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(edits.count(), 1);
    QVERIFY(settle(*m_session));
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
    QCOMPARE(m_scratch->run("SELECT name FROM items WHERE id = 2").rows.at(0).at(0), Cell("hex nut"));
    QCOMPARE(cell(1, 1), QStringLiteral("hex nut"));
    // The derived value is not re-read until the query runs again.
    QCOMPARE(cell(1, 2), QStringLiteral("NUT"));
}

void TestQueryWorkspace::readOnlyConnectionOffersNoEditing()
{
    ConnectionProfile profile = m_harness->profile("Read-only");
    profile.readOnly = true;
    const std::unique_ptr<ServerSession> session = m_harness->session(profile);
    QueryWorkspace view(*session);
    view.resize(1000, 600);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QVERIFY(connectAndSettle(*session));
    session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*session));
    typeScript(*view.editor(), QStringLiteral("SELECT id, name FROM items ORDER BY id"));
    QTest::mouseClick(view.runButton(), Qt::LeftButton);
    QVERIFY(settle(*session));
    QVERIFY(!view.editNote()->isVisible());
    const QModelIndex name = view.grid()->model()->index(0, 1);
    doubleClickCell(*view.grid(), name);
    QVERIFY(!view.grid()->indexWidget(name));
}

void TestQueryWorkspace::transactionMenuStartsAndRollsBack()
{
    QMenu *menu = m_view->transactionButton()->menu();
    QVERIFY(menu);
    actionTitled(menu->actions(), QStringLiteral("START TRANSACTION"))->trigger();
    QVERIFY(settle(*m_session));
    m_harness->prompts.confirmations = { true };
    runWithButton(QStringLiteral("UPDATE items SET name = 'lost' WHERE id = 1"));
    // Still open: another connection does not see the change yet.
    QCOMPARE(m_scratch->run("SELECT name FROM items WHERE id = 1").rows.at(0).at(0), Cell("bolt"));

    actionTitled(menu->actions(), QStringLiteral("ROLLBACK"))->trigger();
    QVERIFY(settle(*m_session));
    runWithButton(QStringLiteral("SELECT name FROM items WHERE id = 1"));
    QCOMPARE(cell(0, 0), QStringLiteral("bolt"));
}

QTEST_MAIN(TestQueryWorkspace)
#include "TestQueryWorkspace.moc"
