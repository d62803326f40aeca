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

// The builder panel over a session: what each control writes into the session's query, the rows
// it shows for it, and what its preview and actions hand over. The query's own rules are tested in
// tests/builder.
class TestBuilderPanel final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread; // the scratch databases are set up from this thread
    SessionHarness m_harness;
    std::unique_ptr<ServerSession> m_session = m_harness.session(m_harness.profile());
    std::unique_ptr<BuilderPanel> m_panel;

    const BuilderSpec &query() const { return m_session->builder(); }
    // Lets rows the panel just added appear and rows it replaced go, as a turn of the event loop does.
    static void settleForm()
    {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    static void press(QAbstractButton *button)
    {
        button->click();
        settleForm();
    }
    // Chooses like a keyboard user; without a picker, in the panel's last one offering `text`.
    bool pick(QComboBox *box, const QString &text)
    {
        for (QComboBox *candidate : box ? QList<QComboBox *>() : m_panel->findChildren<QComboBox *>()) {
            box = candidate->findText(text) >= 0 ? candidate : box;
        }
        const bool chosen = choose(box, text);
        settleForm();
        return chosen;
    }
    // Picks a table and waits until its columns have loaded into the form.
    bool pickTable(QComboBox *box, const QString &table) { return pick(box, table) && settle(*m_session); }
    // The preview shows the built statement, which can be copied and opened (while the session
    // is idle), or the refusal, which cannot.
    bool previewFollowsTheBuild() const
    {
        const QString refusal = errorFrom([this] { query().build(); });
        const bool builds = refusal == QStringLiteral("(no error)");
        return m_panel->preview()->sql() == (builds ? QString::fromStdString(query().build()) : refusal)
            && m_panel->copyButton()->isEnabled() == builds
            && m_panel->openButton()->isEnabled() == (builds && !m_session->busy());
    }
    QStringList columnTitles() const
    {
        QStringList titles;
        for (const BuilderColumnRow *row : m_panel->columnRows()) {
            titles << row->toggle()->text();
        }
        return titles;
    }

private Q_SLOTS:
    void controlsWriteIntoTheSessionsQuery()
    {
        ScratchDatabase scratch(m_harness.server);
        scratch.run("CREATE TABLE orders (id INT PRIMARY KEY, customer_id INT, total DECIMAL(10,2))");
        // A dot in a table name: columns are kept by table and name, never by splitting references.
        scratch.run("CREATE TABLE `customer.list` (id INT PRIMARY KEY, name VARCHAR(50))");
        m_panel = std::make_unique<BuilderPanel>(*m_session);
        m_panel->resize(1200, 900);
        m_panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()) && connectAndSettle(*m_session));
        // No database: the hint stands alone, and there is nothing to add, copy or open.
        QVERIFY(m_panel->sourceHint()->isVisible() && !m_panel->tablePicker()->isVisible());
        QVERIFY(!m_panel->addJoinButton()->isEnabled() && !m_panel->addFilterButton()->isEnabled());
        QVERIFY(previewFollowsTheBuild() && !m_panel->copyButton()->isEnabled());
        m_session->chooseDatabase(scratch.name());
        QVERIFY(settle(*m_session));
        QVERIFY(!m_panel->sourceHint()->isVisible() && m_panel->tablePicker()->isVisible());
        // Picked while a statement of the query tab still runs: the columns are asked for once
        // the session is free.
        m_session->run("SELECT SLEEP(1)");
        QVERIFY(pick(m_panel->tablePicker(), QStringLiteral("orders")));
        QVERIFY(m_session->busy() && previewFollowsTheBuild()); // nothing to open while busy
        QVERIFY(QTest::qWaitFor([this] { return m_session->builderColumns().count("orders") == 1; }));
        QVERIFY(settle(*m_session));
        QCOMPARE(columnTitles(), (QStringList { "\u26BF orders.id", "orders.customer_id", "orders.total" }));
        QVERIFY(m_panel->addJoinButton()->isEnabled() && m_panel->addFilterButton()->isEnabled());
        QVERIFY(previewFollowsTheBuild());
        press(m_panel->copyButton());
        QCOMPARE(QGuiApplication::clipboard()->text(), m_panel->preview()->sql());
        m_session->setMode(WorkspaceMode::builder);
        press(m_panel->openButton());
        QCOMPARE(QString::fromStdString(m_session->tabs().back().sql), m_panel->preview()->sql());
        QCOMPARE(m_session->mode(), WorkspaceMode::query);

        press(m_panel->columnRows().value(1)->toggle());
        // An aggregate selects its column too.
        QVERIFY(pick(m_panel->columnRows().value(2)->aggregatePicker(), QStringLiteral("SUM")));
        QCOMPARE(query().columns,
            (std::vector<BuilderColumn> { { "orders", "customer_id", "" }, { "orders", "total", "SUM" } }));

        press(m_panel->addJoinButton());
        QVERIFY(pick(m_panel->joinRows().value(0)->kindPicker(), QStringLiteral("INNER JOIN")));
        QVERIFY(pickTable(m_panel->joinRows().value(0)->tablePicker(), QStringLiteral("customer.list")));
        QCOMPARE(columnTitles().mid(3), (QStringList { "\u26BF customer.list.id", "customer.list.name" }));
        QVERIFY(pick(m_panel->joinRows().value(0)->leftPicker(), QStringLiteral("orders.customer_id")));
        QVERIFY(pick(m_panel->joinRows().value(0)->rightPicker(), QStringLiteral("customer.list.id")));
        const BuilderJoin &join = query().joins.at(0);
        QCOMPARE(join.kind + " " + join.table + " " + join.left + " " + join.right,
            std::string("INNER JOIN customer.list orders.customer_id customer.list.id"));

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

        // Grouping, sorting and the limit: their toggle and pickers come last in the form.
        press(m_panel->findChildren<QCheckBox *>().last()); // grouping by customer.list.name
        QVERIFY(pick(nullptr, QStringLiteral("customer.list.name")));
        QVERIFY(pick(nullptr, QStringLiteral("Descending")));
        press(titled<QCheckBox>(*m_panel, QStringLiteral("Distinct rows")));
        QVERIFY(pick(nullptr, QStringLiteral("Match any")));
        m_panel->findChild<QSpinBox *>()->selectAll();
        QTest::keyClicks(m_panel->findChild<QSpinBox *>(), QStringLiteral("25"));
        QCOMPARE(query().groupBy, std::vector<std::string> { "customer.list.name" });
        QVERIFY(query().orderBy == "customer.list.name" && query().descending && query().distinct);
        QVERIFY(!query().matchAll && query().limit == 25 && previewFollowsTheBuild());
        press(m_panel->joinRows().value(0)->removeButton());
        QVERIFY(query().joins.empty() && m_panel->joinRows().isEmpty());

        // The same name in another database is another table.
        ScratchDatabase other(m_harness.server);
        other.run("CREATE TABLE orders (id INT PRIMARY KEY, placed DATE)");
        m_session->chooseDatabase(other.name());
        QVERIFY(settle(*m_session));
        QVERIFY(pickTable(m_panel->tablePicker(), QStringLiteral("orders")));
        QCOMPARE(columnTitles(), (QStringList { "\u26BF orders.id", "orders.placed" }));
    }
};

QTEST_MAIN(TestBuilderPanel)
#include "TestBuilderPanel.moc"
