#include "client/ClientThreadScope.h"
#include "core/FileText.h"
#include "core/SqlQuoting.h"
#include "core/UuidText.h"
#include "support/SessionHarness.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

// The session operations that read and write files: script import, saving a query, CSV export
// and the schema-and-data export, which replaces its file only when complete.
class TestSessionFiles final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void scriptsSaveFromAndImportIntoTabs();
    void exportsReplaceTheFileOnlyWhenComplete();

private:
    std::string path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)).toStdString(); }
    void write(const char *name, const std::string &text)
    {
        writeFileAtomically(path(name), QByteArray::fromStdString(text));
    }
    std::string contents(const char *name) const
    {
        QFile file(QString::fromStdString(path(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string("(unreadable)");
    }

    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    QTemporaryDir m_folder;
    ClientThreadScope m_clientThread;
};

void TestSessionFiles::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE notes (id INT PRIMARY KEY, body TEXT)");
    m_scratch->run("INSERT INTO notes VALUES (1,'one, \"two\"'),(2,NULL)");
    m_session = m_harness->session(m_harness->profile());
    QVERIFY(m_folder.isValid());
}

void TestSessionFiles::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

// A saved query renames its tab; an imported script opens in a new one, up to 20,000,000 bytes
// of UTF-8.
void TestSessionFiles::scriptsSaveFromAndImportIntoTabs()
{
    m_session->setTabSQL(m_session->activeTab(), "SELECT 'saved';");
    QVERIFY(m_session->tabs()[0].dirty);
    m_harness->prompts.files = { path("report.sql") };
    m_session->saveQuery();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Query 1.sql"));
    QCOMPARE(contents("report.sql"), std::string("SELECT 'saved';"));
    QCOMPARE(m_session->tabs()[0].title, std::string("report"));
    QVERIFY(!m_session->tabs()[0].dirty);
    QCOMPARE(m_session->status(), std::string("Query saved"));

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
    write("big.sql", script);
    write("too-big.sql", script + "-");
    write("latin1.sql", "SELECT '\xe9t\xe9';");

    const std::pair<const char *, const char *> refusals[]
        = { { "too-big.sql", "Use a command-line import for scripts larger than 20 MB." },
              { "latin1.sql", "The file latin1.sql is not UTF-8 text." } };
    for (const auto &[name, message] : refusals) {
        m_harness->prompts.files = { path(name) };
        m_session->importSQL();
        QCOMPARE(m_session->error(), OptionalText(message));
        m_session->clearError();
    }
    QCOMPARE(m_session->tabs().size(), std::size_t(1));

    m_harness->prompts.files = { path("big.sql") };
    m_session->importSQL();
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QCOMPARE(m_session->tabs().back().title, std::string("big.sql"));
    QCOMPARE(m_session->tabs().back().sql, script);
    QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);
    QCOMPARE(m_session->status(), std::string("Script loaded for review. Run to import."));
}

void TestSessionFiles::exportsReplaceTheFileOnlyWhenComplete()
{
    // An account that may see the second table but not read it: its export fails after the first
    // table has been written to the temporary file.
    m_scratch->run("CREATE TABLE secret (id INT PRIMARY KEY)");
    const std::string user = "tw_backup_" + uuidText(QUuid::createUuid()).substr(0, 8);
    const std::string account = SQL::value(user) + "@'%'";
    m_scratch->run("CREATE USER " + account + " IDENTIFIED BY 'limited-pw'");
    m_scratch->run("GRANT SELECT ON " + SQL::qualified(m_scratch->name(), "notes") + " TO " + account);
    m_scratch->run("GRANT INSERT ON " + SQL::qualified(m_scratch->name(), "secret") + " TO " + account);

    QVERIFY(connectAndSettle(*m_session));
    m_session->backup();
    QCOMPARE(m_session->error(), OptionalText("Select a database first."));
    QVERIFY(m_harness->prompts.asked.empty());
    m_session->clearError();
    m_session->selectTable("notes", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_harness->prompts.files = { path("out.csv"), path("shop.sql") };
    m_session->exportCSV();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("query-results.csv"));
    QCOMPARE(contents("out.csv"), std::string("\"id\",\"body\"\r\n\"1\",\"one, \"\"two\"\"\"\r\n\"2\",\\N\r\n"));
    QCOMPARE(m_session->status(), std::string("Exported 2 displayed rows"));

    write("shop.sql", "old export");
    m_session->backup();
    QCOMPARE(m_harness->prompts.asked.back().text, m_scratch->name() + "-export.sql");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->status(), "Schema and data exported to " + path("shop.sql"));
    const std::string complete = contents("shop.sql");
    QVERIFY(complete.find("INSERT INTO `notes`") != std::string::npos && complete.ends_with("-- Export complete.\n"));

    ConnectionProfile limited = m_harness->profile("Limited");
    limited.user = user;
    m_harness->secrets.items[uuidText(limited.id)] = "limited-pw";
    m_session = m_harness->session(limited);
    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    m_harness->prompts.files = { path("shop.sql") };
    m_session->backup();
    QVERIFY(settle(*m_session));
    m_scratch->run("DROP USER " + account);
    QVERIFY2(m_session->error().value_or("").starts_with("MySQL 1142: "), m_session->error().value_or("").c_str());
    QCOMPARE(m_session->status(), std::string("Exporting schema and data… failed"));
    QCOMPARE(contents("shop.sql"), complete);
    // The backup's temporary files never outlive it.
    QVERIFY(QDir(m_folder.path()).entryList({ ".*.partial" }, QDir::Files | QDir::Hidden).isEmpty());
    QVERIFY(m_session->connected());
}

QTEST_GUILESS_MAIN(TestSessionFiles)
#include "TestSessionFiles.moc"
