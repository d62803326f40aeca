#include "client/ClientThreadScope.h"
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
        shop.run("CREATE TABLE `we``ird` (id INT PRIMARY KEY)");
        // Connect after the scratch databases exist so the session lists them.
        const bool connected = connectAndSettle(*session);
        navigator = std::make_unique<DatabaseNavigator>(*session);
        navigator->resize(360, 700);
        navigator->show();
        return connected && QTest::qWaitForWindowExposed(navigator.get());
    }

    // The row of a database or a table (the names are unique here).
    QTreeWidgetItem *row(const std::string &text) const
    {
        return navigator->tree()
            ->findItems(QString::fromStdString(text), Qt::MatchExactly | Qt::MatchRecursive)
            .value(0);
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

// The navigator's own decisions over a live session: what it lists, expands and highlights, and
// what a click or a table action asks of the session.
class TestDatabaseNavigator final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Expanding a database chooses it (marked in bold) and keeps the others open, since expansion
    // is the user's; collapsing one, current or not, asks nothing of the server. Only an empty
    // table list of the current database is read again when it is expanded once more. A refresh
    // keeps what is open, and does not drag the highlighted table back into view.
    void expansionIsTheUsers()
    {
        Navigator n;
        QVERIFY(n.open());
        QSignalSpy busyChanges(n.session.get(), &ServerSession::busyChanged);
        QVERIFY(n.expand(n.empty.name()));
        n.click(n.empty.name());
        n.empty.run("CREATE TABLE late_arrival (id INT)");
        busyChanges.clear();
        QVERIFY(n.expand(n.empty.name()));
        QVERIFY(busyChanges.count() == 2 && n.row("late_arrival"));

        QVERIFY(n.expand(n.shop.name()));
        QVERIFY(n.row(n.shop.name())->font(0).bold() && !n.row(n.empty.name())->font(0).bold());
        QVERIFY(n.navigator->isExpanded(n.empty.name()));
        busyChanges.clear();
        n.click(n.empty.name());
        n.click(n.shop.name());
        QVERIFY(!n.navigator->isExpanded(n.empty.name()) && !n.navigator->isExpanded(n.shop.name()));
        QVERIFY(n.expand(n.shop.name())); // its tables are known
        QCOMPARE(busyChanges.count(), 0);

        QVERIFY(n.expand(n.empty.name()));
        n.click("orders");
        QVERIFY(settle(*n.session));
        // Short enough to scroll, and scrolled away from the highlighted table: to the end that hides
        // it, which depends on how many databases the server holds.
        QTreeWidget *tree = n.navigator->tree();
        const auto highlightInView
            = [tree] { return tree->viewport()->rect().intersects(tree->visualItemRect(tree->currentItem())); };
        n.navigator->resize(360, 120);
        QTest::qWait(20);
        tree->scrollToBottom();
        if (highlightInView()) {
            tree->scrollToTop();
        }
        QVERIFY(!highlightInView());
        const int scroll = tree->verticalScrollBar()->value();
        n.session->loadTables(n.shop.name());
        QVERIFY(settle(*n.session));
        QCOMPARE(tree->verticalScrollBar()->value(), scroll);
        QVERIFY(n.navigator->isExpanded(n.shop.name()) && n.navigator->isExpanded(n.empty.name()));
    }

    // The filter keeps databases with matching tables. A click on a table of a database that is
    // not the current one, or "Open data" on a view, opens it there; the row is highlighted while
    // it still loads. The other actions copy the quoted name and open a SELECT in a new tab, in front.
    void filterAndTableActions()
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
        n.navigator->filterField()->clear();
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
            QVERIFY(n.session->busy() && n.navigator->tree()->currentItem() == n.row(table));
            QVERIFY(settle(*n.session));
            QVERIFY(n.session->selectedTable() == table && n.session->database() == n.shop.name());
        }

        const QList<QAction *> actions = n.navigator->tableActions(n.shop.name(), "we`ird", this);
        const QString name = QString::fromStdString("`" + n.shop.name() + "`.`we``ird`");
        actions.value(2)->trigger(); // Copy qualified name
        QCOMPARE(QGuiApplication::clipboard()->text(), name);
        actions.value(1)->trigger(); // SELECT in new tab
        QCOMPARE(QString::fromStdString(n.session->tabs().back().sql), "SELECT * FROM " + name + "\nLIMIT 500;");
        QCOMPARE(n.session->mode(), WorkspaceMode::query);
    }
};

QTEST_MAIN(TestDatabaseNavigator)
#include "TestDatabaseNavigator.moc"
