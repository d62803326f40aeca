#include "client/ClientThreadScope.h"
#include "core/AppError.h"
#include "core/FileText.h"
#include "store/AppStore.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/AppIcon.h"
#include "ui/ConnectionRow.h"
#include "ui/ConnectionSheet.h"
#include "ui/DataView.h"
#include "ui/MainWindow.h"
#include "ui/ManagementForm.h"
#include "ui/MetadataView.h"
#include "ui/NativeGrid.h"
#include "ui/QueryWorkspace.h"
#include "ui/QuitPrompts.h"
#include "ui/ResultTableModel.h"
#include "ui/RootView.h"
#include "ui/SQLEditor.h"
#include "ui/SessionView.h"
#include "ui/Sidebar.h"
#include "ui/SqlHighlighter.h"
#include "ui/Symbols.h"
#include "ui/Theme.h"
#include "ui/ThemeController.h"
#include "ui/WelcomeView.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTabBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextLayout>
#include <QToolButton>

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

    // Connects, opens a script over the editor's large-text size in a new tab, and waits until
    // it has loaded; the query workspace, or null.
    QueryWorkspace *openLargeScript()
    {
        QueryWorkspace *workspace = connect(harness.profile());
        if (!workspace) {
            return nullptr;
        }
        const QString script = QStringLiteral("SELECT 1;\n").repeated(SQLEditor::largeTextCharacters / 10 + 1);
        store.active()->newTab(script.toStdString());
        return QTest::qWaitFor([workspace] { return !workspace->editor()->isLoading(); }, 20000) ? workspace : nullptr;
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

// One session view driven like a user: real widgets, a real session on the disposable server,
// in a scratch database whose table holds 450 items, every tenth with a note. The data view
// opens that table, the query workspace its database.
template <typename View> struct Shown {
    ClientThreadScope clientThread; // the scratch database is set up from this thread
    SessionHarness harness;
    ScratchDatabase scratch { harness.server };
    std::unique_ptr<ServerSession> session;
    std::unique_ptr<View> view;

    ~Shown() { settle(*session); }

    bool open(bool readOnly = false)
    {
        scratch.run("CREATE TABLE items (id INT PRIMARY KEY, name VARCHAR(50), note TEXT NULL)");
        scratch.run("INSERT INTO items SELECT seq, CONCAT('item ', seq), IF(seq % 10 = 0, 'tenth', NULL) "
                    "FROM seq_1_to_450");
        ConnectionProfile profile = harness.profile();
        profile.readOnly = readOnly;
        session = harness.session(profile);
        view = std::make_unique<View>(*session);
        view->resize(1100, 700);
        view->show();
        if (!QTest::qWaitForWindowExposed(view.get()) || !connectAndSettle(*session)) {
            return false;
        }
        if constexpr (std::is_same_v<View, DataView>) {
            session->selectTable("items", scratch.name());
        } else {
            session->chooseDatabase(scratch.name());
        }
        return settle(*session);
    }

    QPushButton *button(const QString &text) const { return titled<QPushButton>(*view, text); }
    bool click(const QString &text)
    {
        QTest::mouseClick(button(text), Qt::LeftButton);
        return settle(*session);
    }
    // Double-clicks a cell; the editor it opened, if any.
    QLineEdit *editCell(int row, int column) const
    {
        const QModelIndex cell = view->grid()->model()->index(row, column);
        doubleClickCell(*view->grid(), cell);
        return qobject_cast<QLineEdit *>(view->grid()->indexWidget(cell));
    }
    QString cell(int row, int column) const { return view->grid()->model()->index(row, column).data().toString(); }

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
};

} // namespace

// The main window as a user meets it (the sidebar, the welcome page, the commands that act on the
// active session, what quitting asks) and the session views it holds: table data and queries.
class TestMainWindow final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A test that picks a theme must not leave the next one drawn in it.
    void cleanup() { applyAppearance(*qApp, Appearance::light); }

    void iconWriteFailureIsReported()
    {
        QVERIFY_THROWS_EXCEPTION(AppError, createAppIcon("/nonexistent-folder/for/icon.png"));
    }

    void sidebarSearchesAndDuplicates()
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

    // The saved connections work from the keyboard: Tab enters the list once, at the selected
    // row; the arrows move the selection, and the focus with it, stopping at either end; Enter
    // connects, as a double-click does.
    void sidebarRowsWorkFromTheKeyboard()
    {
        WindowFixture fixture;
        std::vector<ConnectionProfile> profiles;
        for (const char *name : { "First", "Second", "Third" }) {
            profiles.push_back(fixture.harness.profile(name));
            bool saved = false;
            fixture.store.save(
                profiles.back(), fixture.harness.server.password, [&saved](const auto &) { saved = true; });
            QVERIFY(QTest::qWaitFor([&saved] { return saved; }, 10000));
        }
        QVERIFY(fixture.showActive());
        Sidebar *sidebar = fixture.window.rootView()->sidebar();
        const auto focusedRow = [sidebar] {
            for (const ConnectionRow *row : sidebar->rows()) {
                if (row->hasFocus()) {
                    return QString::fromStdString(row->profile().name);
                }
            }
            return QStringLiteral("(none)");
        };
        const auto press = [](Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
            QTest::keyClick(QApplication::focusWidget(), key, modifiers);
        };
        sidebar->searchField()->setFocus();
        for (int tab = 0; tab < 4 && focusedRow() == "(none)"; ++tab) {
            press(Qt::Key_Tab);
        }
        QCOMPARE(focusedRow(), QStringLiteral("First"));
        press(Qt::Key_Tab);
        QCOMPARE(focusedRow(), QStringLiteral("(none)"));
        press(Qt::Key_Backtab, Qt::ShiftModifier);
        QCOMPARE(focusedRow(), QStringLiteral("First"));

        QStringList visited;
        for (const Qt::Key key : { Qt::Key_Down, Qt::Key_Down, Qt::Key_Down, Qt::Key_Up, Qt::Key_Up, Qt::Key_Up }) {
            press(key);
            const auto selected = std::find_if(profiles.begin(), profiles.end(), [&fixture](const auto &profile) {
                return fixture.store.selected() == profile.id;
            });
            visited << focusedRow() + u'/'
                    + (selected == profiles.end() ? QStringLiteral("-") : QString::fromStdString(selected->name));
        }
        QCOMPARE(visited,
            QStringList(
                { "Second/Second", "Third/Third", "Third/Third", "Second/Second", "First/First", "First/First" }));

        press(Qt::Key_Down);
        QVERIFY(fixture.store.sessions().empty());
        press(Qt::Key_Return);
        QVERIFY(fixture.store.active() && fixture.store.active()->id() == profiles[1].id);
        QVERIFY(settle(*fixture.store.active()) && fixture.store.active()->connected());
    }

    // New Query Tab and Run Query act on the active session only, the welcome page staying until
    // there is one. In the editor, Ctrl+Return runs the selection, although Run Query has the same
    // keys for any focus inside the window; elsewhere that runs the whole tab.
    void commandsActOnTheActiveSession()
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

    void quitAsksAboutRunningQueriesThenUnsavedTabs()
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

    // A large script's latest typing waits in the editor until something needs it; the tab is
    // marked unsaved at once, and quitting asks about it.
    void closingRightAfterTypingAsksAboutTheUnsavedTab()
    {
        WindowFixture fixture;
        QueryWorkspace *workspace = fixture.openLargeScript();
        QVERIFY(workspace);
        QVERIFY(!fixture.store.active()->tabs().back().dirty);
        workspace->editor()->setFocus();
        QTest::keyClicks(workspace->editor(), QStringLiteral("x"));
        QVERIFY(workspace->editor()->hasPendingEdit());
        QVERIFY(fixture.store.active()->tabs().back().dirty); // marked at once, the text still held
        QVERIFY(!fixture.window.close());
        QCOMPARE(fixture.asked(), QStringList { "Quit with unsaved query tabs?" });
    }

    // An edit of a large script made while the editor has no focus (as Replace All from the find
    // bar makes it) still reaches the file the Save button writes.
    void saveTakesALargeScriptsLatestEdit()
    {
        WindowFixture fixture;
        QueryWorkspace *workspace = fixture.openLargeScript();
        QVERIFY(workspace);
        QTextCursor end(workspace->editor()->document());
        end.movePosition(QTextCursor::End);
        end.insertText(QStringLiteral("SELECT 'edited';\n"));
        QVERIFY(workspace->editor()->hasPendingEdit());
        const QString path = fixture.folder.filePath(QStringLiteral("saved.sql"));
        fixture.harness.prompts.files = { path.toStdString() };
        const QList<QPushButton *> buttons = workspace->findChildren<QPushButton *>();
        const auto save = std::find_if(buttons.begin(), buttons.end(), [](const QPushButton *button) {
            return button->text() == QStringLiteral("Save query file");
        });
        QVERIFY(save != buttons.end());
        (*save)->click();
        QVERIFY(QTest::qWaitFor([&path] { return QFile::exists(path); }, 10000));
        QVERIFY(readWholeFile(path.toStdString()).endsWith("SELECT 'edited';\n"));
    }

    // The grid copies on its own key, not through a slot: the menu item must still reach it.
    void editCopyReachesAViewWithoutACopySlot()
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

    void dataViewPagesFiltersSortsAndPicksAColumn()
    {
        Shown<DataView> b;
        QVERIFY(b.open());
        const auto pageButtons = [&b] {
            return QString::number(b.button(QStringLiteral("‹ Previous"))->isEnabled())
                + QString::number(b.button(QStringLiteral("Next ›"))->isEnabled());
        };
        QCOMPARE(pageButtons(), QStringLiteral("01"));
        QVERIFY(b.click(QStringLiteral("Next ›")) && b.click(QStringLiteral("Next ›")));
        QCOMPARE(b.session->page(), qint64(2));
        QCOMPARE(pageButtons(), QStringLiteral("10")); // a short page is the last one
        // Another page size, a filter and a sort each start again at the first page.
        QVERIFY(choose(b.view->findChild<QComboBox *>(), QStringLiteral("500 rows")) && settle(*b.session));
        QCOMPARE(b.session->pageSize(), qint64(500));
        QCOMPARE(b.session->page(), qint64(0));
        b.session->setPage(1);
        auto *filter = b.view->findChild<QLineEdit *>();
        filter->setFocus();
        QTest::keyClicks(filter, "tenth");
        QTest::keyClick(filter, Qt::Key_Return);
        QVERIFY(settle(*b.session));
        QCOMPARE(b.session->filter(), std::string("tenth"));
        QCOMPARE(b.session->page(), qint64(0));
        // A header click sorts by that column; a second click on it turns the direction around.
        // The header marks the column and direction the page was read in, also when the sort
        // was set elsewhere.
        QHeaderView *header = b.view->grid()->horizontalHeader();
        QVERIFY(!header->isSortIndicatorShown());
        const auto mark = [header] {
            return header->isSortIndicatorShown()
                ? QStringLiteral("%1 %2").arg(header->sortIndicatorSection()).arg(header->sortIndicatorOrder())
                : QStringLiteral("none");
        };
        for (const bool descending : { false, true }) {
            b.session->setPage(1);
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, { header->sectionViewportPosition(1) + 20, 10 });
            QVERIFY(settle(*b.session));
            QCOMPARE(b.session->sortColumn(), std::string("name"));
            QCOMPARE(b.session->sortDescending(), descending);
            QCOMPARE(b.session->page(), qint64(0));
            QCOMPARE(mark(), QStringLiteral("1 %1").arg(descending ? Qt::DescendingOrder : Qt::AscendingOrder));
        }
        b.session->setSortColumn("id");
        b.session->browse();
        QVERIFY(settle(*b.session));
        QCOMPARE(mark(), QStringLiteral("0 %1").arg(Qt::DescendingOrder));
        // The structure list's selected row is the column the edit form opens for.
        MetadataView structure(*b.session);
        structure.show();
        b.session->inspect(WorkspaceMode::structure);
        QVERIFY(settle(*b.session));
        QVERIFY(!structure.editColumnButton()->isEnabled());
        clickCell(*structure.grid(), structure.grid()->model()->index(1, 0));
        QTest::mouseClick(structure.editColumnButton(), Qt::LeftButton);
        auto *edit = structure.findChild<ManagementForm *>();
        QVERIFY(edit && edit->kind() == ManagementSheet::modifyColumn);
        QVERIFY2(edit->previewText().contains(QStringLiteral("CHANGE COLUMN `name`")), qPrintable(edit->previewText()));
    }

    void dataViewEditsAndDeletesRows()
    {
        Shown<DataView> b;
        QVERIFY(b.open());
        QLineEdit *editor = b.editCell(2, 1);
        QVERIFY(editor);
        QTest::keyClicks(editor, "renamed");
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(b.cell(2, 1), QStringLiteral("renamed")); // saved, and the page read again

        QVERIFY(settle(*b.session) && !b.button(QStringLiteral("Delete row…"))->isEnabled());
        clickCell(*b.view->grid(), b.view->grid()->model()->index(1, 0));
        QCOMPARE(b.session->selectedRow(), qint64(1));
        QVERIFY(b.click(QStringLiteral("Delete row…"))); // declined: the session's question was asked
        QCOMPARE(b.harness.prompts.asked.back().text, std::string("Delete this row?"));

        // An edit still open when the view closes is abandoned, not sent.
        QTest::keyClicks(b.editCell(0, 1), "abandoned");
        b.view.reset();
        QCoreApplication::processEvents();
        QVERIFY(!b.session->busy());
        QCOMPARE(b.scratch.run("SELECT name FROM items WHERE id = 1").rows[0][0], Cell("item 1"));
    }

    void resultAreaFollowsTheTabAndThePickedStatement()
    {
        Shown<QueryWorkspace> w;
        QVERIFY(w.open());
        QLabel *empty = titled<QLabel>(*w.view, QStringLiteral("Your results will appear here."));
        QVERIFY(empty->isVisible() && !w.view->grid()->isVisible());
        QVERIFY(
            w.run("SELECT 'one'; SELECT name FROM items WHERE id <= 2 ORDER BY id; SELECT seq FROM seq_1_to_10001"));
        QVERIFY(!empty->isVisible());
        // The last statement is the one on display, cut at the display limit.
        QVERIFY(w.view->resultPicker()->isVisible() && w.view->limitNote()->isVisible());
        QCOMPARE(w.view->resultPicker()->currentText(), QStringLiteral("Statement 3"));
        QVERIFY(choose(w.view->resultPicker(), QStringLiteral("Statement 2")));
        QCOMPARE(w.cell(1, 0), QStringLiteral("item 2"));
        QCOMPARE(w.view->countsLabel()->text(), QStringLiteral("2 rows · 1 columns"));
        QVERIFY(!w.view->limitNote()->isVisible());
        // Export writes the result on display, not the last one.
        const QTemporaryDir folder;
        QFile written(folder.filePath(QStringLiteral("shown.csv")));
        w.harness.prompts.files = { written.fileName().toStdString() };
        QVERIFY(w.click(QStringLiteral("Export CSV…")) && written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), QByteArray("\"name\"\r\n\"item 1\"\r\n\"item 2\"\r\n"));
        // A new tab has no result of its own, so the empty state comes back for it.
        QVERIFY(w.click(QStringLiteral("+")) && empty->isVisible());
    }

    void controlsWaitForTheSessionExplainAndTransactions()
    {
        Shown<QueryWorkspace> w;
        QVERIFY(w.open());
        w.type(QStringLiteral("SELECT SLEEP(1)"));
        QTest::mouseClick(w.view->runButton(), Qt::LeftButton);
        QVERIFY(w.session->busy());
        QVERIFY(!w.view->runButton()->isEnabled() && !w.view->explainButton()->isEnabled());
        QVERIFY(!w.view->transactionButton()->isEnabled());
        QueryWorkspace late(*w.session); // one that appears while the session works starts disabled too
        QVERIFY(!late.runButton()->isEnabled());
        QVERIFY(w.click(QStringLiteral("Explain"))); // disabled: starts nothing
        QCOMPARE(w.session->tabs().size(), std::size_t(1));
        QVERIFY(late.runButton()->isEnabled());

        QVERIFY(w.click(QStringLiteral("Explain")));
        QCOMPARE(w.session->activeTab(), w.session->tabs()[1].id);
        QCOMPARE(w.view->editor()->sql(), QStringLiteral("EXPLAIN SELECT SLEEP(1)"));
        // It ran: the plan is on display, and the original tab still holds its own result.
        const std::vector<std::string> plan = w.view->grid()->result().columnNames();
        QVERIFY(std::find(plan.begin(), plan.end(), "select_type") != plan.end());
        QCOMPARE(w.session->tabs()[0].result->columnNames(), std::vector<std::string> { "SLEEP(1)" });

        // The transaction menu reaches the session's connection: ROLLBACK takes back the write made
        // after START TRANSACTION, which would otherwise have been committed at once.
        const QList<QAction *> commands = w.view->transactionButton()->menu()->actions();
        actionTitled(commands, QStringLiteral("START TRANSACTION"))->trigger();
        QVERIFY(settle(*w.session));
        w.harness.prompts.confirmations = { true };
        QVERIFY(w.run("UPDATE items SET name = 'lost' WHERE id = 1"));
        actionTitled(commands, QStringLiteral("ROLLBACK"))->trigger();
        QVERIFY(settle(*w.session) && w.run("SELECT name FROM items WHERE id = 1"));
        QCOMPARE(w.cell(0, 0), QStringLiteral("item 1"));
    }

    // The second run of typing lands after the first: the session's echo left the caret alone.
    void typingMarksTheTabAndTabsSwitchAndClose()
    {
        Shown<QueryWorkspace> w;
        QVERIFY(w.open());
        QTabBar *tabs = w.view->tabBar();
        const QString title = tabs->tabText(0);
        w.type(QStringLiteral("SELECT 4"));
        QTest::keyClicks(w.view->editor(), QStringLiteral("2 AS answer"));
        QCOMPARE(w.session->tabs()[0].sql, std::string("SELECT 42 AS answer"));
        QCOMPARE(tabs->tabText(0), title + QStringLiteral(" •"));
        QVERIFY(w.click(QStringLiteral("+")) && w.click(QStringLiteral("+")));
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

    // The grid takes edits, shown once saved, only when the profile allows writing.
    void queryEditingFollowsTheProfile()
    {
        for (const bool readOnly : { false, true }) {
            Shown<QueryWorkspace> w;
            QVERIFY(w.open(readOnly));
            QVERIFY(w.run("SELECT id, name FROM items WHERE id <= 3"));
            QCOMPARE(w.view->editNote()->isVisible(), !readOnly);
            QLineEdit *editor = w.editCell(1, 1);
            QCOMPARE(editor == nullptr, readOnly);
            if (editor) {
                QTest::keyClicks(editor, "hex nut");
                QTest::keyClick(editor, Qt::Key_Return);
                QTRY_COMPARE(w.cell(1, 1), QStringLiteral("hex nut"));
            }
        }
    }

    // View › Theme › Dark turns the palette and every colour made from the theme dark, Light
    // turns them back, for widgets made before the change too: the editor's keywords, the grid's
    // NULL cells, the sidebar and the program's symbols.
    void themeMenuSwitchesEveryThemedColour()
    {
        WindowFixture w;
        QVERIFY(w.window.action(QStringLiteral("System"))->isChecked());
        SQLEditor editor(false);
        editor.setPlainText(QStringLiteral("SELECT 'x'"));
        const auto keywordColor = [&editor] {
            for (const QTextLayout::FormatRange &range : editor.document()->firstBlock().layout()->formats()) {
                if (SqlHighlighter::colorClass(range.format) == SqlColor::Keyword) {
                    return range.format.foreground().color();
                }
            }
            return QColor();
        };
        ResultTableModel grid;
        QueryResult result;
        Field note;
        note.name = "note";
        note.nullable = true;
        result.fields = { note };
        result.rows = { { std::nullopt } };
        grid.reload(result, false);
        const auto *sidebar = w.window.findChild<Sidebar *>();
        QVERIFY(sidebar);
        // How light the strokes of a symbol are, from 0 to 255.
        const auto symbolLightness = [] {
            const QImage image = symbolIcon(Symbol::table).pixmap(32, 32).toImage();
            qint64 sum = 0;
            qint64 count = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    const QColor pixel = image.pixelColor(x, y);
                    if (pixel.alpha() > 200) {
                        sum += pixel.lightness();
                        ++count;
                    }
                }
            }
            return count ? sum / count : -1;
        };

        QMap<QString, qint64> symbolInk;
        for (const auto &[title, appearance] : { std::pair { QStringLiteral("Dark"), Appearance::dark },
                 std::pair { QStringLiteral("Light"), Appearance::light } }) {
            w.window.action(title)->trigger();
            QVERIFY(w.window.action(title)->isChecked());
            QVERIFY(!w.window.action(QStringLiteral("System"))->isChecked());
            const ThemeColors &expected = colorsFor(appearance);
            QCOMPARE(QApplication::palette().color(QPalette::Window), expected.window);
            QCOMPARE(QApplication::palette().color(QPalette::Text), expected.text);
            QCOMPARE(keywordColor(), expected.sqlKeyword);
            QCOMPARE(grid.index(0, 0).data(Qt::ForegroundRole).value<QColor>(), expected.faintText);
            QVERIFY2(sidebar->styleSheet().contains(expected.sidebar.name()), qPrintable(sidebar->styleSheet()));
            symbolInk[title] = symbolLightness();
        }
        const ThemeColors &dark = colorsFor(Appearance::dark);
        const ThemeColors &light = colorsFor(Appearance::light);
        QVERIFY(dark.window.lightness() < 60 && dark.text.lightness() > 190);
        QVERIFY(light.window.lightness() > 240 && light.text.lightness() < 60);
        QVERIFY(dark.sqlKeyword != light.sqlKeyword && dark.faintText != light.faintText);
        // Dark strokes on a light window, light strokes on a dark one.
        QVERIFY(symbolInk[QStringLiteral("Light")] >= 0 && symbolInk[QStringLiteral("Light")] < 110);
        QVERIFY2(
            symbolInk[QStringLiteral("Dark")] > 160, qPrintable(QString::number(symbolInk[QStringLiteral("Dark")])));
    }

    // System follows the desktop's colour-scheme setting as the settings portal gives it, live;
    // Light and Dark ignore it.
    void systemThemeFollowsTheDesktop_data()
    {
        QTest::addColumn<ThemeChoice>("choice");
        QTest::addColumn<int>("desktop"); // the portal's value, or -1 for no portal
        QTest::addColumn<Appearance>("expected");
        QTest::addRow("system, desktop prefers dark") << ThemeChoice::system << 1 << Appearance::dark;
        QTest::addRow("system, desktop prefers light") << ThemeChoice::system << 2 << Appearance::light;
        QTest::addRow("system, no preference") << ThemeChoice::system << 0 << Appearance::light;
        QTest::addRow("system, no portal") << ThemeChoice::system << -1 << Appearance::light;
        QTest::addRow("light, desktop prefers dark") << ThemeChoice::light << 1 << Appearance::light;
        QTest::addRow("dark, desktop prefers light") << ThemeChoice::dark << 2 << Appearance::dark;
    }
    void systemThemeFollowsTheDesktop()
    {
        QFETCH(ThemeChoice, choice);
        QFETCH(int, desktop);
        QFETCH(Appearance, expected);
        QTemporaryDir folder;
        ThemeController theme(folder.path());
        theme.setChoice(choice);
        if (desktop >= 0) {
            theme.setDesktopColorScheme(static_cast<uint>(desktop));
        }
        QCOMPARE(theme.appearance(), expected);
        QCOMPARE(QApplication::palette().color(QPalette::Window), colorsFor(expected).window);
        // The desktop turning the other way later.
        theme.setDesktopColorScheme(expected == Appearance::dark ? 2U : 1U);
        const Appearance after = choice != ThemeChoice::system ? expected
            : expected == Appearance::dark                     ? Appearance::light
                                                               : Appearance::dark;
        QCOMPARE(QApplication::palette().color(QPalette::Window), colorsFor(after).window);
    }

    // The theme picked is kept in the store's folder and applied again by the next window.
    void themeChoiceSurvivesARestart()
    {
        SessionHarness harness;
        QTemporaryDir folder;
        {
            AppStore store(folder.path().toStdString(), harness.keychain, harness.prompts);
            MainWindow window(store, harness.prompts);
            window.action(QStringLiteral("Dark"))->trigger();
        }
        applyAppearance(*qApp, Appearance::light); // as a new run starts
        AppStore store(folder.path().toStdString(), harness.keychain, harness.prompts);
        MainWindow window(store, harness.prompts);
        QVERIFY(window.action(QStringLiteral("Dark"))->isChecked());
        QCOMPARE(window.themeController()->choice(), ThemeChoice::dark);
        QCOMPARE(QApplication::palette().color(QPalette::Window), colorsFor(Appearance::dark).window);
    }
};

QTEST_MAIN(TestMainWindow)
#include "TestMainWindow.moc"
