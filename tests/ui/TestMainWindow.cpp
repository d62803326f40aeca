#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/ConnectionRow.h"
#include "ui/ConnectionSheet.h"
#include "ui/MainWindow.h"
#include "ui/RootView.h"
#include "ui/SQLEditor.h"
#include "ui/SessionView.h"
#include "ui/Sidebar.h"
#include "ui/WelcomeView.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMenuBar>
#include <QStandardItemModel>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

struct WindowFixture {
    SessionHarness harness;
    QTemporaryDir folder;
    AppStore store { folder.path().toStdString(), harness.keychain, harness.prompts };
    MainWindow window { store, harness.prompts };

    // Saves a profile through the store and waits for the keyring work to come back.
    bool save(const ConnectionProfile &profile)
    {
        bool finished = false;
        store.save(profile, harness.server.password, [&finished](const auto &) { finished = true; });
        return QTest::qWaitFor([&finished] { return finished; }, 10000);
    }

    std::vector<std::string> rowNames() const
    {
        std::vector<std::string> names;
        for (const ConnectionRow *row : window.rootView()->sidebar()->rows()) {
            names.push_back(row->profile().name);
        }
        return names;
    }
};

} // namespace

// The main window as a user meets it: its menus, the sidebar and the welcome page, and the
// commands that act on the active session.
class TestMainWindow final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void menusInOrderWithShortcuts();
    void newQueryTabNeedsAnActiveSession();
    void searchFiltersTheConnectionList();
    void duplicateOpensTheSheetWithACopy();
    void closingAsksWhileAQueryRuns();
    void closingRightAfterTypingAsksAboutTheUnsavedTab();
    void editCopyReachesAViewWithoutACopySlot();
};

void TestMainWindow::menusInOrderWithShortcuts()
{
    WindowFixture fixture;
    QStringList layout;
    for (QAction *menu : fixture.window.menuBar()->actions()) {
        layout << menu->text() + QStringLiteral(":");
        for (QAction *item : menu->menu()->actions()) {
            layout << (item->isSeparator() ? QStringLiteral("-")
                                           : item->text() + QStringLiteral(" [")
                        + item->shortcut().toString(QKeySequence::PortableText) + u']');
        }
    }
    const QStringList expected {
        "Tallowick:",
        "About Tallowick []",
        "-",
        "Hide Tallowick [Ctrl+H]",
        "-",
        "Quit Tallowick [Ctrl+Q]",
        "File:",
        "New Connection… [Ctrl+N]",
        "New Query Tab [Ctrl+T]",
        "Open SQL Script… [Ctrl+O]",
        "Save Query… [Ctrl+S]",
        "Edit:",
        "Undo [Ctrl+Z]",
        "Cut [Ctrl+X]",
        "Copy [Ctrl+C]",
        "Paste [Ctrl+V]",
        "Select All [Ctrl+A]",
        "Query:",
        "Run Query [Ctrl+Return]",
        "Query Builder [Ctrl+B]",
        "View:",
        "Toggle Full Screen [F11]",
        "Help:",
        "Tallowick Guide [F1]",
    };
    QCOMPARE(layout, expected);
}

// Also: the welcome page stays until a session is active, even with a profile selected.
void TestMainWindow::newQueryTabNeedsAnActiveSession()
{
    WindowFixture fixture;
    fixture.window.show();
    fixture.window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&fixture.window));
    QTest::keyClick(&fixture.window, Qt::Key_T, Qt::ControlModifier); // nothing active: nothing happens
    QVERIFY(fixture.store.sessions().empty());

    const ConnectionProfile first = fixture.harness.profile("First");
    const ConnectionProfile second = fixture.harness.profile("Second");
    QVERIFY(fixture.save(first));
    QVERIFY(fixture.save(second));
    RootView *root = fixture.window.rootView();
    fixture.store.setSelected(second.id);
    QCOMPARE(root->detail(), root->welcome());
    ServerSession *inactive = fixture.store.session(first);
    fixture.store.connect(second);
    ServerSession *active = fixture.store.active();
    QVERIFY(active);
    QCOMPARE(root->detail(), root->sessionView(active->id()));
    QVERIFY(settle(*active));
    fixture.window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&fixture.window));
    QTest::keyClick(&fixture.window, Qt::Key_T, Qt::ControlModifier);
    QCOMPARE(active->tabs().size(), std::size_t(2));
    QCOMPARE(active->tabs()[1].title, std::string("Query 2"));
    QCOMPARE(active->activeTab(), active->tabs()[1].id);
    QCOMPARE(inactive->tabs().size(), std::size_t(1));
}

void TestMainWindow::searchFiltersTheConnectionList()
{
    WindowFixture fixture;
    for (const char *name : { "Production", "Staging", "Local demo" }) {
        QVERIFY(fixture.save(fixture.harness.profile(name)));
    }
    QCOMPARE(fixture.rowNames(), (std::vector<std::string> { "Production", "Staging", "Local demo" }));
    QLineEdit *search = fixture.window.rootView()->sidebar()->searchField();
    QTest::keyClicks(search, "STAG");
    QCOMPARE(fixture.rowNames(), std::vector<std::string> { "Staging" });
    search->clear();
    QTest::keyClicks(search, "nothing like it");
    QVERIFY(fixture.rowNames().empty());
    search->clear();
    QCOMPARE(fixture.rowNames(), (std::vector<std::string> { "Production", "Staging", "Local demo" }));
}

void TestMainWindow::duplicateOpensTheSheetWithACopy()
{
    WindowFixture fixture;
    fixture.window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&fixture.window));
    const ConnectionProfile prod = fixture.harness.profile("Prod");
    QVERIFY(fixture.save(prod));
    ConnectionRow *row = fixture.window.rootView()->sidebar()->rows().front();
    const QList<QAction *> actions = row->menuActions(row);
    QCOMPARE(actionTexts(actions),
        (QStringList { "Connect", "Edit connection…", "Duplicate connection", "Remove connection…" }));
    actionTitled(actions, QStringLiteral("Duplicate connection"))->trigger();
    QVERIFY(QTest::qWaitFor([&fixture] { return fixture.window.rootView()->sheet() != nullptr; }, 5000));
    ConnectionSheet *sheet = fixture.window.rootView()->sheet();
    QCOMPARE(sheet->nameField()->text(), QStringLiteral("Prod copy"));
    QVERIFY(sheet->profile().id != prod.id);
    QCOMPARE(sheet->profile().host, prod.host);
    QCOMPARE(sheet->title(), QStringLiteral("New connection")); // a copy is a profile of its own
    sheet->reject();
    QVERIFY(QTest::qWaitFor([&fixture] { return !fixture.store.showConnection(); }, 5000));
    QCOMPARE(fixture.store.profiles().size(), std::size_t(1));
    QCOMPARE(fixture.rowNames(), std::vector<std::string> { "Prod" });
}

void TestMainWindow::closingAsksWhileAQueryRuns()
{
    WindowFixture fixture;
    fixture.window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&fixture.window));
    const ConnectionProfile profile = fixture.harness.profile("Busy");
    QVERIFY(fixture.save(profile));
    fixture.store.connect(profile);
    ServerSession *session = fixture.store.active();
    QVERIFY(settle(*session));
    session->run("SELECT SLEEP(1)");
    QVERIFY(session->busy());
    fixture.harness.prompts.confirmations = { false };
    QVERIFY(!fixture.window.close());
    QVERIFY(fixture.window.isVisible());
    QCOMPARE(fixture.harness.prompts.asked.back().text, std::string("Quit while a query is running?"));
    QVERIFY(settle(*session));
    QVERIFY(fixture.window.close()); // idle and nothing unsaved: closes without asking
    QCOMPARE(fixture.harness.prompts.asked.size(), std::size_t(1));
}

// A large script's latest typing waits in the editor for a pause; quitting before the pause must
// still see the tab as unsaved.
void TestMainWindow::closingRightAfterTypingAsksAboutTheUnsavedTab()
{
    WindowFixture fixture;
    fixture.window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&fixture.window));
    const ConnectionProfile profile = fixture.harness.profile("Typing");
    QVERIFY(fixture.save(profile));
    fixture.store.connect(profile);
    ServerSession *session = fixture.store.active();
    QVERIFY(settle(*session));
    std::string script;
    while (script.size() <= std::size_t(SQLEditor::largeTextCharacters)) {
        script += "SELECT 1;\n";
    }
    session->newTab(script, std::string("Large"));
    QVERIFY(!session->tabs().back().dirty);
    SQLEditor *editor = nullptr;
    QVERIFY(QTest::qWaitFor([&] {
        for (SQLEditor *candidate : fixture.window.findChildren<SQLEditor *>()) {
            if (candidate->isVisible() && !candidate->isReadOnly()
                && candidate->document()->characterCount() > SQLEditor::largeTextCharacters) {
                editor = candidate;
            }
        }
        return editor != nullptr;
    }));
    QTest::keyClicks(editor, QStringLiteral("x"));
    QVERIFY(editor->hasPendingEdit());

    fixture.harness.prompts.confirmations = { false };
    QVERIFY(!fixture.window.close());
    QCOMPARE(fixture.harness.prompts.asked.size(), std::size_t(1));
    QCOMPARE(fixture.harness.prompts.asked.back().text, std::string("Quit with unsaved query tabs?"));
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
    view.setFocus();
    view.setCurrentIndex(model.index(0, 0));
    QGuiApplication::clipboard()->setText(QStringLiteral("before"));

    QAction *edit = actionTitled(fixture.window.menuBar()->actions(), QStringLiteral("Edit"));
    QVERIFY(edit);
    QAction *copy = actionTitled(edit->menu()->actions(), QStringLiteral("Copy"));
    QVERIFY(copy);
    copy->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("cell text"));
}

QTEST_MAIN(TestMainWindow)
#include "TestMainWindow.moc"
