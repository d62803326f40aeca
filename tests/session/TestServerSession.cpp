#include "client/ClientThreadScope.h"
#include "core/FileText.h"
#include "core/SqlQuoting.h"
#include "core/UuidText.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"

#include <QDir>
#include <QElapsedTimer>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace tallowick;
using namespace tallowick::test;

// The session's own decisions: one job at a time, requests dropped while busy, its state after
// failures, what it asks before sending, what it reloads after a change, and the files it reads
// and writes.
class TestServerSession final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void connectsThenDropsRequestsWhileBusy();
    void connectsThroughAnSshTunnelOnceItsHostIsTrusted();
    void completionCatalogFollowsTheSchema();
    void parallelSessionsAndOneDestroyedMidJob();
    void readOnlyProfileRefusesWrites();
    void runsAskFirstAndKeepHistory();
    void tablesOpenBrowseAndSurviveAReconnect();
    void editsAndDeletesReloadOrPatchTheTab();
    void filesSaveImportAndExport();

private:
    // Polls the server's process list, while the event loop keeps running, until `count` processes
    // match `where`.
    static bool waitForProcesses(MySQLConnection &observer, const std::string &where, const char *count)
    {
        const std::string sql = "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE " + where;
        return QTest::qWaitFor([&] { return observer.query(sql).rows.at(0).at(0) == count; }, 20000);
    }
    Cell peopleCount(const char *where = "TRUE")
    {
        return m_scratch->run(std::string("SELECT COUNT(*) FROM people WHERE ") + where).rows.at(0).at(0);
    }
    std::string people() const { return SQL::qualified(m_scratch->name(), "people"); }
    std::string path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)).toStdString(); }
    std::string contents(const char *name) const { return readWholeFile(path(name)).toStdString(); }

    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    QTemporaryDir m_folder;
    ClientThreadScope m_clientThread;
};

void TestServerSession::init()
{
    QVERIFY(m_folder.isValid());
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100), notes TEXT)");
    m_scratch->run("INSERT INTO people VALUES (1,'Ada',NULL),(2,'Grace','pioneer'),(3,'Linus','kernel')");
    m_session = m_harness->session(m_harness->profile());
}

// The tunnel opens first; an unknown host key is put to the person on screen, and only trusted
// keys are added to ~/.ssh/known_hosts (here a scratch home). Cancel stops a tunnel that is
// still opening.
void TestServerSession::connectsThroughAnSshTunnelOnceItsHostIsTrusted()
{
    const TestSshServer ssh = TestSshServer::fromEnvironment();
    const QByteArray home = qgetenv("HOME");
    const auto restore = qScopeGuard([&home] { qputenv("HOME", home); });
    qputenv("HOME", m_folder.path().toUtf8());
    qputenv("SSH_AUTH_SOCK", QByteArray::fromStdString(ssh.agentSocket));
    const std::string knownHosts = m_folder.filePath(QStringLiteral(".ssh/known_hosts")).toStdString();

    const auto session = m_harness->session(m_harness->profile());
    session->setTunnel(ssh.settings(SshAuth::agent));
    QStringList statuses;
    QObject::connect(session.get(), &ServerSession::statusChanged, session.get(), [&] {
        statuses << QString::fromStdString(session->status());
    });
    m_harness->prompts.confirmations = { false };
    QVERIFY(!connectAndSettle(*session));
    QVERIFY2(session->error()->starts_with("SSH: 127.0.0.1 is not a known host, and its key SHA256:"),
        session->error()->c_str());
    const ScriptedPrompts::Question question = m_harness->prompts.asked.back();
    QCOMPARE(question.text, std::string("Trust the SSH host 127.0.0.1?"));
    QVERIFY2(question.detail.find(" before. Its host key fingerprint is SHA256:") != std::string::npos
            && question.detail.find(knownHosts) != std::string::npos,
        question.detail.c_str());
    QVERIFY(!QFile::exists(QString::fromStdString(knownHosts)));

    m_harness->prompts.confirmations = { true };
    QVERIFY(connectAndSettle(*session));
    QVERIFY2(statuses.contains(QStringLiteral("Opening SSH tunnel…")), qPrintable(statuses.join(u'|')));
    QVERIFY(readWholeFile(knownHosts).startsWith("[127.0.0.1]:" + QByteArray::number(qint64(ssh.port)) + " "));
    session->run("SELECT 1"); // the workspace works through the tunnel
    QVERIFY(settle(*session));
    QVERIFY2(!session->error(), session->error()->c_str());

    // A host that accepts the TCP connection and never speaks keeps the tunnel opening.
    const SilentPort silent;
    SshTunnelSettings mute = ssh.settings(SshAuth::agent);
    mute.port = silent.port();
    const auto waiting = m_harness->session(m_harness->profile());
    waiting->setTunnel(mute);
    waiting->connect();
    QVERIFY(QTest::qWaitFor([&] { return waiting->status() == "Opening SSH tunnel…"; }, 10000));
    QTest::qWait(200);
    waiting->cancel();
    QVERIFY(settle(*waiting, 10000));
    QCOMPARE(waiting->error(), std::optional<std::string>("SSH: cancelled while opening the tunnel to 127.0.0.1."));
}

// The catalog is read beside the session's jobs (the session stays idle), per database on
// request, and again on request after a statement that changes the schema.
void TestServerSession::completionCatalogFollowsTheSchema()
{
    QVERIFY(connectAndSettle(*m_session));
    const std::string database = m_scratch->name();
    const auto columnsOf = [this](const std::string &db, const std::string &table) {
        const SchemaCatalog catalog = *m_session->catalog();
        const auto tables = catalog.columns.find(db);
        if (tables == catalog.columns.end()) {
            return std::vector<std::string> {};
        }
        const auto found = tables->second.find(table);
        return found == tables->second.end() ? std::vector<std::string> {} : found->second;
    };
    m_session->chooseDatabase(database);
    QVERIFY(QTest::qWaitFor(
        [&] {
            return columnsOf(database, "people") == std::vector<std::string> { "id", "name", "notes" };
        },
        20000));
    QVERIFY(!m_session->busy());

    // A schema change drops what was read; the next request (completion asks when it needs the
    // names) reads it again, and the sidebar's list with it.
    m_harness->prompts.confirmations = { true };
    m_session->run("CREATE TABLE pets (id INT PRIMARY KEY, owner INT)");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->catalog()->columns.contains(database));
    m_session->requestCatalog(database);
    QVERIFY(QTest::qWaitFor(
        [&] {
            return columnsOf(database, "pets") == std::vector<std::string> { "id", "owner" };
        },
        20000));
    const std::vector<TableInfo> &listed = m_session->tables().at(database);
    QVERIFY(std::any_of(listed.begin(), listed.end(), [](const TableInfo &table) { return table.name == "pets"; }));

    QVERIFY(columnsOf("mysql", "user").empty());
    m_session->requestCatalog("mysql");
    QVERIFY(QTest::qWaitFor([&] { return !columnsOf("mysql", "user").empty(); }, 20000));
    m_session->requestCatalog("no_such_database"); // not a database of the server: nothing is read
    QVERIFY(!m_session->catalog()->columns.contains("no_such_database"));
}

// A session may go while its job runs (see parallelSessionsAndOneDestroyedMidJob).
void TestServerSession::cleanup()
{
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

// Work before connecting is refused; a busy session drops requests until its job ends, here
// cancelled, which leaves the session connected and usable.
void TestServerSession::connectsThenDropsRequestsWhileBusy()
{
    m_session->run("SELECT 1");
    QCOMPARE(m_session->error(), OptionalText("Connect to this server first."));

    m_harness->secrets.nextFailure = SecretOutcome::failed(4, "Access was denied.");
    m_session->connect();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->status(), std::string("Password access failed"));
    QVERIFY(m_session->error().value_or("").starts_with("Could not access the saved password: "));
    QVERIFY(connectAndSettle(*m_session));
    QCOMPARE(m_session->status(), "Connected · MySQL " + m_session->version());
    QCOMPARE(std::ranges::count(m_session->databases(), m_scratch->name()), 1);

    auto wrong = m_harness->session(m_harness->profile("Wrong password"));
    m_harness->secrets.items[uuidText(wrong->profile().id)] = "not the password";
    QVERIFY(!connectAndSettle(*wrong));
    QCOMPARE(wrong->status(), std::string("Connection failed"));
    QVERIFY(wrong->error().value_or("").starts_with("MySQL 1045: "));

    m_session->run("SELECT SLEEP(60)");
    m_session->run("SELECT 2 AS second");
    m_session->chooseDatabase(m_scratch->name());
    m_session->connect();
    m_session->disconnect();
    QCOMPARE(m_session->status(), std::string("Running 1 statement(s)…"));
    QVERIFY(!m_session->error() && m_session->connected());

    auto observer = m_harness->server.connect();
    QVERIFY(waitForProcesses(
        *observer, "ID = " + std::to_string(m_session->connectionID()) + " AND INFO = 'SELECT SLEEP(60)'", "1"));
    m_session->cancel();
    QVERIFY(settle(*m_session, 15000));
    QCOMPARE(m_session->status(), std::string("Running 1 statement(s)… failed"));
    QVERIFY2(m_session->error().value_or("").starts_with("Statement 1 failed: MySQL 1317: "),
        m_session->error().value_or("").c_str());
    QVERIFY(m_session->tabs()[0].results.empty() && m_session->database().empty());
    // A failed job leaves the session connected and usable.
    m_session->run("SELECT 'still usable' AS answer");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tabs()[0].result->rows.at(0).at(0), Cell("still usable"));
}

// Each session has its own lane. Closing a connection's window while its statement runs returns
// at once: the lane finishes the statement alone, then closes the connection, and the completion
// reaches no session (under the sanitizers, one that reached the freed session fails at once).
void TestServerSession::parallelSessionsAndOneDestroyedMidJob()
{
    auto other = m_harness->session(m_harness->profile("Second session"));
    QVERIFY(connectAndSettle(*m_session) && connectAndSettle(*other));
    const std::string id = std::to_string(m_session->connectionID());
    auto observer = m_harness->server.connect();
    m_session->run("SELECT SLEEP(2)");
    other->run("SELECT SLEEP(2)");
    QVERIFY(waitForProcesses(*observer,
        "ID IN (" + id + "," + std::to_string(other->connectionID()) + ") AND INFO = 'SELECT SLEEP(2)'",
        "2"));
    QElapsedTimer timer;
    timer.start();
    m_session.reset();
    QVERIFY2(timer.elapsed() < 1000, "destroying a session must not wait for its statement");

    // Likely in the freed memory: a stray completion would show up here.
    m_session = m_harness->session(m_harness->profile("Replacement"));
    QSignalSpy changes(m_session.get(), &ServerSession::changed);
    QVERIFY(settle(*other) && !other->error());
    QVERIFY(waitForProcesses(*observer, "ID = " + id, "0"));
    QTest::qWait(100);
    QCOMPARE(changes.count(), 0);
}

// The program's own refusal, before any prompt and before anything is sent, of a lone write and of
// a write after a read; the server's refusal for the same profile is the connection's business.
void TestServerSession::readOnlyProfileRefusesWrites()
{
    ConnectionProfile profile = m_harness->profile("Read only");
    profile.readOnly = true;
    auto session = m_harness->session(profile);
    QVERIFY(connectAndSettle(*session));
    for (const std::string &script :
        { "DELETE FROM " + people() + " WHERE id = 1", "SELECT 1; DELETE FROM " + people() }) {
        session->run(script);
        QCOMPARE(session->error(),
            OptionalText("This connection is read-only. SELECT, SHOW, DESCRIBE, and EXPLAIN are allowed."));
        session->clearError();
    }
    session->runSqlFile();
    QCOMPARE(session->error(),
        OptionalText("This connection is read-only. SELECT, SHOW, DESCRIBE, and EXPLAIN are allowed."));
    QVERIFY(m_harness->prompts.asked.empty());
    QCOMPARE(peopleCount("id = 1"), Cell("1"));
    // Reads still run.
    session->run("SELECT COUNT(*) FROM " + people());
    QVERIFY(settle(*session));
    QCOMPARE(session->tabs()[0].result->rows.at(0).at(0), Cell("3"));
}

void TestServerSession::runsAskFirstAndKeepHistory()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QSignalSpy history(m_session.get(), &ServerSession::historyEntryCreated);
    m_session->run("SELECT name FROM people ORDER BY id");
    QVERIFY(settle(*m_session));
    QCOMPARE(history.count(), 1);
    const auto entry = history.at(0).at(0).value<QueryLog>();
    QCOMPARE(entry.connection + " / " + entry.database + " / " + entry.sql,
        "Session test / " + m_scratch->name() + " / SELECT name FROM people ORDER BY id");
    QCOMPARE(entry.rows, std::int64_t(3));

    // A statement that may change data is shown for review first; declined, it is never sent.
    m_session->run("DELETE FROM people WHERE id = 1");
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(m_harness->prompts.asked[0].kind, std::string("sql"));
    QCOMPARE(m_harness->prompts.asked[0].text, std::string("DELETE FROM people WHERE id = 1"));
    QCOMPARE(peopleCount(), Cell("3"));

    // Statements that may carry credentials never reach the history.
    m_session->run("SELECT 'my Password is here' AS note");
    QVERIFY(settle(*m_session));
    m_harness->prompts.confirmations = { true };
    m_session->run("SET @x = 'identified by nothing'");
    QVERIFY(settle(*m_session));
    QCOMPARE(history.count(), 1);

    // Accepted, a script runs until its failing statement, whose number the error names; the tab
    // keeps its earlier result and the failure leaves no history.
    const std::optional<QueryResult> shown = m_session->tabs()[0].result;
    m_harness->prompts.confirmations = { true };
    m_session->run("INSERT INTO people VALUES (10,'Added',NULL);\nINSERT INTO missing VALUES (1)");
    QVERIFY(settle(*m_session));
    const std::string error = m_session->error().value_or("");
    QVERIFY2(error.starts_with("Statement 2 failed: MySQL 1146: "), error.c_str());
    QVERIFY(error.ends_with("\nEarlier statements may already have committed."));
    QCOMPARE(peopleCount("id = 10"), Cell("1"));
    QVERIFY(m_session->tabs()[0].result == shown);

    // A tab closed while its statement runs receives nothing and leaves no history.
    m_session->newTab("SELECT SLEEP(1)");
    m_session->run();
    m_session->closeTab(m_session->activeTab());
    QCOMPARE(m_session->tabs().size(), std::size_t(1));
    QCOMPARE(m_session->activeTab(), m_session->tabs()[0].id);
    QVERIFY(settle(*m_session));
    QVERIFY(m_session->tabs()[0].result == shown);
    QCOMPARE(history.count(), 1);
    // The last tab can never be closed.
    m_session->closeTab(m_session->activeTab());
    QCOMPARE(m_session->tabs().size(), std::size_t(1));
}

void TestServerSession::tablesOpenBrowseAndSurviveAReconnect()
{
    const std::string suffix = uuidText(QUuid::createUuid()).substr(0, 8);
    m_scratch->run("CREATE USER 'tw_locked_" + suffix + "'@'%' IDENTIFIED BY 'x' ACCOUNT LOCK");
    m_scratch->run("CREATE USER 'tw_open_" + suffix + "'@'%' IDENTIFIED BY 'x'");
    QVERIFY(connectAndSettle(*m_session));
    m_session->inspect(WorkspaceMode::structure); // no table yet: nothing, not even the mode
    QCOMPARE(m_session->mode(), WorkspaceMode::query);
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tables().at(m_scratch->name()).size(), std::size_t(1));
    // The query builder loads a table's columns once.
    m_session->loadBuilderColumns("people");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->builderColumns().at("people").size(), std::size_t(3));
    m_session->loadBuilderColumns("people");
    QVERIFY(!m_session->busy());

    m_session->setSortDescending(true);
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->mode(), WorkspaceMode::data);
    QVERIFY(m_session->sortDescending()); // kept on purpose
    // All but Ada match; by notes descending (pioneer, medley, kernel) Linus alone is on page 2,
    // which no order by key and no other direction puts there.
    m_scratch->run("INSERT INTO people VALUES (4,'Mel','medley')");
    m_session->setFilter("e");
    m_session->setSortColumn("notes");
    m_session->setPageSize(2);
    m_session->setPage(1);
    m_session->browse();
    QVERIFY(settle(*m_session));
    QCOMPARE(grid(m_session->tableResult().rows), (Grid { { text("3"), text("Linus"), text("kernel") } }));
    QVERIFY(m_session->status().starts_with("1 rows · page 2 · "));

    m_session->inspect(WorkspaceMode::indexes);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->currentResult().rows.at(0).at(2), Cell("PRIMARY"));
    m_session->showCreate();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tabs().back().title, std::string("people · DDL"));
    QVERIFY(m_session->tabs().back().sql.starts_with("CREATE TABLE `people`"));
    QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);
    // One locked and one open account: the server keeps the lock and the sign-in plugin in a form
    // the listing must read correctly (MariaDB in mysql.global_priv).
    m_session->users();
    QVERIFY(settle(*m_session));
    m_scratch->run("DROP USER 'tw_locked_" + suffix + "'@'%', 'tw_open_" + suffix + "'@'%'");
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
    QCOMPARE(
        m_session->metadata().columnNames(), (std::vector<std::string> { "User", "Host", "plugin", "account_locked" }));
    const QString s = QString::fromStdString(suffix);
    QCOMPARE(rowTexts(m_session->metadata().rows).filter("_" + s + "|"),
        QStringList(
            { "tw_locked_" + s + "|%|mysql_native_password|Y", "tw_open_" + s + "|%|mysql_native_password|N" }));

    // Disconnecting keeps the place; reconnecting reloads the table list.
    m_session->disconnect();
    QCOMPARE(m_session->status(), std::string("Disconnected"));
    QVERIFY(m_session->databases().empty() && m_session->tables().empty());
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QVERIFY(connectAndSettle(*m_session) && settle(*m_session));
    QCOMPARE(m_session->tables().count(m_scratch->name()), std::size_t(1));
    QCOMPARE(m_session->database() + "." + m_session->selectedTable(), m_scratch->name() + ".people");
}

// In data mode an edit or a delete reloads the page; in a query tab an edit patches that tab's
// result alone.
void TestServerSession::editsAndDeletesReloadOrPatchTheTab()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->deleteSelectedRow(); // nothing selected, not in data mode: nothing asked
    QVERIFY(m_harness->prompts.asked.empty());
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_scratch->run("UPDATE people SET notes = 'elsewhere' WHERE id = 3");
    m_session->editCell(0, 1, "Mine");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->tableResult().rows[0][1], Cell("Mine"));
    QCOMPARE(m_session->tableResult().rows[2][2], Cell("elsewhere"));

    m_session->setSelectedRow(1);
    m_session->deleteSelectedRow(); // declined
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(m_harness->prompts.asked[0].detail,
        "This permanently deletes one row from Session test / " + m_scratch->name() + " / people.");
    QCOMPARE(peopleCount(), Cell("3"));
    m_harness->prompts.confirmations = { true };
    m_session->deleteSelectedRow();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(2));
    QCOMPARE(m_session->selectedRow(), qint64(-1));

    m_session->run("SELECT id, name FROM " + people() + " ORDER BY id");
    QVERIFY(settle(*m_session));
    m_session->newTab("SELECT 1");
    m_session->run();
    QVERIFY(settle(*m_session));
    m_session->setActiveTab(m_session->tabs()[0].id);
    m_session->editCell(1, 1, "Grace Hopper");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->tabs()[0].result->rows[1][1], Cell("Grace Hopper"));
    QCOMPARE(m_session->tabs()[0].results.back().rows[1][1], Cell("Grace Hopper"));
    QCOMPARE(m_session->tabs()[1].result->rows[0][0], Cell("1"));
}

// A saved query renames its tab; an imported script opens in a new one, up to 20,000,000 bytes
// of UTF-8. The schema-and-data export replaces its file only when complete: a MERGE table over a
// table that is gone fails it after the people table went into the temporary file.
void TestServerSession::filesSaveImportAndExport()
{
    m_session->backup();
    QCOMPARE(m_session->error(), OptionalText("Select a database first."));
    QVERIFY(m_harness->prompts.asked.empty());
    m_session->clearError();
    m_session->setTabSQL(m_session->activeTab(), "SELECT 'saved';");
    QVERIFY(m_session->tabs()[0].dirty);
    m_harness->prompts.files = { path("report.sql") };
    m_session->saveQuery();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Query 1.sql"));
    QCOMPARE(contents("report.sql"), std::string("SELECT 'saved';"));
    QCOMPARE(m_session->tabs()[0].title, std::string("report"));
    QVERIFY(!m_session->tabs()[0].dirty);

    // A folder that does not exist: the error is shown and the tab stays as it was.
    m_session->setTabSQL(m_session->activeTab(), "SELECT 'changed';");
    m_harness->prompts.files = { path("missing/folder/x.sql") };
    m_session->saveQuery();
    QVERIFY(m_session->error());
    QCOMPARE(m_session->tabs()[0].title, std::string("report"));
    QVERIFY(m_session->tabs()[0].dirty);
    m_session->clearError();

    std::string script = "SELECT 1;\n";
    script.resize(20'000'000, '-');
    writeFileAtomically(path("big.sql"), QByteArray::fromStdString(script));
    writeFileAtomically(path("too-big.sql"), QByteArray::fromStdString(script + "-"));
    writeFileAtomically(path("latin1.sql"), "SELECT '\xe9t\xe9';");
    m_harness->prompts.files = { path("latin1.sql") };
    m_session->importSQL();
    QCOMPARE(m_session->error(), OptionalText("The file latin1.sql is not UTF-8 text."));
    m_session->clearError();
    QCOMPARE(m_session->tabs().size(), std::size_t(1));

    m_harness->prompts.files = { path("big.sql") };
    m_session->importSQL();
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QCOMPARE(m_session->tabs().back().title, std::string("big.sql"));
    QCOMPARE(m_session->tabs().back().sql, script);
    QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);

    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("people", m_scratch->name());
    QVERIFY(settle(*m_session));
    // Too large for the editor, a script is offered to run directly, naming file, size and server.
    m_harness->prompts.files = { path("too-big.sql") };
    m_session->importSQL();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Run too-big.sql?"));
    QCOMPARE(QString::fromStdString(m_harness->prompts.asked.back().detail),
        QString::fromStdString(
            "too-big.sql is larger than 20 MB, too large to open in the editor. too-big.sql (20.0 MB) runs on "
            + m_session->profile().name + " (" + m_session->profile().endpoint() + ", database " + m_scratch->name()
            + ") without review, statement by statement, and stops at the first failure. What ran before it stays "
              "applied."));
    QVERIFY(!m_session->busy() && !m_session->error() && m_session->tabs().size() == 2);
    // A file runs on the session's connection and leaves nothing of its own there: not its SQL
    // mode, its variables or its database. It stops at the first failure, naming the line.
    writeFileAtomically(path("load.sql"),
        "SET SESSION sql_mode = 'ANSI_QUOTES', @seen = 'file';\nCREATE DATABASE IF NOT EXISTS "
            + QByteArray::fromStdString(SQL::identifier(m_scratch->name() + "_file")) + ";\nUSE "
            + QByteArray::fromStdString(SQL::identifier(m_scratch->name() + "_file"))
            + ";\nCREATE TABLE t (id INT);\nINSERT INTO t VALUES (1);\nINSERT INTO t VALUES (2);\n");
    writeFileAtomically(
        path("broken.sql"), "INSERT INTO people (id, name) VALUES (9, 'Kay');\nINSERT INTO nowhere VALUES (1);\n");
    const auto scratchFile = qScopeGuard(
        [this] { m_scratch->run("DROP DATABASE IF EXISTS " + SQL::identifier(m_scratch->name() + "_file")); });
    const std::string modeBefore = m_scratch->connection().query("SELECT @@GLOBAL.sql_mode").rows.at(0).at(0).value();
    m_harness->prompts.files = { path("load.sql"), path("broken.sql") };
    m_harness->prompts.confirmations = { true, true };
    m_session->runSqlFile();
    QVERIFY(settle(*m_session));
    QVERIFY(m_session->status().starts_with("load.sql: 6 statements run · "));
    QVERIFY(std::ranges::count(m_session->databases(), m_scratch->name() + "_file") == 1);
    m_session->run("SELECT @@SESSION.sql_mode, @seen, DATABASE()");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->tabs().back().result->rows.at(0), (Row { modeBefore, std::nullopt, m_scratch->name() }));
    m_session->runSqlFile();
    QVERIFY(settle(*m_session));
    QVERIFY2(m_session->error().value_or("").starts_with("Stopped at line 2: MySQL 1146: "),
        m_session->error().value_or("").c_str());
    QCOMPARE(peopleCount("id = 9"), Cell("1"));
    m_scratch->run("DELETE FROM people WHERE id = 9");
    m_session->clearError();
    m_session->setMode(WorkspaceMode::data);
    // The CSV export writes the displayed rows: here the table's page.
    m_harness->prompts.files = { path("out.csv"), path("all.csv"), path("shop.sql"), path("shop.sql") };
    m_session->exportCSV();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("query-results.csv"));
    QCOMPARE(contents("out.csv"),
        std::string("\"id\",\"name\",\"notes\"\r\n\"1\",\"Ada\",\\N\r\n\"2\",\"Grace\",\"pioneer\"\r\n"
                    "\"3\",\"Linus\",\"kernel\"\r\n"));
    // Every row of the table, streamed from the server; here the page holds them all.
    m_session->exportAllRowsCSV();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("people.csv"));
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->status(), "Exported 3 rows to " + path("all.csv"));
    QCOMPARE(contents("all.csv"), contents("out.csv"));

    writeFileAtomically(path("shop.sql"), "old export");
    m_session->backup();
    QCOMPARE(m_harness->prompts.asked.back().text, m_scratch->name() + "-export.sql");
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->status(), "Schema and data exported to " + path("shop.sql"));
    const std::string complete = contents("shop.sql");
    QVERIFY(complete.find("INSERT INTO `people`") != std::string::npos && complete.ends_with("-- Export complete.\n"));

    m_scratch->run("CREATE TABLE gone (id INT) ENGINE=MyISAM");
    m_scratch->run("CREATE TABLE queue (id INT) ENGINE=MRG_MyISAM UNION=(gone)");
    m_scratch->run("DROP TABLE gone");
    m_session->backup();
    QVERIFY(settle(*m_session));
    QVERIFY2(m_session->error().value_or("").starts_with("MySQL 1168: "), m_session->error().value_or("").c_str());
    QCOMPARE(contents("shop.sql"), complete);
    // The backup's temporary files never outlive it.
    QVERIFY(QDir(m_folder.path()).entryList({ ".*.partial" }, QDir::Files | QDir::Hidden).isEmpty());
    // Exporting every row runs the result's statement again: never one that writes.
    m_session->clearError();
    m_harness->prompts.confirmations = { true };
    m_session->run("UPDATE people SET notes = notes WHERE id = 0");
    QVERIFY(settle(*m_session));
    const std::size_t asked = m_harness->prompts.asked.size();
    m_session->exportAllRowsCSV();
    QCOMPARE(m_session->error(),
        OptionalText("Only the result of SELECT, SHOW, DESCRIBE, or EXPLAIN can be exported in full."));
    QCOMPARE(m_harness->prompts.asked.size(), asked);
}

QTEST_GUILESS_MAIN(TestServerSession)
#include "TestServerSession.moc"
