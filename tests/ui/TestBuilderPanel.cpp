#include "client/ClientThreadScope.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/BuilderColumnRow.h"
#include "ui/BuilderFilterRow.h"
#include "ui/BuilderJoinRow.h"
#include "ui/BuilderPanel.h"
#include "ui/SQLEditor.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSpinBox>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// Lets rows the panel just added appear and rows it replaced go, as a turn of the event loop does.
void settleForm()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void press(QAbstractButton *button)
{
    button->click();
    settleForm();
}

// Chooses like a keyboard user; given the panel, in the last of its pickers offering `text`.
bool pick(QComboBox *box, const QString &text, const QWidget *panel = nullptr)
{
    for (QComboBox *candidate : panel ? panel->findChildren<QComboBox *>() : QList<QComboBox *>()) {
        box = candidate->findText(text) >= 0 ? candidate : box;
    }
    const bool chosen = choose(box, text);
    settleForm();
    return chosen;
}

} // namespace

// The builder panel over a session: the controls it offers, what each writes into the session's
// query, and what its preview and actions hand over. The query's rules and SQL are tested in
// tests/builder; the panel's own choices without a server where it can, on a disconnected session.
class TestBuilderPanel final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread;
    SessionHarness m_harness;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<BuilderPanel> m_panel;

    const BuilderSpec &query() const { return m_session->builder(); }
    QString preview() const { return m_panel->preview()->sql(); }
    // The preview shows the built statement, which can be copied and opened (while the session
    // is idle), or the refusal, which cannot.
    bool previewFollowsTheBuild() const
    {
        const QString refusal = errorFrom([this] { query().build(); });
        const bool builds = refusal == QStringLiteral("(no error)");
        return preview() == (builds ? QString::fromStdString(query().build()) : refusal)
            && m_panel->copyButton()->isEnabled() == builds
            && m_panel->openButton()->isEnabled() == (builds && !m_session->busy());
    }
    void open(bool connected)
    {
        m_session = m_harness.session(connected ? m_harness.profile() : m_harness.server.profile());
        m_panel = std::make_unique<BuilderPanel>(*m_session);
        m_panel->resize(1200, 900);
        m_panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
        QVERIFY(!connected || connectAndSettle(*m_session));
    }
    // Picks a table and waits until its columns have loaded into the form.
    bool pickTable(QComboBox *box, const QString &table)
    {
        const bool picked = pick(box, table) && settle(*m_session);
        settleForm();
        return picked;
    }
    QStringList columnTitles() const
    {
        QStringList titles;
        for (const BuilderColumnRow *row : m_panel->columnRows()) {
            titles << row->toggle()->text();
        }
        return titles;
    }
    bool useDatabase(const ScratchDatabase &database)
    {
        m_session->chooseDatabase(database.name());
        return settle(*m_session) && m_session->database() == database.name();
    }

private Q_SLOTS:
    void cleanup()
    {
        QVERIFY(!m_session || settle(*m_session));
        m_panel.reset();
        m_session.reset();
    }

    void rowsWriteIntoTheSessionsQuery()
    {
        open(false);
        // No database: the hint stands alone, and there is nothing to add, copy or open.
        QVERIFY(m_panel->sourceHint()->isVisible() && !m_panel->tablePicker()->isVisible());
        QCOMPARE(preview(), QStringLiteral("Choose a table to build a query."));
        QVERIFY(previewFollowsTheBuild());
        QVERIFY(!m_panel->addJoinButton()->isEnabled() && !m_panel->addFilterButton()->isEnabled());
        BuilderSpec orders;
        orders.database = "shop";
        orders.table = "orders";
        m_session->setBuilder(orders);
        QVERIFY(m_panel->addJoinButton()->isEnabled() && m_panel->addFilterButton()->isEnabled());
        QVERIFY(previewFollowsTheBuild());
        QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
        press(m_panel->copyButton());
        QCOMPARE(QGuiApplication::clipboard()->text(), preview());
        m_session->setMode(WorkspaceMode::builder);
        press(m_panel->openButton());
        QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);
        QCOMPARE(QString::fromStdString(m_session->tabs().back().sql), preview());
        QCOMPARE(m_session->mode(), WorkspaceMode::query);

        press(m_panel->addJoinButton());
        QVERIFY(previewFollowsTheBuild()); // an empty join does not build
        QVERIFY(pick(m_panel->joinRows().value(0)->kindPicker(), QStringLiteral("INNER JOIN")));
        QCOMPARE(query().joins.at(0).kind, std::string("INNER JOIN"));
        press(m_panel->joinRows().value(0)->removeButton());
        QVERIFY(query().joins.empty() && m_panel->joinRows().isEmpty());

        press(m_panel->addFilterButton());
        QVERIFY(pick(m_panel->filterRows().value(0)->operatorPicker(), QStringLiteral("LIKE")));
        // Every keystroke reaches the query, yet the field being typed in stays.
        const QPointer<QLineEdit> value = m_panel->filterRows().value(0)->valueField();
        QTest::keyClicks(value, QStringLiteral("A%"));
        settleForm();
        QVERIFY(value && m_panel->filterRows().value(0)->valueField() == value);
        press(m_panel->filterRows().value(0)->numberToggle());
        QCOMPARE(query().filters.at(0).operation + query().filters.at(0).value, std::string("LIKEA%"));
        QVERIFY(query().filters.at(0).numeric && previewFollowsTheBuild());
        press(m_panel->filterRows().value(0)->removeButton());
        QVERIFY(query().filters.empty() && m_panel->filterRows().isEmpty());

        press(titled<QCheckBox>(*m_panel, QStringLiteral("Distinct rows")));
        QVERIFY(pick(nullptr, QStringLiteral("Match any"), m_panel.get()));
        m_panel->findChild<QSpinBox *>()->selectAll();
        QTest::keyClicks(m_panel->findChild<QSpinBox *>(), QStringLiteral("25"));
        QVERIFY(query().distinct && !query().matchAll && query().limit == 25 && previewFollowsTheBuild());
    }

    void columnsLoadForTheSourceAndJoinedTables()
    {
        ScratchDatabase scratch(m_harness.server);
        scratch.run("CREATE TABLE orders (id INT PRIMARY KEY, customer_id INT, total DECIMAL(10,2))");
        // A dot in a table name: columns are kept by table and name, never by splitting references.
        scratch.run("CREATE TABLE `customer.list` (id INT PRIMARY KEY, name VARCHAR(50))");
        open(true);
        QVERIFY(useDatabase(scratch));
        QVERIFY(!m_panel->sourceHint()->isVisible() && m_panel->tablePicker()->isVisible());
        // A statement from the query tab is still running when the user picks the table; the
        // columns are asked for once the session is free.
        m_session->run("SELECT SLEEP(1)");
        QVERIFY(pick(m_panel->tablePicker(), QStringLiteral("orders")));
        QVERIFY(m_session->busy() && previewFollowsTheBuild()); // nothing to open while busy
        QVERIFY(QTest::qWaitFor([this] { return m_session->builderColumns().count("orders") == 1; }));
        QVERIFY(settle(*m_session));
        settleForm();
        QCOMPARE(columnTitles(), (QStringList { "\u26BF orders.id", "orders.customer_id", "orders.total" }));
        press(m_panel->columnRows().value(1)->toggle());
        // An aggregate selects its column too.
        QVERIFY(pick(m_panel->columnRows().value(2)->aggregatePicker(), QStringLiteral("SUM")));
        QCOMPARE(query().columns,
            (std::vector<BuilderColumn> { { "orders", "customer_id", "" }, { "orders", "total", "SUM" } }));

        press(m_panel->addJoinButton());
        QVERIFY(pickTable(m_panel->joinRows().value(0)->tablePicker(), QStringLiteral("customer.list")));
        QCOMPARE(columnTitles().mid(3), (QStringList { "\u26BF customer.list.id", "customer.list.name" }));
        QVERIFY(pick(m_panel->joinRows().value(0)->leftPicker(), QStringLiteral("orders.customer_id")));
        QVERIFY(pick(m_panel->joinRows().value(0)->rightPicker(), QStringLiteral("customer.list.id")));
        const BuilderJoin &join = query().joins.at(0);
        QCOMPARE(join.table + " " + join.left + " " + join.right,
            std::string("customer.list orders.customer_id customer.list.id"));

        press(m_panel->addFilterButton());
        QVERIFY(pick(m_panel->filterRows().value(0)->columnPicker(), QStringLiteral("customer.list.name")));
        QCOMPARE(query().filters.at(0).column, std::string("customer.list.name"));
        QVERIFY(pick(nullptr, QStringLiteral("Descending"), m_panel.get()));
        QVERIFY(pick(nullptr, QStringLiteral("customer.list.name"), m_panel.get())); // the sort picker, listed last
        QCOMPARE(query().orderBy, std::string("customer.list.name"));
        QVERIFY(query().descending);
        for (QCheckBox *toggle : m_panel->findChildren<QCheckBox *>()) {
            if (toggle->text() == QStringLiteral("orders.customer_id")
                && !qobject_cast<BuilderColumnRow *>(toggle->parent())) {
                press(toggle); // the group-by toggle
                break;
            }
        }
        QCOMPARE(query().groupBy, std::vector<std::string> { "orders.customer_id" });
        QVERIFY(previewFollowsTheBuild());

        // The same name in another database is another table.
        ScratchDatabase other(m_harness.server);
        other.run("CREATE TABLE orders (id INT PRIMARY KEY, placed DATE)");
        QVERIFY(useDatabase(other));
        QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("orders")));
        QCOMPARE(columnTitles(), (QStringList { "\u26BF orders.id", "orders.placed" }));
    }
};

QTEST_MAIN(TestBuilderPanel)
#include "TestBuilderPanel.moc"
