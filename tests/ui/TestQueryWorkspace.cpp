#include "client/ClientThreadScope.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/NativeGrid.h"
#include "ui/QueryWorkspace.h"
#include "ui/SQLEditor.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabBar>
#include <QTemporaryDir>
#include <QToolButton>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The query mode driven like a user: real widgets, a real session on a scratch database with
// three items, the disposable server.
struct Workspace {
    ClientThreadScope clientThread; // the scratch database is set up from this thread
    SessionHarness harness;
    ScratchDatabase scratch { harness.server };
    std::unique_ptr<ServerSession> session;
    std::unique_ptr<QueryWorkspace> view;

    ~Workspace() { settle(*session); }

    bool open(bool readOnly = false)
    {
        scratch.run("CREATE TABLE items (id INT PRIMARY KEY, name VARCHAR(50))");
        scratch.run("INSERT INTO items VALUES (1, 'bolt'), (2, 'nut'), (3, 'washer')");
        ConnectionProfile profile = harness.profile();
        profile.readOnly = readOnly;
        session = harness.session(profile);
        view = std::make_unique<QueryWorkspace>(*session);
        view->resize(1100, 700);
        view->show();
        if (!QTest::qWaitForWindowExposed(view.get()) || !connectAndSettle(*session)) {
            return false;
        }
        session->chooseDatabase(scratch.name());
        return settle(*session);
    }

    // Replaces the editor's whole text by typing, which is how the tab's SQL normally changes.
    void type(const QString &text)
    {
        view->editor()->setFocus();
        QTest::keyClick(view->editor(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(view->editor(), text);
    }

    bool run(const QString &script)
    {
        type(script);
        QTest::mouseClick(view->runButton(), Qt::LeftButton);
        return settle(*session) && !session->error();
    }

    void click(const QString &button) { QTest::mouseClick(titled<QPushButton>(*view, button), Qt::LeftButton); }
    const QueryTab &activeTab() const { return session->tabs()[session->tabIndex()]; }
    QString cell(int row, int column) const { return view->grid()->model()->index(row, column).data().toString(); }
    Cell stored(int id) { return scratch.run("SELECT name FROM items WHERE id = " + std::to_string(id)).rows[0][0]; }
};

} // namespace

class TestQueryWorkspace final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resultAreaFollowsTheTabAndThePickedStatement();
    void controlsWaitForTheSessionAndExplainOpensATab();
    void typingMarksTheTabAndTabsSwitchAndClose();
    void editingFollowsTheProfile_data();
    void editingFollowsTheProfile();
    void transactionMenuStartsAndRollsBack();
};

void TestQueryWorkspace::resultAreaFollowsTheTabAndThePickedStatement()
{
    Workspace w;
    QVERIFY(w.open());
    QLabel *empty = titled<QLabel>(*w.view, QStringLiteral("Your results will appear here."));
    QVERIFY(empty->isVisible() && !w.view->grid()->isVisible());
    QVERIFY(w.run("SELECT 'one'; SELECT name FROM items WHERE id <= 2 ORDER BY id; SELECT seq FROM seq_1_to_10001"));
    QVERIFY(!empty->isVisible());
    // The last statement is the one on display, cut at the display limit.
    QVERIFY(w.view->resultPicker()->isVisible() && w.view->limitNote()->isVisible());
    QCOMPARE(w.view->resultPicker()->currentText(), QStringLiteral("Statement 3"));
    QCOMPARE(w.view->grid()->model()->rowCount(), 10000);
    QVERIFY(choose(w.view->resultPicker(), QStringLiteral("Statement 2")));
    QCOMPARE(w.activeTab().resultIndex, std::int64_t(1));
    QCOMPARE(w.cell(1, 0), QStringLiteral("nut"));
    QCOMPARE(w.view->countsLabel()->text(), QStringLiteral("2 rows · 1 columns"));
    QVERIFY(!w.view->limitNote()->isVisible());
    // Export writes the result on display, not the last one.
    const QTemporaryDir folder;
    QFile written(folder.filePath(QStringLiteral("shown.csv")));
    w.harness.prompts.files = { written.fileName().toStdString() };
    w.click(QStringLiteral("Export CSV…"));
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), QByteArray("\"name\"\r\n\"bolt\"\r\n\"nut\"\r\n"));
    // A new tab has no result of its own, so the empty state comes back for it.
    w.click(QStringLiteral("+"));
    QCOMPARE(w.session->tabs().size(), std::size_t(2));
    QVERIFY(empty->isVisible());
}

void TestQueryWorkspace::controlsWaitForTheSessionAndExplainOpensATab()
{
    Workspace w;
    QVERIFY(w.open());
    w.type(QStringLiteral("SELECT SLEEP(1)"));
    QTest::mouseClick(w.view->runButton(), Qt::LeftButton);
    QVERIFY(w.session->busy());
    QVERIFY(!w.view->runButton()->isEnabled() && !w.view->explainButton()->isEnabled());
    QVERIFY(!w.view->transactionButton()->isEnabled());
    QueryWorkspace late(*w.session); // one that appears while the session works starts disabled too
    QVERIFY(!late.runButton()->isEnabled());
    w.click(QStringLiteral("Explain")); // disabled: starts nothing
    QCOMPARE(w.session->tabs().size(), std::size_t(1));
    QVERIFY(settle(*w.session));
    QVERIFY(late.runButton()->isEnabled());

    w.click(QStringLiteral("Explain"));
    QVERIFY(settle(*w.session));
    QCOMPARE(w.session->tabs().size(), std::size_t(2));
    QCOMPARE(w.session->activeTab(), w.session->tabs()[1].id);
    QCOMPARE(w.view->editor()->sql(), QStringLiteral("EXPLAIN SELECT SLEEP(1)"));
    // It ran: the plan is on display, and the original tab still holds its own result.
    const std::vector<std::string> plan = w.view->grid()->result().columnNames();
    QVERIFY(std::find(plan.begin(), plan.end(), "select_type") != plan.end());
    QCOMPARE(w.session->tabs()[0].result->columnNames(), std::vector<std::string> { "SLEEP(1)" });
}

void TestQueryWorkspace::typingMarksTheTabAndTabsSwitchAndClose()
{
    Workspace w;
    QVERIFY(w.open());
    QTabBar *tabs = w.view->tabBar();
    const QString title = tabs->tabText(0);
    w.type(QStringLiteral("SELECT 4"));
    QTest::keyClicks(w.view->editor(), QStringLiteral("2 AS answer"));
    QCOMPARE(w.activeTab().sql, std::string("SELECT 42 AS answer"));
    QCOMPARE(tabs->tabText(0), title + QStringLiteral(" •"));
    // The editor keeps the caret where the user typed: the session's echo did not reset it.
    QCOMPARE(w.view->editor()->textCursor().position(), 19);
    w.click(QStringLiteral("+"));
    w.click(QStringLiteral("+"));
    QCOMPARE(tabs->currentIndex(), 2);
    w.type(QStringLiteral("SELECT 'third tab'"));
    // Clicking a tab makes it the session's current tab and shows its text.
    QTest::mouseClick(tabs, Qt::LeftButton, {}, tabs->tabRect(0).center());
    QCOMPARE(w.session->activeTab(), w.session->tabs()[0].id);
    QCOMPARE(w.view->editor()->sql(), QStringLiteral("SELECT 42 AS answer"));
    // The untouched middle tab closes at once; an unsaved one asks first, and declining keeps it.
    Q_EMIT tabs->tabCloseRequested(1);
    QCOMPARE(tabs->count(), 2);
    Q_EMIT tabs->tabCloseRequested(1);
    QCOMPARE(w.harness.prompts.asked.back().text, std::string("Close an unsaved query?"));
    QCOMPARE(tabs->count(), 2);
    // Closing the current tab moves to the one that is left.
    w.harness.prompts.confirmations = { true };
    Q_EMIT tabs->tabCloseRequested(0);
    QCOMPARE(tabs->count(), 1);
    QCOMPARE(w.view->editor()->sql(), QStringLiteral("SELECT 'third tab'"));
}

void TestQueryWorkspace::editingFollowsTheProfile_data()
{
    QTest::addColumn<bool>("readOnly");
    QTest::newRow("writable") << false;
    QTest::newRow("read-only") << true;
}

void TestQueryWorkspace::editingFollowsTheProfile()
{
    QFETCH(bool, readOnly);
    Workspace w;
    QVERIFY(w.open(readOnly));
    QVERIFY(w.run("SELECT id, name FROM items ORDER BY id"));
    QCOMPARE(w.view->editNote()->isVisible(), !readOnly);
    const QModelIndex name = w.view->grid()->model()->index(1, 1);
    doubleClickCell(*w.view->grid(), name);
    auto *editor = qobject_cast<QLineEdit *>(w.view->grid()->indexWidget(name));
    QCOMPARE(editor == nullptr, readOnly);
    if (editor) {
        QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(editor, "hex nut");
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(w.stored(2), Cell("hex nut"));
        QVERIFY(settle(*w.session));
        QCOMPARE(w.cell(1, 1), QStringLiteral("hex nut"));
    }
}

// The menu's commands reach the session's connection; a write inside the transaction is reviewed
// before it runs, and ROLLBACK takes it back.
void TestQueryWorkspace::transactionMenuStartsAndRollsBack()
{
    Workspace w;
    QVERIFY(w.open());
    const QList<QAction *> commands = w.view->transactionButton()->menu()->actions();
    actionTitled(commands, QStringLiteral("START TRANSACTION"))->trigger();
    QVERIFY(settle(*w.session));
    w.harness.prompts.confirmations = { true };
    QVERIFY(w.run("UPDATE items SET name = 'lost' WHERE id = 1"));
    QCOMPARE(w.harness.prompts.asked.back().kind, std::string("sql"));
    QCOMPARE(w.stored(1), Cell("bolt")); // still open: another connection does not see the change yet
    actionTitled(commands, QStringLiteral("ROLLBACK"))->trigger();
    QVERIFY(settle(*w.session) && w.run("SELECT name FROM items WHERE id = 1"));
    QCOMPARE(w.cell(0, 0), QStringLiteral("bolt"));
}

QTEST_MAIN(TestQueryWorkspace)
#include "TestQueryWorkspace.moc"
