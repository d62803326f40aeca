#include "core/AppError.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/AppIcon.h"
#include "ui/ConnectionRow.h"
#include "ui/ConnectionSheet.h"
#include "ui/MainWindow.h"
#include "ui/NativeGrid.h"
#include "ui/QueryWorkspace.h"
#include "ui/QuitPrompts.h"
#include "ui/RootView.h"
#include "ui/SQLEditor.h"
#include "ui/SessionView.h"
#include "ui/Sidebar.h"
#include "ui/WelcomeView.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLineEdit>
#include <QStandardItemModel>
#include <QTableView>
#include <QTemporaryDir>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

struct WindowFixture {
    SessionHarness harness;
    QTemporaryDir folder;
    AppStore store { folder.path().toStdString(), harness.keychain, harness.prompts };
    MainWindow window { store, harness.prompts };

    bool showActive()
    {
        window.show();
        window.activateWindow();
        return QTest::qWaitForWindowActive(&window);
    }

    // Connects the profile and shows the window; the query workspace of its session, or null.
    QueryWorkspace *connect(const ConnectionProfile &profile)
    {
        store.connect(profile);
        const bool ready = settle(*store.active()) && showActive();
        return ready ? window.rootView()->sessionView(profile.id)->queryWorkspace() : nullptr;
    }

    QStringList asked() const
    {
        QStringList texts;
        for (const auto &question : harness.prompts.asked) {
            texts << QString::fromStdString(question.text);
        }
        return texts;
    }
};

} // namespace

// The main window as a user meets it: the sidebar and the welcome page, the commands that act on
// the active session, and what quitting asks.
class TestMainWindow final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void iconWriteFailureIsReported();
    void sidebarSearchesAndDuplicates();
    void commandsActOnTheActiveSession();
    void quitAsksAboutRunningQueriesThenUnsavedTabs();
    void closingRightAfterTypingAsksAboutTheUnsavedTab();
    void editCopyReachesAViewWithoutACopySlot();
};

void TestMainWindow::iconWriteFailureIsReported()
{
    QVERIFY_THROWS_EXCEPTION(AppError, createAppIcon("/nonexistent-folder/for/icon.png"));
}

void TestMainWindow::sidebarSearchesAndDuplicates()
{
    WindowFixture fixture;
    for (const char *name : { "Production", "Staging", "Local demo" }) {
        bool saved = false;
        fixture.store.save(fixture.harness.profile(name), {}, [&saved](const auto &) { saved = true; });
        QVERIFY(QTest::qWaitFor([&saved] { return saved; }, 10000));
    }
    const auto &rows = fixture.window.rootView()->sidebar()->rows();
    QTest::keyClicks(fixture.window.rootView()->sidebar()->searchField(), "STAG");
    QCOMPARE(rows.size(), std::size_t(1));
    const ConnectionProfile staging = rows.front()->profile();
    QCOMPARE(staging.name, std::string("Staging"));

    // The copy is a profile of its own, saved only from the sheet.
    actionTitled(rows.front()->menuActions(rows.front()), QStringLiteral("Duplicate connection"))->trigger();
    QVERIFY(QTest::qWaitFor([&fixture] { return fixture.window.rootView()->sheet() != nullptr; }, 5000));
    ConnectionSheet *sheet = fixture.window.rootView()->sheet();
    QCOMPARE(sheet->nameField()->text(), QStringLiteral("Staging copy"));
    QCOMPARE(sheet->profile().host, staging.host);
    QVERIFY(sheet->profile().id != staging.id);
    QCOMPARE(sheet->title(), QStringLiteral("New connection"));
    QCOMPARE(fixture.store.profiles().size(), std::size_t(3));
}

// New Query Tab and Run Query act on the active session only, the welcome page staying until
// there is one. In the editor, Ctrl+Return runs the selection, although Run Query has the same
// keys for any focus inside the window; elsewhere that runs the whole tab.
void TestMainWindow::commandsActOnTheActiveSession()
{
    WindowFixture fixture;
    QVERIFY(fixture.showActive());
    QTest::keyClick(&fixture.window, Qt::Key_T, Qt::ControlModifier);
    QVERIFY(fixture.store.sessions().empty());
    const ConnectionProfile second = fixture.harness.profile("Second");
    fixture.store.setSelected(second.id);
    QCOMPARE(fixture.window.rootView()->detail(), fixture.window.rootView()->welcome());
    ServerSession *inactive = fixture.store.session(fixture.harness.profile("First"));
    QueryWorkspace *workspace = fixture.connect(second);
    QVERIFY(workspace);
    ServerSession *session = fixture.store.active();
    QCOMPARE(fixture.window.rootView()->detail(), fixture.window.rootView()->sessionView(second.id));
    QTest::keyClick(&fixture.window, Qt::Key_T, Qt::ControlModifier);
    QCOMPARE(inactive->tabs().size(), std::size_t(1));
    QCOMPARE(session->tabs().size(), std::size_t(2));
    QCOMPARE(session->activeTab(), session->tabs()[1].id);

    SQLEditor *editor = workspace->editor();
    editor->setFocus();
    QTest::keyClicks(editor, "SELECT 'whole'; SELECT 'part'");
    QTextCursor cursor = editor->textCursor();
    cursor.setPosition(16, QTextCursor::KeepAnchor);
    editor->setTextCursor(cursor);
    QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
    QVERIFY(settle(*session));
    QCOMPARE(session->tabs()[1].results.size(), std::size_t(1));
    QCOMPARE(session->tabs()[1].result->rows.at(0).at(0), Cell("part"));
    workspace->grid()->setFocus();
    QTest::keyClick(workspace->grid(), Qt::Key_Return, Qt::ControlModifier);
    QVERIFY(settle(*session));
    QCOMPARE(session->tabs()[1].results.size(), std::size_t(2));
}

void TestMainWindow::quitAsksAboutRunningQueriesThenUnsavedTabs()
{
    WindowFixture fixture;
    ServerSession *session = fixture.store.session(fixture.harness.profile());
    QVERIFY(confirmQuit(fixture.store, fixture.harness.prompts)); // nothing at stake: no question
    QVERIFY(connectAndSettle(*session));
    session->setTabSQL(session->activeTab(), "SELECT SLEEP(2)");
    session->run();
    // Declining the first question asks nothing more and leaves the query running.
    QVERIFY(!confirmQuit(fixture.store, fixture.harness.prompts));
    QVERIFY(session->busy());
    fixture.harness.prompts.confirmations = { true, false, true, true };
    QVERIFY(!confirmQuit(fixture.store, fixture.harness.prompts));
    QVERIFY(confirmQuit(fixture.store, fixture.harness.prompts));
    const QString running = QStringLiteral("Quit while a query is running?");
    const QString unsaved = QStringLiteral("Quit with unsaved query tabs?");
    QCOMPARE(fixture.asked(), QStringList({ running, running, unsaved, running, unsaved }));
    QVERIFY(settle(*session));
}

// A large script's latest typing waits in the editor for a pause; quitting before the pause must
// still see the tab as unsaved.
void TestMainWindow::closingRightAfterTypingAsksAboutTheUnsavedTab()
{
    WindowFixture fixture;
    QueryWorkspace *workspace = fixture.connect(fixture.harness.profile());
    QVERIFY(workspace);
    const QString script = QStringLiteral("SELECT 1;\n").repeated(SQLEditor::largeTextCharacters / 10 + 1);
    fixture.store.active()->newTab(script.toStdString());
    QVERIFY(!fixture.store.active()->tabs().back().dirty);
    workspace->editor()->setFocus();
    QTest::keyClicks(workspace->editor(), QStringLiteral("x"));
    QVERIFY(workspace->editor()->hasPendingEdit());
    QVERIFY(!fixture.window.close());
    QCOMPARE(fixture.asked(), QStringList { "Quit with unsaved query tabs?" });
}

// The grid copies on its own key, not through a slot: the menu item must still reach it.
void TestMainWindow::editCopyReachesAViewWithoutACopySlot()
{
    WindowFixture fixture;
    QStandardItemModel model(1, 1);
    model.setItem(0, 0, new QStandardItem(QStringLiteral("cell text")));
    QTableView view;
    view.setModel(&model);
    view.show();
    view.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&view));
    view.setCurrentIndex(model.index(0, 0));
    fixture.window.action(QStringLiteral("Copy"))->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("cell text"));
}

QTEST_MAIN(TestMainWindow)
#include "TestMainWindow.moc"
