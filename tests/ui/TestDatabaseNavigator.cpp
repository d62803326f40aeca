#include "client/ClientThreadScope.h"
#include "core/SqlQuoting.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/DatabaseNavigator.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

using namespace tallowick;
using namespace tallowick::test;

// The navigator over a live session: a scratch "shop" database with tables, a view and a table
// whose name holds a back-quote, and a second scratch database without tables.
class TestDatabaseNavigator final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void collapsingSendsNothing_data();
    void collapsingSendsNothing();
    void reexpandingAnEmptyCurrentDatabaseReloadsIt();
    void filterKeepsDatabasesOfMatchingTables_data();
    void filterKeepsDatabasesOfMatchingTables();
    void openingATable_data();
    void openingATable();
    void contextMenuOffersTheTableActions();
    void selectInNewTabDoublesTheBackQuote();
    void refreshKeepsExpansionAndScrollPosition();

private:
    QTreeWidgetItem *databaseRow(const std::string &name) const;
    QTreeWidgetItem *tableRow(const std::string &database, const std::string &table) const;
    QStringList childTexts(const std::string &database) const;
    void click(QTreeWidgetItem *item);
    // Clicks the database's row and waits for whatever the click asked of the session.
    bool expand(const std::string &database);
    // Opens the table's context menu the way a right click does.
    QMenu *contextMenu(const std::string &database, const std::string &table);

    ClientThreadScope m_clientThread; // the scratch databases are set up from this thread
    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_shop;
    std::unique_ptr<ScratchDatabase> m_empty;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<DatabaseNavigator> m_navigator;
};

void TestDatabaseNavigator::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_shop = std::make_unique<ScratchDatabase>(m_harness->server);
    m_shop->run("CREATE TABLE customers (id INT PRIMARY KEY, name VARCHAR(50))");
    m_shop->run("CREATE TABLE orders (id INT PRIMARY KEY, customer INT)");
    m_shop->run("CREATE TABLE order_lines (id INT PRIMARY KEY, item VARCHAR(50))");
    m_shop->run("CREATE VIEW orders_by_customer AS SELECT customer, COUNT(*) AS n FROM orders GROUP BY customer");
    m_shop->run("CREATE TABLE " + SQL::identifier("we`ird") + " (id INT PRIMARY KEY)");
    m_shop->run("INSERT INTO " + SQL::identifier("we`ird") + " VALUES (7)");
    m_empty = std::make_unique<ScratchDatabase>(m_harness->server);

    // Connect after the scratch databases exist so the session lists them.
    m_session = m_harness->session(m_harness->profile());
    QVERIFY(connectAndSettle(*m_session));
    m_navigator = std::make_unique<DatabaseNavigator>(*m_session);
    m_navigator->resize(360, 700);
    m_navigator->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_navigator.get()));
    QVERIFY(databaseRow(m_shop->name()));
    QVERIFY(databaseRow(m_empty->name()));
}

void TestDatabaseNavigator::cleanup()
{
    if (m_session) {
        QVERIFY(settle(*m_session));
    }
    m_navigator.reset();
    m_session.reset();
    m_empty.reset();
    m_shop.reset();
    m_harness.reset();
}

QTreeWidgetItem *TestDatabaseNavigator::databaseRow(const std::string &name) const
{
    QTreeWidget *tree = m_navigator->tree();
    for (int index = 0; index < tree->topLevelItemCount(); ++index) {
        if (tree->topLevelItem(index)->text(0) == QString::fromStdString(name)) {
            return tree->topLevelItem(index);
        }
    }
    return nullptr;
}

QTreeWidgetItem *TestDatabaseNavigator::tableRow(const std::string &database, const std::string &table) const
{
    QTreeWidgetItem *row = databaseRow(database);
    for (int index = 0; row && index < row->childCount(); ++index) {
        if (row->child(index)->text(0) == QString::fromStdString(table)) {
            return row->child(index);
        }
    }
    return nullptr;
}

QStringList TestDatabaseNavigator::childTexts(const std::string &database) const
{
    QStringList texts;
    const QTreeWidgetItem *row = databaseRow(database);
    for (int index = 0; row && index < row->childCount(); ++index) {
        texts << row->child(index)->text(0);
    }
    return texts;
}

void TestDatabaseNavigator::click(QTreeWidgetItem *item)
{
    QVERIFY(item);
    QTreeWidget *tree = m_navigator->tree();
    tree->scrollToItem(item);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, tree->visualItemRect(item).center());
}

bool TestDatabaseNavigator::expand(const std::string &database)
{
    QTreeWidgetItem *row = databaseRow(database);
    if (!row || m_navigator->isExpanded(database)) {
        return false;
    }
    click(row);
    return settle(*m_session) && m_navigator->isExpanded(database);
}

QMenu *TestDatabaseNavigator::contextMenu(const std::string &database, const std::string &table)
{
    QTreeWidgetItem *row = tableRow(database, table);
    if (!row) {
        return nullptr;
    }
    QTreeWidget *tree = m_navigator->tree();
    tree->scrollToItem(row);
    const QPoint position = tree->visualItemRect(row).center();
    QContextMenuEvent event(QContextMenuEvent::Mouse, position, tree->viewport()->mapToGlobal(position));
    QCoreApplication::sendEvent(tree->viewport(), &event);
    const QList<QMenu *> menus = m_navigator->findChildren<QMenu *>();
    return menus.isEmpty() ? nullptr : menus.last();
}

void TestDatabaseNavigator::collapsingSendsNothing_data()
{
    QTest::addColumn<bool>("current");
    QTest::newRow("the current database") << true;
    QTest::newRow("an expanded database that is not current") << false;
}

// Expanding a database chooses it (marked in bold) and keeps the others open, since expansion is
// the user's; collapsing one, current or not, asks nothing of the server.
void TestDatabaseNavigator::collapsingSendsNothing()
{
    QFETCH(bool, current);
    QVERIFY(m_session->database().empty());
    QVERIFY(expand(m_empty->name()));
    QVERIFY(expand(m_shop->name()));
    QCOMPARE(m_session->database(), m_shop->name());
    QVERIFY(databaseRow(m_shop->name())->font(0).bold());
    QVERIFY(!databaseRow(m_empty->name())->font(0).bold());
    QVERIFY(m_navigator->isExpanded(m_empty->name()));

    const std::string target = current ? m_shop->name() : m_empty->name();
    const std::string status = m_session->status();
    QSignalSpy busyChanges(m_session.get(), &ServerSession::busyChanged);

    click(databaseRow(target));

    QVERIFY(!m_navigator->isExpanded(target));
    QCOMPARE(busyChanges.count(), 0);
    QCOMPARE(m_session->status(), status);
    QCOMPARE(m_session->database(), m_shop->name());
}

void TestDatabaseNavigator::reexpandingAnEmptyCurrentDatabaseReloadsIt()
{
    QVERIFY(expand(m_empty->name()));
    QCOMPARE(childTexts(m_empty->name()), QStringList { QStringLiteral("No tables") });
    click(databaseRow(m_empty->name()));
    QVERIFY(!m_navigator->isExpanded(m_empty->name()));

    m_empty->run("CREATE TABLE late_arrival (id INT)");
    click(databaseRow(m_empty->name()));
    QVERIFY(m_session->busy()); // an empty list of the current database is read again
    QVERIFY(settle(*m_session));
    QCOMPARE(childTexts(m_empty->name()), QStringList { QStringLiteral("late_arrival") });

    // With its tables known, expanding it again needs nothing from the server.
    click(databaseRow(m_empty->name()));
    click(databaseRow(m_empty->name()));
    QVERIFY(m_navigator->isExpanded(m_empty->name()));
    QVERIFY(!m_session->busy());
}

void TestDatabaseNavigator::filterKeepsDatabasesOfMatchingTables_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<bool>("shopListed");
    QTest::addColumn<QStringList>("shopRows");
    QTest::addColumn<bool>("emptyListed");

    QTest::newRow("table name in another case")
        << "ORDERS" << true << QStringList { "orders", "orders_by_customer" } << false;
    QTest::newRow("database name: tables that do not match are hidden")
        << "{shop}" << true << QStringList { "No tables" } << false;
    QTest::newRow("nothing matches") << "no such thing" << false << QStringList() << false;
}

void TestDatabaseNavigator::filterKeepsDatabasesOfMatchingTables()
{
    QFETCH(QString, filter);
    QFETCH(bool, shopListed);
    QFETCH(QStringList, shopRows);
    QFETCH(bool, emptyListed);

    QVERIFY(expand(m_shop->name()));
    filter.replace(QStringLiteral("{shop}"), QString::fromStdString(m_shop->name()).toLower());
    m_navigator->filterField()->setFocus();
    QTest::keyClicks(m_navigator->filterField(), filter);

    QCOMPARE(databaseRow(m_shop->name()) != nullptr, shopListed);
    QStringList rows = childTexts(m_shop->name());
    rows.sort(); // the server's listing order is not what is tested here
    QCOMPARE(rows, shopRows);
    QCOMPARE(databaseRow(m_empty->name()) != nullptr, emptyListed);
    QVERIFY(!m_session->busy()); // filtering is local
}

void TestDatabaseNavigator::openingATable_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("fromMenu");

    const int table = static_cast<int>(DatabaseNavigator::ItemKind::table);
    QTest::newRow("table") << "orders" << table << false;
    QTest::newRow("view") << "orders_by_customer" << static_cast<int>(DatabaseNavigator::ItemKind::view) << false;
    QTest::newRow("back-quoted name") << "we`ird" << table << false;
    QTest::newRow("\"Open data\" in the menu") << "customers" << table << true;
}

void TestDatabaseNavigator::openingATable()
{
    QFETCH(QString, table);
    QFETCH(int, kind);
    QFETCH(bool, fromMenu);

    QVERIFY(expand(m_shop->name()));
    QVERIFY(expand(m_empty->name())); // the table's database is not the current one
    QTreeWidgetItem *row = tableRow(m_shop->name(), table.toStdString());
    QVERIFY(row);
    QCOMPARE(row->data(0, DatabaseNavigator::ItemKindRole).toInt(), kind);
    QSignalSpy opened(m_navigator.get(), &DatabaseNavigator::tableOpened);

    if (fromMenu) {
        QMenu *menu = contextMenu(m_shop->name(), table.toStdString());
        QVERIFY(menu);
        actionTitled(menu->actions(), QStringLiteral("Open data"))->trigger();
        menu->close();
    } else {
        click(row);
    }
    QCOMPARE(opened.count(), 1);
    QCOMPARE(opened.at(0).at(0).toString(), table);
    // Still loading: the clicked row is the highlighted one already.
    QVERIFY(m_session->busy());
    QCOMPARE(m_navigator->tree()->currentItem()->text(0), table);
    QVERIFY(settle(*m_session));

    QCOMPARE(m_session->error(), OptionalText());
    QCOMPARE(m_session->selectedTable(), table.toStdString());
    QCOMPARE(m_session->database(), m_shop->name());
    QCOMPARE(m_session->mode(), WorkspaceMode::data);
}

void TestDatabaseNavigator::contextMenuOffersTheTableActions()
{
    QVERIFY(expand(m_shop->name()));
    QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
    QMenu *menu = contextMenu(m_shop->name(), "we`ird");
    QVERIFY(menu);
    QCOMPARE(actionTexts(menu->actions()),
        QStringList({ QStringLiteral("Open data"),
            QStringLiteral("SELECT in new tab"),
            QStringLiteral("Copy qualified name") }));
    actionTitled(menu->actions(), QStringLiteral("Copy qualified name"))->trigger();
    menu->close();
    QCOMPARE(QGuiApplication::clipboard()->text(), QString::fromStdString("`" + m_shop->name() + "`.`we``ird`"));
}

void TestDatabaseNavigator::selectInNewTabDoublesTheBackQuote()
{
    QVERIFY(expand(m_shop->name()));
    const std::size_t tabsBefore = m_session->tabs().size();
    m_session->setMode(WorkspaceMode::data);
    QMenu *menu = contextMenu(m_shop->name(), "we`ird");
    QVERIFY(menu);
    actionTitled(menu->actions(), QStringLiteral("SELECT in new tab"))->trigger();
    menu->close();

    QCOMPARE(m_session->tabs().size(), tabsBefore + 1);
    const QueryTab tab = m_session->tabs().back();
    QCOMPARE(tab.sql, "SELECT * FROM `" + m_shop->name() + "`.`we``ird`\nLIMIT 500;");
    QCOMPARE(m_session->activeTab(), tab.id);
    QCOMPARE(m_session->mode(), WorkspaceMode::query);

    // The server reads it as the table it names.
    m_session->run();
    QVERIFY(settle(*m_session));
    const QueryTab ran = m_session->tabs().back();
    QVERIFY(ran.result);
    QCOMPARE(ran.result->rows, std::vector<Row> { Row { Cell("7") } });
}

void TestDatabaseNavigator::refreshKeepsExpansionAndScrollPosition()
{
    QVERIFY(expand(m_empty->name()));
    QVERIFY(expand(m_shop->name()));
    click(tableRow(m_shop->name(), "customers"));
    QVERIFY(settle(*m_session));
    // Short enough that the list scrolls, and scrolled away from the highlighted table, which
    // the refresh must not drag back into view.
    m_navigator->resize(360, 140);
    QTreeWidget *tree = m_navigator->tree();
    QVERIFY(QTest::qWaitFor([tree] { return tree->verticalScrollBar()->maximum() > 0; }));
    const auto highlightInView
        = [tree] { return tree->viewport()->rect().intersects(tree->visualItemRect(tree->currentItem())); };
    // Which end hides it depends on how many databases the server holds.
    tree->scrollToBottom();
    if (highlightInView()) {
        tree->scrollToTop();
    }
    QVERIFY(!highlightInView());
    const int scroll = tree->verticalScrollBar()->value();

    m_session->loadTables(m_shop->name());
    QVERIFY(m_session->busy());
    QVERIFY(settle(*m_session));

    QCOMPARE(tree->verticalScrollBar()->value(), scroll);
    QVERIFY(m_navigator->isExpanded(m_shop->name()));
    QVERIFY(m_navigator->isExpanded(m_empty->name()));
}

QTEST_MAIN(TestDatabaseNavigator)
#include "TestDatabaseNavigator.moc"
