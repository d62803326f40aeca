#include "client/ClientThreadScope.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/BuilderPanel.h"
#include "ui/SQLEditor.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// Lets rows the form just added appear and rows it replaced go, as one turn of the event loop
// does for a user; lookups then see only the current form.
void settleForm()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// Chooses like a keyboard user, then lets the form replace the row the picker was in.
bool pick(QComboBox *box, const QString &text)
{
    const bool chosen = choose(box, text);
    settleForm();
    return chosen;
}

// The child of `row` of type T whose tool tip (or, for check boxes, text) is `name`.
template <typename T> T *part(QWidget *row, const QString &name)
{
    if (!row) {
        return nullptr;
    }
    for (T *candidate : row->findChildren<T *>()) {
        if (candidate->toolTip() == name) {
            return candidate;
        }
        if constexpr (std::is_base_of_v<QAbstractButton, T>) {
            if (candidate->text() == name) {
                return candidate;
            }
        }
    }
    return nullptr;
}

// Scrolls the form to `target`, as a user would, then clicks it. False when there is no target.
bool click(QWidget *target)
{
    if (!target) {
        return false;
    }
    for (QWidget *up = target->parentWidget(); up; up = up->parentWidget()) {
        if (auto *scroll = qobject_cast<QScrollArea *>(up)) {
            scroll->ensureWidgetVisible(target);
        }
    }
    // A stretched check box reacts to its box and label only, so aim at the box.
    const QPoint at = qobject_cast<QCheckBox *>(target) ? QPoint(8, target->height() / 2) : target->rect().center();
    QTest::mouseClick(target, Qt::LeftButton, {}, at);
    settleForm();
    return true;
}

QComboBox *aggregateNextTo(const QCheckBox &toggle)
{
    for (QComboBox *box : toggle.parentWidget()->findChildren<QComboBox *>(Qt::FindDirectChildrenOnly)) {
        if (box->toolTip() == QStringLiteral("Aggregate")) {
            return box;
        }
    }
    return nullptr;
}

// The toggle for "table.column" (a primary key's behind a key mark). A column toggle shares its
// row with the column's aggregate picker; a group-by toggle stands alone.
QCheckBox *toggleFor(const QWidget &panel, const QString &reference, bool column)
{
    for (QCheckBox *toggle : panel.findChildren<QCheckBox *>()) {
        const bool named = toggle->text() == reference || toggle->text().endsWith(u' ' + reference);
        if (named && (aggregateNextTo(*toggle) != nullptr) == column) {
            return toggle;
        }
    }
    return nullptr;
}

// The last picker offering `text` among its choices.
QComboBox *pickerOffering(const QWidget &panel, const QString &text)
{
    QComboBox *found = nullptr;
    for (QComboBox *box : panel.findChildren<QComboBox *>()) {
        if (box->findText(text) >= 0) {
            found = box;
        }
    }
    return found;
}

} // namespace

// The query builder driven like a user: real widgets, a real session, the disposable server.
class TestBuilderPanel final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void withoutADatabaseThereIsNothingToPick();
    void choosingTheSourceTableLoadsItsColumns();
    void joinsAddAndRemoveTheirLines();
    void filtersQuoteTypedValuesAndKeepTheFocus();
    void columnsAggregatesAndGrouping();
    void distinctSortAndLimit();
    void actionsHandOverExactlyThePreview();
    void tablesChosenWhileTheSessionWorksStillGetTheirColumns();
    void removingAJoinDropsWhatReferredToItsTable();
    void tableNameWithADotListsItsColumns();
    void sameTableNameInAnotherDatabaseShowsItsOwnColumns();

private:
    void chooseDatabase();
    void chooseSource(const QString &table);
    // Picks a table and waits until its columns have loaded into the form.
    bool pickTable(QComboBox *box, const QString &table);
    void joinCustomers();
    QString preview() const { return m_panel->preview()->sql(); }
    QString base(const QString &clauses = QString()) const;
    QCheckBox *columnToggle(const QString &reference) const { return toggleFor(*m_panel, reference, true); }
    QCheckBox *groupToggle(const QString &reference) const { return toggleFor(*m_panel, reference, false); }
    QComboBox *aggregateFor(const QString &reference) const;
    QComboBox *sortPicker() const;

    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<BuilderPanel> m_panel;
    QString m_database;
    ClientThreadScope m_clientThread;
};

void TestBuilderPanel::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_database = QString::fromStdString(m_scratch->name());
    m_scratch->run("CREATE TABLE customers (id INT PRIMARY KEY, name VARCHAR(50))");
    m_scratch->run("CREATE TABLE orders (id INT PRIMARY KEY, customer_id INT, total DECIMAL(10,2), note TEXT NULL)");
    m_session = m_harness->session(m_harness->profile());
    m_panel = std::make_unique<BuilderPanel>(*m_session);
    m_panel->resize(1200, 900);
    m_panel->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
    QVERIFY(connectAndSettle(*m_session));
    QVERIFY(m_session->database().empty());
}

void TestBuilderPanel::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_panel.reset();
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

void TestBuilderPanel::chooseDatabase()
{
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
}

void TestBuilderPanel::chooseSource(const QString &table)
{
    chooseDatabase();
    QVERIFY(pickTable(m_panel->tablePicker(), table));
    QVERIFY(columnToggle(table + QStringLiteral(".id")));
}

bool TestBuilderPanel::pickTable(QComboBox *box, const QString &table)
{
    if (!pick(box, table) || !settle(*m_session)) {
        return false;
    }
    settleForm();
    return true;
}

// Fills the first join line: orders LEFT JOIN customers on the customer's id.
void TestBuilderPanel::joinCustomers()
{
    QVERIFY(
        pickTable(part<QComboBox>(m_panel->joinRows().value(0), QStringLiteral("Table")), QStringLiteral("customers")));
    QWidget *row = m_panel->joinRows().value(0);
    QVERIFY(pick(part<QComboBox>(row, QStringLiteral("Left column")), QStringLiteral("orders.customer_id")));
    QVERIFY(pick(part<QComboBox>(row, QStringLiteral("Right column")), QStringLiteral("customers.id")));
}

QString TestBuilderPanel::base(const QString &clauses) const
{
    return QStringLiteral("SELECT `orders`.*\nFROM `%1`.`orders`").arg(m_database) + clauses
        + QStringLiteral("\nLIMIT 500;");
}

QComboBox *TestBuilderPanel::aggregateFor(const QString &reference) const
{
    QCheckBox *toggle = columnToggle(reference);
    return toggle ? aggregateNextTo(*toggle) : nullptr;
}

// The sort column picker: the one plain picker whose first choice (no sorting) carries no column.
QComboBox *TestBuilderPanel::sortPicker() const
{
    for (QComboBox *box : m_panel->findChildren<QComboBox *>()) {
        if (box != m_panel->tablePicker() && box->toolTip().isEmpty() && box->count() > 0
            && box->itemData(0).typeId() == QMetaType::QString && box->itemData(0).toString().isEmpty()) {
            return box;
        }
    }
    return nullptr;
}

void TestBuilderPanel::withoutADatabaseThereIsNothingToPick()
{
    QVERIFY(m_panel->sourceHint()->isVisible());
    QVERIFY(!m_panel->tablePicker()->isVisible());

    chooseDatabase();
    QVERIFY(!m_panel->sourceHint()->isVisible());
    QVERIFY(m_panel->tablePicker()->isVisible());
    QVERIFY(m_panel->tablePicker()->findText(QStringLiteral("orders")) > 0);
    // A database but no table yet: the preview says so, and there is nothing to open.
    QCOMPARE(preview(), QStringLiteral("Choose a table to build a query."));
    QVERIFY(!m_panel->openButton()->isEnabled());
    QVERIFY(!m_panel->addJoinButton()->isEnabled());
}

void TestBuilderPanel::choosingTheSourceTableLoadsItsColumns()
{
    chooseDatabase();
    QVERIFY(!columnToggle(QStringLiteral("orders.id")));
    QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("orders")));
    QVERIFY(columnToggle(QStringLiteral("orders.note")) && !columnToggle(QStringLiteral("orders.note"))->isChecked());
    QCOMPARE(preview(), base());

    // The same table picked again keeps what was shaped so far.
    QVERIFY(click(columnToggle(QStringLiteral("orders.total"))));
    const QString shaped = preview();
    QVERIFY(shaped != base());
    QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("orders")));
    QCOMPARE(preview(), shaped);

    // Another source table starts over with its own columns.
    QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("customers")));
    QVERIFY(columnToggle(QStringLiteral("customers.name")));
    QVERIFY(!columnToggle(QStringLiteral("orders.total")));
}

void TestBuilderPanel::joinsAddAndRemoveTheirLines()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(m_panel->addJoinButton()));
    QCOMPARE(preview(), QStringLiteral("Complete the table and both columns for each join."));

    // The joined table's columns are offered once they have loaded.
    joinCustomers();
    QVERIFY(columnToggle(QStringLiteral("customers.name")));
    const QString joined = base(
        QStringLiteral("\nLEFT JOIN `%1`.`customers`\n  ON `orders`.`customer_id` = `customers`.`id`").arg(m_database));
    QCOMPARE(preview(), joined);

    QVERIFY(click(part<QPushButton>(m_panel->joinRows().value(0), QStringLiteral("Remove join"))));
    QVERIFY(m_panel->joinRows().isEmpty());
    QCOMPARE(preview(), base());
}

void TestBuilderPanel::filtersQuoteTypedValuesAndKeepTheFocus()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(m_panel->addFilterButton()));
    QWidget *row = m_panel->filterRows().value(0);
    QVERIFY(pick(part<QComboBox>(row, QStringLiteral("Column")), QStringLiteral("orders.note")));
    QVERIFY(pick(part<QComboBox>(row, QStringLiteral("Operator")), QStringLiteral("LIKE")));
    const QPointer<QLineEdit> value = row->findChild<QLineEdit *>();
    QVERIFY(value);
    m_panel->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
    QVERIFY(click(value));
    QTest::keyClicks(value, QStringLiteral("A%cme"));
    settleForm();
    QCOMPARE(preview(), base(QStringLiteral("\nWHERE `orders`.`note` LIKE 'A%cme'")));
    // Every keystroke refreshed the preview, yet the same field still has the caret.
    QVERIFY(value);
    QCOMPARE(QApplication::focusWidget(), value.data());

    // Ticked as a number, the text is refused rather than sent unquoted.
    QVERIFY(click(part<QCheckBox>(m_panel->filterRows().value(0), QStringLiteral("Number"))));
    QCOMPARE(preview(), QStringLiteral("Enter a valid number for orders.note."));
    QVERIFY(click(part<QCheckBox>(m_panel->filterRows().value(0), QStringLiteral("Number"))));

    // A second filter, matched with OR.
    QVERIFY(click(m_panel->addFilterButton()));
    QVERIFY(
        pick(part<QComboBox>(m_panel->filterRows().value(1), QStringLiteral("Operator")), QStringLiteral("IS NULL")));
    QVERIFY(pick(pickerOffering(*m_panel, QStringLiteral("Match any")), QStringLiteral("Match any")));
    QCOMPARE(preview(), base(QStringLiteral("\nWHERE `orders`.`note` LIKE 'A%cme'\n  OR `orders`.`id` IS NULL")));

    QVERIFY(click(part<QPushButton>(m_panel->filterRows().value(0), QStringLiteral("Remove filter"))));
    QCOMPARE(preview(), base(QStringLiteral("\nWHERE `orders`.`id` IS NULL")));
}

void TestBuilderPanel::columnsAggregatesAndGrouping()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(columnToggle(QStringLiteral("orders.customer_id"))));
    QCOMPARE(
        preview(), QStringLiteral("SELECT `orders`.`customer_id`\nFROM `%1`.`orders`\nLIMIT 500;").arg(m_database));

    // Choosing an aggregate selects the column too.
    QVERIFY(pick(aggregateFor(QStringLiteral("orders.total")), QStringLiteral("SUM")));
    QVERIFY(columnToggle(QStringLiteral("orders.total"))->isChecked());
    QVERIFY(click(groupToggle(QStringLiteral("orders.customer_id"))));
    QCOMPARE(preview(),
        QStringLiteral("SELECT `orders`.`customer_id`,\n       SUM(`orders`.`total`)\nFROM `%1`.`orders`\n"
                       "GROUP BY `orders`.`customer_id`\nLIMIT 500;")
            .arg(m_database));

    // Columns keep the listed order whatever order they were ticked in.
    QVERIFY(click(columnToggle(QStringLiteral("orders.id"))));
    QVERIFY(preview().startsWith(
        QStringLiteral("SELECT `orders`.`id`,\n       `orders`.`customer_id`,\n       SUM(`orders`.`total`)\n")));
}

void TestBuilderPanel::distinctSortAndLimit()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(part<QCheckBox>(m_panel.get(), QStringLiteral("Distinct rows"))));
    QVERIFY(preview().startsWith(QStringLiteral("SELECT DISTINCT `orders`.*\n")));

    QComboBox *sort = sortPicker();
    QVERIFY(pick(sort, QStringLiteral("orders.id")));
    QVERIFY(pick(pickerOffering(*m_panel, QStringLiteral("Descending")), QStringLiteral("Descending")));
    QVERIFY(preview().endsWith(QStringLiteral("\nORDER BY `orders`.`id` DESC\nLIMIT 500;")));

    auto *limit = m_panel->findChild<QSpinBox *>();
    QVERIFY(limit);
    limit->setFocus();
    limit->selectAll();
    QTest::keyClicks(limit, QStringLiteral("0"));
    QCOMPARE(preview(), QStringLiteral("The row limit must be between 1 and 100,000."));

    // The empty sort choice takes ORDER BY away again.
    QVERIFY(pick(sort, sort->itemText(0)));
    limit->selectAll();
    QTest::keyClicks(limit, QStringLiteral("25"));
    QCOMPARE(preview(), QStringLiteral("SELECT DISTINCT `orders`.*\nFROM `%1`.`orders`\nLIMIT 25;").arg(m_database));
}

void TestBuilderPanel::actionsHandOverExactlyThePreview()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(m_panel->addFilterButton()));
    QTest::keyClicks(m_panel->filterRows().value(0)->findChild<QLineEdit *>(), QStringLiteral("7"));
    const QString shown = preview();
    QCOMPARE(shown, base(QStringLiteral("\nWHERE `orders`.`id` = '7'")));

    QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
    QVERIFY(click(m_panel->copyButton()));
    QCOMPARE(QGuiApplication::clipboard()->text(), shown);

    m_session->setMode(WorkspaceMode::builder);
    const std::size_t before = m_session->tabs().size();
    QVERIFY(click(m_panel->openButton()));
    QCOMPARE(m_session->tabs().size(), before + 1);
    QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);
    QCOMPARE(QString::fromStdString(m_session->tabs().back().sql), shown);
    QCOMPARE(m_session->mode(), WorkspaceMode::query);
}

void TestBuilderPanel::tablesChosenWhileTheSessionWorksStillGetTheirColumns()
{
    chooseDatabase();
    // A long statement from the query tab is still running when the user picks a table here.
    m_session->run("SELECT SLEEP(1)");
    QVERIFY(m_session->busy());
    QVERIFY(pick(m_panel->tablePicker(), QStringLiteral("orders")));
    QCOMPARE(preview(), base());
    QVERIFY(settle(*m_session));
    QVERIFY(QTest::qWaitFor([this] { return m_session->builderColumns().count("orders") == 1; }));
    QVERIFY(settle(*m_session));
    settleForm();
    QVERIFY(columnToggle(QStringLiteral("orders.total")));
}

void TestBuilderPanel::removingAJoinDropsWhatReferredToItsTable()
{
    chooseSource(QStringLiteral("orders"));
    QVERIFY(click(m_panel->addJoinButton()));
    joinCustomers();
    // The joined table's column is selected, grouped, filtered and sorted on.
    QVERIFY(click(columnToggle(QStringLiteral("orders.id"))));
    QVERIFY(click(columnToggle(QStringLiteral("customers.name"))));
    QVERIFY(click(groupToggle(QStringLiteral("customers.name"))));
    QVERIFY(click(m_panel->addFilterButton()));
    QVERIFY(pick(
        part<QComboBox>(m_panel->filterRows().value(0), QStringLiteral("Column")), QStringLiteral("customers.name")));
    QComboBox *sort = sortPicker();
    QVERIFY(pick(sort, QStringLiteral("customers.name")));
    QVERIFY(preview().contains(QStringLiteral("`customers`.`name`\n")));

    // Without the join, nothing may point at its table: the form has no control left to remove
    // such a reference, and the statement would fail on the server.
    QVERIFY(click(part<QPushButton>(m_panel->joinRows().value(0), QStringLiteral("Remove join"))));
    QCOMPARE(preview(), QStringLiteral("SELECT `orders`.`id`\nFROM `%1`.`orders`\nLIMIT 500;").arg(m_database));
    QCOMPARE(sort->currentIndex(), 0);
    QVERIFY(m_panel->filterRows().isEmpty());
}

void TestBuilderPanel::tableNameWithADotListsItsColumns()
{
    m_scratch->run("CREATE TABLE `order.lines` (id INT PRIMARY KEY, qty INT)");
    chooseDatabase();
    QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("order.lines")));
    QVERIFY(click(columnToggle(QStringLiteral("order.lines.qty"))));
    QCOMPARE(
        preview(), QStringLiteral("SELECT `order.lines`.`qty`\nFROM `%1`.`order.lines`\nLIMIT 500;").arg(m_database));
}

void TestBuilderPanel::sameTableNameInAnotherDatabaseShowsItsOwnColumns()
{
    ScratchDatabase other(m_harness->server);
    other.run("CREATE TABLE orders (id INT PRIMARY KEY, placed_at DATE)");
    chooseSource(QStringLiteral("orders"));
    QVERIFY(columnToggle(QStringLiteral("orders.total")));

    m_session->chooseDatabase(other.name());
    QVERIFY(settle(*m_session));
    QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("orders")));
    QVERIFY(columnToggle(QStringLiteral("orders.placed_at")));
    QVERIFY(!columnToggle(QStringLiteral("orders.total")));
}

QTEST_MAIN(TestBuilderPanel)
#include "TestBuilderPanel.moc"
