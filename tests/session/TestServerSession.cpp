#include "client/ClientThreadScope.h"
#include "core/SqlQuoting.h"
#include "core/UuidText.h"
#include "support/SessionHarness.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <algorithm>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

const std::string readOnlyRefusal = "This connection is read-only. SELECT, SHOW, DESCRIBE, and EXPLAIN are allowed.";

// Polls the server, while the event loop keeps running, until every given connection is running a
// statement that starts with `prefix`.
bool waitUntilRunning(MySQLConnection &observer, const std::vector<std::uint64_t> &ids, const std::string &prefix)
{
    const auto running = [&](std::uint64_t id) {
        const QueryResult found = observer.query("SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID = "
            + std::to_string(id) + " AND INFO LIKE " + SQL::value(prefix + "%"));
        return found.rows.at(0).at(0) == "1";
    };
    return QTest::qWaitFor([&] { return std::all_of(ids.begin(), ids.end(), running); }, 20000);
}

} // namespace

class TestServerSession final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void connectsAndListsDatabases();
    void wrongPasswordLeavesItDisconnected();
    void keyringFailureIsNotRememberedAndAFailedJobKeepsTheConnection();
    void secondRequestWhileBusyChangesNothing();
    void sessionsRunInParallel();
    void cancelStopsALongStatement();
    void readOnlyProfileRefusesWholeScript();
    void declinedReviewSendsNothingAndAFailureNamesItsStatement();
    void historySkipsCredentialsAndClosedTabs();
    void navigationListsAndOpensTables();
    void browsingFiltersSortsAndPages();
    void inspectPanelsAndDefinition();
    void disconnectKeepsThePlaceAndReconnectReloads();
    void staleEditIsRefusedAndGridUnchanged();
    void queryTabEditChangesOnlyThatTab();
    void deleteSelectedRowAsksAndReloads();

private:
    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    ClientThreadScope m_clientThread;
};

void TestServerSession::initTestCase()
{
    qRegisterMetaType<tallowick::QueryLog>();
}

void TestServerSession::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100), notes TEXT)");
    m_scratch->run("INSERT INTO people VALUES (1,'Ada',NULL),(2,'Grace','pioneer'),(3,'Linus','kernel')");
    m_session = m_harness->session(m_harness->profile());
}

void TestServerSession::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

void TestServerSession::connectsAndListsDatabases()
{
    // A fresh session has one tab and refuses work until it is connected.
    m_session->run("SELECT 1");
    QCOMPARE(m_session->error(), OptionalText("Connect to this server first."));
    QCOMPARE(m_session->status(), std::string("Disconnected"));
    QVERIFY(!m_session->busy());

    m_session->clearError();
    m_session->connect();
    QVERIFY(m_session->busy());
    QCOMPARE(m_session->status(), "Connecting to " + m_session->profile().endpoint() + "…");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->status(), "Connected · MySQL " + m_session->version());
    const auto &names = m_session->databases();
    QVERIFY(std::find(names.begin(), names.end(), m_scratch->name()) != names.end());
}

void TestServerSession::wrongPasswordLeavesItDisconnected()
{
    ConnectionProfile profile = m_harness->profile("Wrong password");
    m_harness->secrets.items[uuidText(profile.id)] = "not the password";
    auto session = m_harness->session(profile);
    session->connect();
    QVERIFY(settle(*session));
    QVERIFY(!session->connected());
    QCOMPARE(session->status(), std::string("Connection failed"));
    QVERIFY(session->error().value_or("").starts_with("MySQL 1045: "));
}

void TestServerSession::keyringFailureIsNotRememberedAndAFailedJobKeepsTheConnection()
{
    m_harness->secrets.nextFailure = SecretOutcome::failed(4, "Access was denied.");
    m_session->connect();
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->connected());
    QCOMPARE(m_session->status(), std::string("Password access failed"));
    QCOMPARE(m_session->error(),
        OptionalText("Could not access the saved password: Access was denied. Reopen connection settings to try "
                     "again, or enter the database password yourself."));
    // The failure is not remembered: the next attempt asks the keyring again and connects.
    QVERIFY(connectAndSettle(*m_session));

    // A job that fails leaves the session connected.
    m_session->loadTables("no_such_database_for_tallowick");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->status(), std::string("Loading no_such_database_for_tallowick… failed"));
    QVERIFY(m_session->error().value_or("").starts_with("MySQL 1049: "));
    QVERIFY(m_session->connected());
}

void TestServerSession::secondRequestWhileBusyChangesNothing()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->run("SELECT SLEEP(1) AS first");
    QVERIFY(m_session->busy());
    const std::string status = m_session->status();
    QCOMPARE(status, std::string("Running 1 statement(s)…"));
    m_session->run("SELECT 2 AS second");
    m_session->chooseDatabase(m_scratch->name());
    m_session->connect();
    m_session->disconnect();
    QCOMPARE(m_session->status(), status);
    QVERIFY(!m_session->error());
    QVERIFY(m_session->connected());
    QVERIFY(settle(*m_session));
    const QueryTab &tab = m_session->tabs()[0];
    QCOMPARE(tab.results.size(), std::size_t(1));
    QCOMPARE(tab.results[0].fields.at(0).name, std::string("first"));
    QVERIFY(m_session->database().empty());
}

void TestServerSession::sessionsRunInParallel()
{
    auto other = m_harness->session(m_harness->profile("Second session"));
    QVERIFY(connectAndSettle(*m_session));
    QVERIFY(connectAndSettle(*other));
    auto observer = m_harness->server.connect();
    m_session->run("SELECT SLEEP(2)");
    other->run("SELECT SLEEP(2)");
    // Both statements are on the server at the same moment: the lanes really are independent.
    QVERIFY(waitUntilRunning(*observer, { m_session->connectionID(), other->connectionID() }, "SELECT SLEEP(2)"));
    QVERIFY(settle(*m_session));
    QVERIFY(settle(*other));
    QVERIFY(!m_session->error());
    QVERIFY(!other->error());
}

void TestServerSession::cancelStopsALongStatement()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->cancel(); // idle: nothing happens
    QVERIFY(!m_session->error());
    auto observer = m_harness->server.connect();
    m_session->run("SELECT SLEEP(60)");
    QVERIFY(waitUntilRunning(*observer, { m_session->connectionID() }, "SELECT SLEEP(60)"));
    m_session->cancel();
    QVERIFY(settle(*m_session, 15000));
    QCOMPARE(m_session->status(), std::string("Running 1 statement(s)… failed"));
    QVERIFY2(m_session->error().value_or("").starts_with("Statement 1 failed: MySQL 1317: "),
        m_session->error().value_or("").c_str());
    QVERIFY(m_session->connected());
    m_session->run("SELECT 'still usable' AS answer");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tabs()[0].result->rows.at(0).at(0), Cell("still usable"));
}

void TestServerSession::readOnlyProfileRefusesWholeScript()
{
    ConnectionProfile profile = m_harness->profile("Read only");
    profile.readOnly = true;
    auto session = m_harness->session(profile);
    QVERIFY(connectAndSettle(*session));
    const std::string table = SQL::qualified(m_scratch->name(), "people");
    session->run("SELECT * FROM " + table + "; DELETE FROM " + table);
    QCOMPARE(session->error(), OptionalText(readOnlyRefusal));
    QVERIFY(!session->busy());
    QVERIFY(m_harness->prompts.asked.empty());
    QCOMPARE(m_scratch->run("SELECT COUNT(*) FROM people").rows.at(0).at(0), Cell("3"));
    // Reads still run.
    session->run("SELECT COUNT(*) FROM " + table);
    QVERIFY(settle(*session));
    QCOMPARE(session->tabs()[0].result->rows.at(0).at(0), Cell("3"));
}

void TestServerSession::declinedReviewSendsNothingAndAFailureNamesItsStatement()
{
    QVERIFY(connectAndSettle(*m_session));
    QSignalSpy history(m_session.get(), &ServerSession::historyEntryCreated);
    m_session->run("SELECT 'earlier' AS kept");
    QVERIFY(settle(*m_session));
    QCOMPARE(history.count(), 1);

    const std::string table = SQL::qualified(m_scratch->name(), "people");
    const std::string script = "DELETE FROM " + table + " WHERE id = 1";
    m_harness->prompts.confirmations = { false };
    m_session->run(script);
    QVERIFY(!m_session->busy());
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(m_harness->prompts.asked[0].kind, std::string("sql"));
    QCOMPARE(m_harness->prompts.asked[0].text, script);
    QCOMPARE(m_scratch->run("SELECT COUNT(*) FROM people").rows.at(0).at(0), Cell("3"));

    // Accepted, the script runs until its failing statement, whose number the error names.
    m_harness->prompts.confirmations = { true };
    m_session->run("INSERT INTO " + table + " VALUES (10,'Added',NULL);\nINSERT INTO "
        + SQL::qualified(m_scratch->name(), "missing") + " VALUES (1)");
    QVERIFY(settle(*m_session));
    const std::string error = m_session->error().value_or("");
    QVERIFY2(error.starts_with("Statement 2 failed: MySQL 1146: "), error.c_str());
    QVERIFY(error.ends_with("\nEarlier statements may already have committed."));
    QCOMPARE(m_session->status(), std::string("Running 2 statement(s)… failed"));
    QCOMPARE(m_scratch->run("SELECT name FROM people WHERE id = 10").rows.at(0).at(0), Cell("Added"));
    const QueryTab &tab = m_session->tabs()[0];
    QCOMPARE(tab.results.size(), std::size_t(1));
    QCOMPARE(tab.result->rows.at(0).at(0), Cell("earlier"));
    QCOMPARE(history.count(), 1);
}

void TestServerSession::historySkipsCredentialsAndClosedTabs()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QSignalSpy history(m_session.get(), &ServerSession::historyEntryCreated);
    m_session->run("SELECT name FROM people ORDER BY id");
    QVERIFY(settle(*m_session));
    QCOMPARE(history.count(), 1);
    const auto entry = history.at(0).at(0).value<QueryLog>();
    QCOMPARE(entry.connection, std::string("Session test"));
    QCOMPARE(entry.database, m_scratch->name());
    QCOMPARE(entry.sql, std::string("SELECT name FROM people ORDER BY id"));
    QCOMPARE(entry.rows, std::int64_t(3));
    QVERIFY(!entry.error);

    m_session->run("SELECT 'my Password is here' AS note");
    QVERIFY(settle(*m_session));
    m_harness->prompts.confirmations = { true };
    m_session->run("SET @x = 'identified by nothing'");
    QVERIFY(settle(*m_session));
    QCOMPARE(history.count(), 1);

    // A tab closed while its statement runs receives nothing and leaves no history.
    const std::optional<QueryResult> shown = m_session->tabs()[0].result;
    m_session->newTab("SELECT SLEEP(1)");
    QCOMPARE(m_session->tabs()[1].title, std::string("Query 2"));
    const QUuid running = m_session->activeTab();
    m_session->run();
    m_session->closeTab(running);
    QCOMPARE(m_session->tabs().size(), std::size_t(1));
    QCOMPARE(m_session->activeTab(), m_session->tabs()[0].id);
    QVERIFY(settle(*m_session));
    QVERIFY(m_session->tabs()[0].result == shown);
    QCOMPARE(history.count(), 1);
    QCOMPARE(m_session->status(), std::string("Ready"));
    // The last tab can never be closed.
    m_session->closeTab(m_session->activeTab());
    QCOMPARE(m_session->tabs().size(), std::size_t(1));
}

void TestServerSession::navigationListsAndOpensTables()
{
    for (const char *name : { "a10", "A2", "a1" }) {
        m_scratch->run("CREATE TABLE " + SQL::identifier(name) + " (id INT PRIMARY KEY)");
    }
    m_scratch->run("CREATE VIEW b_view AS SELECT id FROM people");
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->database(), m_scratch->name());
    const std::vector<TableInfo> &tables = m_session->tables().at(m_scratch->name());
    std::vector<std::string> names;
    for (const TableInfo &table : tables) {
        names.push_back(table.name);
    }
    QCOMPARE(names, (std::vector<std::string> { "a1", "A2", "a10", "b_view", "people" }));
    QCOMPARE(tables[3].kind, std::string("VIEW"));
    QCOMPARE(tables[4].kind, std::string("BASE TABLE"));

    // The query builder loads a table's columns once; no table, no work.
    m_session->loadBuilderColumns("a10");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->builderColumns().at("a10").size(), std::size_t(1));
    m_session->loadBuilderColumns("a10");
    QVERIFY(!m_session->busy());

    m_session->setSortDescending(true);
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->selectedTable(), std::string("people"));
    QCOMPARE(m_session->mode(), WorkspaceMode::data);
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(3));
    QCOMPARE(m_session->columns().size(), std::size_t(3));
    QVERIFY(m_session->sortDescending()); // kept on purpose
    QCOMPARE(m_session->builderColumns().at("people").size(), std::size_t(3));
}

void TestServerSession::browsingFiltersSortsAndPages()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_session->setFilter("ra");
    m_session->browse();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(1));
    QCOMPARE(m_session->tableResult().rows[0][1], Cell("Grace"));
    QVERIFY(m_session->status().starts_with("1 rows · page 1 · "));

    m_session->setFilter("");
    m_session->setSortColumn("name");
    m_session->setSortDescending(true);
    m_session->setPageSize(2);
    m_session->setPage(1);
    m_session->browse();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(1));
    QCOMPARE(m_session->tableResult().rows[0][1], Cell("Ada"));
    QVERIFY(m_session->status().starts_with("1 rows · page 2 · "));
    QCOMPARE(m_session->selectedRow(), qint64(-1));
}

void TestServerSession::inspectPanelsAndDefinition()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->inspect(WorkspaceMode::structure); // no table yet: nothing, not even the mode
    QCOMPARE(m_session->mode(), WorkspaceMode::query);
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_session->inspect(WorkspaceMode::structure);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->mode(), WorkspaceMode::structure);
    QCOMPARE(m_session->metadata().rows.size(), std::size_t(3));
    QCOMPARE(m_session->currentResult().rows.size(), std::size_t(3));
    m_session->inspect(WorkspaceMode::indexes);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->metadata().rows.at(0).at(2), Cell("PRIMARY"));
    m_session->showCreate();
    QVERIFY(settle(*m_session));
    const QueryTab &definition = m_session->tabs().back();
    QCOMPARE(definition.title, std::string("people · DDL"));
    QVERIFY(definition.sql.starts_with("CREATE TABLE `people`") && definition.sql.ends_with(";"));
    QCOMPARE(m_session->activeTab(), definition.id);

    // One locked and one open account, compared by value: the server keeps the lock and the
    // sign-in plugin in a form the listing must read correctly.
    const std::string suffix = uuidText(QUuid::createUuid()).substr(0, 8);
    const std::string locked = "tw_locked_" + suffix;
    const std::string open = "tw_open_" + suffix;
    m_scratch->run("CREATE USER '" + locked + "'@'%' IDENTIFIED BY 'x' ACCOUNT LOCK");
    m_scratch->run("CREATE USER '" + open + "'@'%' IDENTIFIED BY 'x'");
    m_session->users();
    QVERIFY(settle(*m_session));
    m_scratch->run("DROP USER '" + locked + "'@'%', '" + open + "'@'%'");
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
    QCOMPARE(
        m_session->metadata().columnNames(), (std::vector<std::string> { "User", "Host", "plugin", "account_locked" }));
    QStringList accounts;
    for (const Row &row : m_session->metadata().rows) {
        if (row.at(0) == locked || row.at(0) == open) {
            QStringList cells;
            for (const Cell &cell : row) {
                cells << QString::fromStdString(cell.value_or("<null>"));
            }
            accounts << cells.join(QLatin1Char('|'));
        }
    }
    QCOMPARE(accounts,
        QStringList({ QString::fromStdString(locked + "|%|mysql_native_password|Y"),
            QString::fromStdString(open + "|%|mysql_native_password|N") }));
}

void TestServerSession::disconnectKeepsThePlaceAndReconnectReloads()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_session->newTab("SELECT 42");
    m_session->disconnect();
    QVERIFY(!m_session->connected());
    QCOMPARE(m_session->status(), std::string("Disconnected"));
    QVERIFY(m_session->databases().empty());
    QVERIFY(m_session->tables().empty());
    QCOMPARE(m_session->database(), m_scratch->name());
    QCOMPARE(m_session->tabs().size(), std::size_t(2));

    std::vector<std::string> statuses;
    const QMetaObject::Connection watch
        = QObject::connect(m_session.get(), &ServerSession::statusChanged, this, [this, &statuses] {
              statuses.push_back(m_session->status());
          });
    QVERIFY(connectAndSettle(*m_session));
    QObject::disconnect(watch);
    QVERIFY(std::find(statuses.begin(), statuses.end(), "Loading " + m_scratch->name() + "…") != statuses.end());
    QCOMPARE(m_session->tables().count(m_scratch->name()), std::size_t(1));
    QCOMPARE(m_session->selectedTable(), std::string("people"));
}

void TestServerSession::staleEditIsRefusedAndGridUnchanged()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    const QueryResult before = m_session->tableResult();
    m_scratch->run("UPDATE people SET name = 'Changed elsewhere' WHERE id = 1");
    m_session->editCell(0, 1, "Mine");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->error(),
        OptionalText("The row was changed or deleted by another session. Refresh before editing it again."));
    QCOMPARE(m_session->status(), std::string("Saving cell… failed"));
    QCOMPARE(m_session->tableResult().rows, before.rows);
    QCOMPARE(m_scratch->run("SELECT name FROM people WHERE id = 1").rows.at(0).at(0), Cell("Changed elsewhere"));

    // A fresh edit in data mode saves and reloads the page.
    m_session->browse();
    QVERIFY(settle(*m_session));
    m_session->editCell(0, 2, std::nullopt);
    m_session->editCell(1, 2, std::string()); // dropped: still busy with the first
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_scratch->run("SELECT notes FROM people WHERE id = 2").rows.at(0).at(0), Cell("pioneer"));
}

void TestServerSession::queryTabEditChangesOnlyThatTab()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->run("SELECT id, name FROM " + SQL::qualified(m_scratch->name(), "people") + " ORDER BY id");
    QVERIFY(settle(*m_session));
    m_session->newTab("SELECT 1");
    m_session->run();
    QVERIFY(settle(*m_session));
    m_session->setActiveTab(m_session->tabs()[0].id);
    m_session->editCell(1, 1, "Grace Hopper");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->status(), std::string("Cell saved · rerun the query to refresh derived values"));
    QCOMPARE(m_session->tabs()[0].result->rows[1][1], Cell("Grace Hopper"));
    QCOMPARE(m_session->tabs()[0].results.back().rows[1][1], Cell("Grace Hopper"));
    QCOMPARE(m_session->tabs()[1].result->rows[0][0], Cell("1"));
    QCOMPARE(m_scratch->run("SELECT name FROM people WHERE id = 2").rows.at(0).at(0), Cell("Grace Hopper"));
}

void TestServerSession::deleteSelectedRowAsksAndReloads()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->deleteSelectedRow(); // nothing selected, not in data mode: nothing asked
    QVERIFY(m_harness->prompts.asked.empty());
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_session->setSelectedRow(1);
    m_session->deleteSelectedRow(); // declined
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(m_harness->prompts.asked[0].text, std::string("Delete this row?"));
    QCOMPARE(m_harness->prompts.asked[0].detail,
        "This permanently deletes one row from Session test / " + m_scratch->name() + " / people.");
    QCOMPARE(m_scratch->run("SELECT COUNT(*) FROM people").rows.at(0).at(0), Cell("3"));
    m_harness->prompts.confirmations = { true };
    m_session->deleteSelectedRow();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_scratch->run("SELECT COUNT(*) FROM people WHERE id = 2").rows.at(0).at(0), Cell("0"));
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(2));
    QCOMPARE(m_session->selectedRow(), qint64(-1));
}

QTEST_GUILESS_MAIN(TestServerSession)
#include "TestServerSession.moc"
