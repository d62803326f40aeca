#include "client/ClientThreadScope.h"
#include "core/SqlQuoting.h"
#include "support/SessionHarness.h"
#include "ui/DatabaseNavigator.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QLineEdit>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The navigator over a live session: a scratch "shop" database with a table, a view and a table
// whose name holds a back-quote, and a second scratch database without tables.
struct Navigator {
    ClientThreadScope clientThread; // the scratch databases are set up from this thread
    SessionHarness harness;
    ScratchDatabase shop { harness.server };
    ScratchDatabase empty { harness.server };
    std::unique_ptr<ServerSession> session = harness.session(harness.profile());
    std::unique_ptr<DatabaseNavigator> navigator;

    ~Navigator() { settle(*session); }

    bool open()
    {
        shop.run("CREATE TABLE orders (id INT PRIMARY KEY, customer INT)");
        shop.run("CREATE VIEW orders_by_customer AS SELECT customer, COUNT(*) AS n FROM orders GROUP BY customer");
        shop.run("CREATE TABLE " + SQL::identifier("we`ird") + " (id INT PRIMARY KEY)");
        // Connect after the scratch databases exist so the session lists them.
        if (!connectAndSettle(*session)) {
            return false;
        }
        navigator = std::make_unique<DatabaseNavigator>(*session);
        navigator->resize(360, 700);
        navigator->show();
        return QTest::qWaitForWindowExposed(navigator.get());
    }

    // The row of a database or a table (the names are unique here).
    QTreeWidgetItem *row(const std::string &text) const
    {
        const auto flags = Qt::MatchExactly | Qt::MatchRecursive;
        return navigator->tree()->findItems(QString::fromStdString(text), flags).value(0);
    }
    void click(const std::string &text)
    {
        navigator->tree()->scrollToItem(row(text));
        const QPoint center = navigator->tree()->visualItemRect(row(text)).center();
        QTest::mouseClick(navigator->tree()->viewport(), Qt::LeftButton, {}, center);
    }
    // Clicks a collapsed database's row and waits for whatever the click asked of the session.
    bool expand(const std::string &database)
    {
        click(database);
        return settle(*session) && navigator->isExpanded(database);
    }
};

} // namespace

class TestDatabaseNavigator final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void expandingChoosesAndCollapsingSendsNothing();
    void filterKeepsDatabasesOfMatchingTables();
    void openingTablesAndViews();
    void tableActionsCopyTheNameAndOpenASelect();
    void refreshKeepsExpansionAndScrollPosition();
};

// Expanding a database chooses it (marked in bold) and keeps the others open, since expansion is
// the user's; collapsing one, current or not, asks nothing of the server. Only an empty table
// list of the current database is read again when it is expanded once more.
void TestDatabaseNavigator::expandingChoosesAndCollapsingSendsNothing()
{
    Navigator n;
    QVERIFY(n.open());
    QSignalSpy busyChanges(n.session.get(), &ServerSession::busyChanged);
    QVERIFY(n.expand(n.empty.name()));
    QCOMPARE(n.row(n.empty.name())->child(0)->text(0), QStringLiteral("No tables"));
    n.click(n.empty.name());
    n.empty.run("CREATE TABLE late_arrival (id INT)");
    busyChanges.clear();
    QVERIFY(n.expand(n.empty.name()));
    QCOMPARE(busyChanges.count(), 2);
    QVERIFY(n.row("late_arrival"));

    QVERIFY(n.expand(n.shop.name()));
    QCOMPARE(n.session->database(), n.shop.name());
    QVERIFY(n.row(n.shop.name())->font(0).bold() && !n.row(n.empty.name())->font(0).bold());
    QVERIFY(n.navigator->isExpanded(n.empty.name()));
    busyChanges.clear();
    n.click(n.empty.name());
    n.click(n.shop.name());
    QVERIFY(!n.navigator->isExpanded(n.empty.name()) && !n.navigator->isExpanded(n.shop.name()));
    QVERIFY(n.expand(n.shop.name())); // its tables are known
    QCOMPARE(busyChanges.count(), 0);
    QCOMPARE(n.session->database(), n.shop.name());
}

void TestDatabaseNavigator::filterKeepsDatabasesOfMatchingTables()
{
    Navigator n;
    QVERIFY(n.open());
    QVERIFY(n.expand(n.shop.name()));
    const QString shop = QString::fromStdString(n.shop.name());
    const std::pair<QString, QStringList> cases[] = {
        { QStringLiteral("ORDERS"), { shop, "orders", "orders_by_customer" } },
        // The database's own name: it stays, but tables that do not match are hidden.
        { shop.toUpper(), { shop, "No tables" } },
        { QStringLiteral("no such thing"), {} },
    };
    for (const auto &[filter, expected] : cases) {
        n.navigator->filterField()->clear();
        QTest::keyClicks(n.navigator->filterField(), filter);
        QStringList shown;
        for (QTreeWidgetItemIterator item(n.navigator->tree()); *item; ++item) {
            shown << (*item)->text(0);
        }
        QCOMPARE(shown, expected);
        QVERIFY(!n.session->busy()); // filtering is local
    }
}

// A click on a table of a database that is not the current one, or "Open data" on a view, opens
// it there; the row is highlighted while it still loads.
void TestDatabaseNavigator::openingTablesAndViews()
{
    Navigator n;
    QVERIFY(n.open());
    QVERIFY(n.expand(n.shop.name()));
    QVERIFY(n.expand(n.empty.name()));
    QSignalSpy opened(n.navigator.get(), &DatabaseNavigator::tableOpened);
    for (const std::string table : { "we`ird", "orders_by_customer" }) {
        const bool view = table != "we`ird";
        QCOMPARE(n.row(table)->data(0, DatabaseNavigator::ItemKindRole).toInt(),
            static_cast<int>(view ? DatabaseNavigator::ItemKind::view : DatabaseNavigator::ItemKind::table));
        if (view) {
            n.navigator->tableActions(n.shop.name(), table, this).value(0)->trigger();
        } else {
            n.click(table);
        }
        QCOMPARE(opened.takeFirst().at(0).toString().toStdString(), table);
        QVERIFY(n.session->busy());
        QCOMPARE(n.navigator->tree()->currentItem(), n.row(table));
        QVERIFY(settle(*n.session));
        QCOMPARE(n.session->error(), OptionalText());
        QCOMPARE(n.session->selectedTable(), table);
        QCOMPARE(n.session->database(), n.shop.name());
        QCOMPARE(n.session->mode(), WorkspaceMode::data);
        n.session->chooseDatabase(n.empty.name());
        QVERIFY(settle(*n.session));
    }
}

void TestDatabaseNavigator::tableActionsCopyTheNameAndOpenASelect()
{
    Navigator n;
    QVERIFY(n.open());
    const QList<QAction *> actions = n.navigator->tableActions(n.shop.name(), "we`ird", this);
    QCOMPARE(actions.size(), 3);
    const QString name = QString::fromStdString("`" + n.shop.name() + "`.`we``ird`");
    actions[2]->trigger(); // Copy qualified name
    QCOMPARE(QGuiApplication::clipboard()->text(), name);
    n.session->setMode(WorkspaceMode::data);
    actions[1]->trigger(); // SELECT in new tab
    QCOMPARE(n.session->tabs().size(), std::size_t(2));
    QCOMPARE(QString::fromStdString(n.session->tabs().back().sql), "SELECT * FROM " + name + "\nLIMIT 500;");
    QCOMPARE(n.session->activeTab(), n.session->tabs().back().id);
    QCOMPARE(n.session->mode(), WorkspaceMode::query);
}

void TestDatabaseNavigator::refreshKeepsExpansionAndScrollPosition()
{
    Navigator n;
    QVERIFY(n.open());
    QVERIFY(n.expand(n.empty.name()));
    QVERIFY(n.expand(n.shop.name()));
    n.click("orders");
    QVERIFY(settle(*n.session));
    // Short enough that the list scrolls, and scrolled away from the highlighted table, which
    // the refresh must not drag back into view. Which end hides it depends on how many
    // databases the server holds.
    QTreeWidget *tree = n.navigator->tree();
    const auto highlightInView
        = [tree] { return tree->viewport()->rect().intersects(tree->visualItemRect(tree->currentItem())); };
    // As short as it takes, since how many rows there are depends on the server's databases.
    for (int height = 160; height >= 40 && (tree->verticalScrollBar()->maximum() == 0 || highlightInView());
         height -= 20) {
        n.navigator->resize(360, height);
        QTest::qWait(20);
        tree->scrollToBottom();
        if (highlightInView()) {
            tree->scrollToTop();
        }
    }
    QVERIFY(!highlightInView());
    const int scroll = tree->verticalScrollBar()->value();
    n.session->loadTables(n.shop.name());
    QVERIFY(settle(*n.session));
    QCOMPARE(tree->verticalScrollBar()->value(), scroll);
    QVERIFY(n.navigator->isExpanded(n.shop.name()) && n.navigator->isExpanded(n.empty.name()));
}

QTEST_MAIN(TestDatabaseNavigator)
#include "TestDatabaseNavigator.moc"
