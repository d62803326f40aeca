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

namespace
{

std::string contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string("(unreadable)");
}

QStringList partialFilesIn(const QTemporaryDir &folder)
{
    return QDir(folder.path()).entryList({ QStringLiteral(".*.partial") }, QDir::Files | QDir::Hidden);
}

} // namespace

// The session operations that read and write files: script import, saving a query, CSV export
// and the schema-and-data export through its temporary file.
class TestSessionFiles final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void importTakesAtMostTwentyMillionBytesOfUtf8();
    void saveQueryRenamesTheTab();
    void csvExportWritesTheDisplayedRows();
    void backupReplacesTheFileWhenComplete();
    void failedBackupLeavesTheEarlierFileIntact();

private:
    QString path(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }

    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<QTemporaryDir> m_folder;
    ClientThreadScope m_clientThread;
};

void TestSessionFiles::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE notes (id INT PRIMARY KEY, body TEXT)");
    m_scratch->run("INSERT INTO notes VALUES (1,'one, \"two\"'),(2,NULL)");
    m_session = m_harness->session(m_harness->profile());
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
}

void TestSessionFiles::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
    m_folder.reset();
}

void TestSessionFiles::importTakesAtMostTwentyMillionBytesOfUtf8()
{
    std::string script = "SELECT 1;\n";
    script.resize(20'000'001, '-');
    writeFileAtomically(path("too-big.sql").toStdString(), QByteArray::fromStdString(script));
    script.pop_back();
    writeFileAtomically(path("big.sql").toStdString(), QByteArray::fromStdString(script));
    writeFileAtomically(path("latin1.sql").toStdString(), QByteArray("SELECT '\xe9t\xe9';"));

    m_harness->prompts.files = { path("too-big.sql").toStdString() };
    m_session->importSQL();
    QCOMPARE(m_session->error(), OptionalText("Use a command-line import for scripts larger than 20 MB."));
    m_session->clearError();
    m_harness->prompts.files = { path("latin1.sql").toStdString() };
    m_session->importSQL();
    QCOMPARE(m_session->error(), OptionalText("The file latin1.sql is not UTF-8 text."));
    m_session->clearError();

    m_harness->prompts.files = { path("big.sql").toStdString() };
    m_session->importSQL();
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->tabs().size(), std::size_t(2));
    QCOMPARE(m_session->tabs().back().title, std::string("big.sql"));
    QCOMPARE(m_session->tabs().back().sql, script);
    QCOMPARE(m_session->activeTab(), m_session->tabs().back().id);
    QCOMPARE(m_session->status(), std::string("Script loaded for review. Run to import."));
}

void TestSessionFiles::saveQueryRenamesTheTab()
{
    m_session->setTabSQL(m_session->activeTab(), "SELECT 'saved';");
    QVERIFY(m_session->tabs()[0].dirty);
    m_harness->prompts.files = { path("report.sql").toStdString() };
    m_session->saveQuery();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Query 1.sql"));
    QCOMPARE(contentsOf(path("report.sql")), std::string("SELECT 'saved';"));
    QCOMPARE(m_session->tabs()[0].title, std::string("report"));
    QVERIFY(!m_session->tabs()[0].dirty);
    QCOMPARE(m_session->status(), std::string("Query saved"));

    // A folder that does not exist: the error is shown and the tab stays as it was.
    m_session->setTabSQL(m_session->activeTab(), "SELECT 'changed';");
    m_harness->prompts.files = { path("missing/folder/x.sql").toStdString() };
    m_session->saveQuery();
    QVERIFY(m_session->error());
    QCOMPARE(m_session->tabs()[0].title, std::string("report"));
    QVERIFY(m_session->tabs()[0].dirty);
}

void TestSessionFiles::csvExportWritesTheDisplayedRows()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("notes", m_scratch->name());
    QVERIFY(settle(*m_session));
    m_harness->prompts.files = { path("out.csv").toStdString() };
    m_session->exportCSV();
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("query-results.csv"));
    QCOMPARE(
        contentsOf(path("out.csv")), std::string("\"id\",\"body\"\r\n\"1\",\"one, \"\"two\"\"\"\r\n\"2\",\\N\r\n"));
    QCOMPARE(m_session->status(), std::string("Exported 2 displayed rows"));
}

void TestSessionFiles::backupReplacesTheFileWhenComplete()
{
    QVERIFY(connectAndSettle(*m_session));
    m_session->backup();
    QCOMPARE(m_session->error(), OptionalText("Select a database first."));
    QVERIFY(m_harness->prompts.asked.empty());
    m_session->clearError();
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    writeFileAtomically(path("shop.sql").toStdString(), "old export");
    m_harness->prompts.files = { path("shop.sql").toStdString() };
    m_session->backup();
    QCOMPARE(m_harness->prompts.asked.back().text, m_scratch->name() + "-export.sql");
    QVERIFY(settle(*m_session));
    QVERIFY(!m_session->error());
    QCOMPARE(m_session->status(), "Schema and data exported to " + path("shop.sql").toStdString());
    const std::string written = contentsOf(path("shop.sql"));
    QVERIFY(written.find("INSERT INTO `notes`") != std::string::npos);
    QVERIFY(written.ends_with("-- Export complete.\n"));
    QVERIFY(partialFilesIn(*m_folder).isEmpty());
}

void TestSessionFiles::failedBackupLeavesTheEarlierFileIntact()
{
    // An account that may see the second table but not read it: the export fails after the
    // first table has been written to the temporary file.
    m_scratch->run("CREATE TABLE secret (id INT PRIMARY KEY)");
    const std::string user = "tw_backup_" + uuidText(QUuid::createUuid()).substr(0, 8);
    const std::string account = SQL::value(user) + "@'%'";
    m_scratch->run("CREATE USER " + account + " IDENTIFIED BY 'limited-pw'");
    m_scratch->run("GRANT SELECT ON " + SQL::qualified(m_scratch->name(), "notes") + " TO " + account);
    m_scratch->run("GRANT INSERT ON " + SQL::qualified(m_scratch->name(), "secret") + " TO " + account);
    ConnectionProfile limited = m_harness->profile("Limited");
    limited.user = user;
    m_harness->secrets.items[uuidText(limited.id)] = "limited-pw";
    m_session = m_harness->session(limited);

    QVERIFY(connectAndSettle(*m_session));
    m_session->chooseDatabase(m_scratch->name());
    QVERIFY(settle(*m_session));
    const std::string good = "-- an earlier, complete export\nSELECT 1;\n";
    writeFileAtomically(path("keep.sql").toStdString(), QByteArray::fromStdString(good));
    m_harness->prompts.files = { path("keep.sql").toStdString() };
    m_session->backup();
    QVERIFY(settle(*m_session));
    m_scratch->run("DROP USER " + account);
    QVERIFY2(m_session->error().value_or("").starts_with("MySQL 1142: "), m_session->error().value_or("").c_str());
    QCOMPARE(m_session->status(), std::string("Exporting schema and data… failed"));
    QCOMPARE(contentsOf(path("keep.sql")), good);
    QVERIFY(partialFilesIn(*m_folder).isEmpty());
    QVERIFY(m_session->connected());
}

QTEST_GUILESS_MAIN(TestSessionFiles)
#include "TestSessionFiles.moc"
