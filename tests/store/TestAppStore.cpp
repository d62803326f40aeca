#include "core/ConnectionProfileJson.h"
#include "core/FileText.h"
#include "core/QueryLogJson.h"
#include "core/UuidText.h"
#include "credentials/Keychain.h"
#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "support/FakeSecretStore.h"
#include "support/ScriptedPrompts.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <future>
#include <sys/stat.h>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

ConnectionProfile profileNamed(const std::string &name)
{
    ConnectionProfile profile;
    profile.name = name;
    profile.host = "db.example.test";
    profile.user = "app";
    return profile;
}

// The mode bits as the system reports them, compared with the literal 0600 (owner read/write).
unsigned modeOf(const std::string &path)
{
    struct stat status {
    };
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

} // namespace

// The store without a server: profiles, passwords through a fake keyring, history, and files.
class TestAppStore final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void savesProfilesWithoutPasswords();
    void damagedFilesAreReportedThenOverwritten();
    void historyKeepsTheNewestThreeHundred();
    void removeAsksThenDeletesProfilePasswordAndSelection();
    void removeDuringASaveKeepsItRemoved();
    void quitWithAKeyringLookupPending();
    void sessionsAreSharedUntilTheirProfileChanges();
    void tunnelsLiveBesideTheirProfile();

private:
    // Saves and waits for the keyring work to come back.
    std::optional<std::string> saveAndWait(const ConnectionProfile &profile,
        const std::string &password,
        const std::optional<SshTunnelSettings> &tunnel = std::nullopt,
        const std::string &sshSecret = {});
    std::unique_ptr<AppStore> reopen();

    std::unique_ptr<QTemporaryDir> m_folder;
    std::shared_ptr<FakeSecretStore> m_secrets;
    std::shared_ptr<CredentialMemoryCache> m_cache;
    std::shared_ptr<Keychain> m_keychain;
    std::unique_ptr<ScriptedPrompts> m_prompts;
    std::unique_ptr<AppStore> m_store;
};

void TestAppStore::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_secrets = std::make_shared<FakeSecretStore>();
    m_cache = std::make_shared<CredentialMemoryCache>();
    m_keychain = std::make_shared<Keychain>(m_secrets, m_cache);
    m_prompts = std::make_unique<ScriptedPrompts>();
    m_store = reopen();
}

void TestAppStore::cleanup()
{
    // Keyring work still running in the background must finish before the keyring goes.
    QThreadPool::globalInstance()->waitForDone();
    m_store.reset();
    m_keychain.reset();
    m_folder.reset();
}

std::unique_ptr<AppStore> TestAppStore::reopen()
{
    return std::make_unique<AppStore>(m_folder->filePath(QStringLiteral("data")).toStdString(), m_keychain, *m_prompts);
}

std::optional<std::string> TestAppStore::saveAndWait(const ConnectionProfile &profile,
    const std::string &password,
    const std::optional<SshTunnelSettings> &tunnel,
    const std::string &sshSecret)
{
    bool finished = false;
    std::optional<std::string> error;
    m_store->save(profile, password, tunnel, sshSecret, [&](const std::optional<std::string> &result) {
        finished = true;
        error = result;
    });
    if (!QTest::qWaitFor([&finished] { return finished; }, 10000)) {
        return std::string("the save never finished");
    }
    return error;
}

void TestAppStore::savesProfilesWithoutPasswords()
{
    QVERIFY(m_store->profiles().empty() && m_store->history().empty() && !m_store->error() && !m_store->active());
    // A refused save writes nothing, to the keyring or to the file.
    QCOMPARE(saveAndWait(profileNamed("  \t "), "x"), std::optional<std::string>("Give this connection a name."));
    QCOMPARE(m_secrets->writes, 0);
    m_secrets->nextFailure = SecretOutcome::failed(3, "Keyring locked");
    QCOMPARE(saveAndWait(profileNamed("Locked"), "pw"),
        std::optional<std::string>("The keyring could not save the password (3)."));
    QVERIFY(m_store->profiles().empty() && !QFile::exists(QString::fromStdString(m_store->connectionsPath())));

    ConnectionProfile first = profileNamed("First");
    const ConnectionProfile second = profileNamed("Second");
    QCOMPARE(saveAndWait(first, "hunter2-do-not-write"), std::nullopt);
    QCOMPARE(saveAndWait(second, "b"), std::nullopt);
    QCOMPARE(m_secrets->items.at(uuidText(first.id)), std::string("hunter2-do-not-write"));
    // A saved profile keeps its place.
    first.name = "First, renamed";
    first.port = 3307;
    QCOMPARE(saveAndWait(first, "hunter2-do-not-write"), std::nullopt);
    const std::vector<ConnectionProfile> expected { first, second };
    QCOMPARE(m_store->profiles(), expected);

    QVERIFY(!readWholeFile(m_store->connectionsPath()).contains("hunter2"));
    QCOMPARE(modeOf(m_store->connectionsPath()), 0600u);
    m_store = reopen();
    QCOMPARE(m_store->profiles(), expected);
    QVERIFY(!m_store->error());
}

// A damaged history is dropped quietly; damaged connections are reported, and the file stays
// as it is until the next save.
void TestAppStore::damagedFilesAreReportedThenOverwritten()
{
    const std::string damaged = R"([{"id":"00000000-0000-0000-0000-000000000001","name":"No colour"}])";
    writeFileAtomically(m_store->connectionsPath(), QByteArray::fromStdString(damaged));
    writeFileAtomically(m_store->historyPath(), "[{\"id\": 1}]");
    m_store = reopen();
    QVERIFY(m_store->profiles().empty() && m_store->history().empty());
    QVERIFY2(m_store->error().value_or("").starts_with("Could not load saved connections: "),
        m_store->error().value_or("").c_str());
    QCOMPARE(readWholeFile(m_store->connectionsPath()), QByteArray::fromStdString(damaged));

    QCOMPARE(saveAndWait(profileNamed("Fresh"), "pw"), std::nullopt);
    m_store = reopen();
    QCOMPARE(m_store->profiles().size(), std::size_t(1));
    QCOMPARE(m_store->profiles()[0].name, std::string("Fresh"));
    QVERIFY(!m_store->error());
}

void TestAppStore::historyKeepsTheNewestThreeHundred()
{
    ServerSession *session = m_store->session(profileNamed("History"));
    for (int i = 1; i <= 301; ++i) {
        QueryLog entry;
        entry.date = QDateTime::fromMSecsSinceEpoch(1'700'000'000'000 + i * 1000, Qt::UTC);
        entry.connection = "History";
        entry.sql = "SELECT " + std::to_string(i);
        Q_EMIT session->historyEntryCreated(entry);
    }
    QCOMPARE(m_store->history().size(), std::size_t(300));
    QCOMPARE(m_store->history().front().sql, std::string("SELECT 301"));
    QCOMPARE(m_store->history().back().sql, std::string("SELECT 2"));
    const std::vector<QueryLog> written = decodeQueryLogs(readWholeFile(m_store->historyPath()));
    QCOMPARE(written, m_store->history());
    QCOMPARE(modeOf(m_store->historyPath()), 0600u);

    m_store = reopen();
    QCOMPARE(m_store->history(), written);
}

void TestAppStore::removeAsksThenDeletesProfilePasswordAndSelection()
{
    const ConnectionProfile keep = profileNamed("Keep");
    const ConnectionProfile drop = profileNamed("Drop");
    QCOMPARE(saveAndWait(keep, "k"), std::nullopt);
    QCOMPARE(saveAndWait(drop, "d"), std::nullopt);
    m_store->session(drop);
    m_store->setSelected(drop.id);
    QVERIFY(m_store->active());

    m_store->remove(drop); // declined
    QCOMPARE(m_prompts->asked.size(), std::size_t(1));
    QCOMPARE(m_prompts->asked[0].text, std::string("Remove Drop?"));
    QCOMPARE(m_store->profiles().size(), std::size_t(2));

    m_prompts->confirmations = { true };
    m_store->remove(drop);
    QCOMPARE(m_store->profiles(), std::vector<ConnectionProfile> { keep });
    QVERIFY(!m_store->selected());
    QVERIFY(!m_store->active());
    QVERIFY(m_store->sessions().empty());
    QVERIFY(QTest::qWaitFor([this, &drop] { return m_secrets->items.count(uuidText(drop.id)) == 0; }, 5000));
    QCOMPARE(m_secrets->items.count(uuidText(keep.id)), std::size_t(1));
    m_store = reopen();
    QCOMPARE(m_store->profiles(), std::vector<ConnectionProfile> { keep });
}

void TestAppStore::removeDuringASaveKeepsItRemoved()
{
    ConnectionProfile profile = profileNamed("Renamed then removed");
    QCOMPARE(saveAndWait(profile, "pw"), std::nullopt);
    profile.name = "Renamed";
    bool saved = false;
    // The keyring is still writing the new password when the user removes the profile.
    std::promise<void> writeMayFinish;
    m_secrets->beforeWrite = [gate = writeMayFinish.get_future().share()] { gate.wait(); };
    m_store->save(profile, "new pw", [&saved](const std::optional<std::string> &) { saved = true; });
    m_prompts->confirmations = { true };
    m_store->remove(profile);
    writeMayFinish.set_value();
    QVERIFY(QTest::qWaitFor([&saved] { return saved; }, 5000));
    QVERIFY(m_store->profiles().empty());

    // The removal came last, in the keyring and in the memory of passwords read this run.
    QVERIFY(QTest::qWaitFor([this] { return m_secrets->removals == 1; }, 5000));
    QCOMPARE(m_secrets->items.count(uuidText(profile.id)), std::size_t(0));
    QCOMPARE(m_cache->value(profile.id, [] { return std::string("(not cached)"); }), std::string("(not cached)"));
}

// Quitting tears down the store and the keyring while a lookup still waits on the keyring; the
// lookup finishes later on its own, touching nothing that is gone.
void TestAppStore::quitWithAKeyringLookupPending()
{
    const ConnectionProfile profile = profileNamed("Pending at quit");
    QCOMPARE(saveAndWait(profile, "pw"), std::nullopt);
    std::promise<void> lookupMayFinish;
    std::promise<void> lookupStarted;
    m_secrets->beforeRead = [gate = lookupMayFinish.get_future().share(), &lookupStarted] {
        lookupStarted.set_value();
        gate.wait();
    };
    m_cache->remove(profile.id);
    m_store->connect(profile);
    lookupStarted.get_future().wait();

    m_store.reset();
    m_keychain.reset();
    m_cache.reset();
    m_secrets.reset();
    lookupMayFinish.set_value();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
}

// One session per profile, whose changes are the store's; saving the profile while the session
// is idle drops it, so the next one is built from the new settings, with the old one's query
// tabs, the unsaved included.
void TestAppStore::sessionsAreSharedUntilTheirProfileChanges()
{
    ConnectionProfile profile = profileNamed("Edited");
    QCOMPARE(saveAndWait(profile, "pw"), std::nullopt);
    QPointer<ServerSession> old = m_store->session(profile);
    QCOMPARE(m_store->session(profile), old.data());
    QCOMPARE(old->id(), profile.id);
    QSignalSpy storeChanges(m_store.get(), &AppStore::changed);
    old->setFilter("anything");
    QVERIFY(storeChanges.count() >= 1);

    old->newTab("SELECT 'not saved anywhere'", "Draft");
    old->setTabSQL(old->tabs().back().id, "SELECT 'not saved anywhere yet'");

    profile.port = 3310;
    QCOMPARE(saveAndWait(profile, "pw"), std::nullopt);
    QVERIFY(m_store->sessions().empty());
    QVERIFY(QTest::qWaitFor([&old] { return old.isNull(); }, 5000));
    ServerSession *renewed = m_store->session(profile);
    QCOMPARE(renewed->profile().port, std::int64_t(3310));
    // The unsaved query went on with the new settings.
    QCOMPARE(renewed->tabs().size(), std::size_t(2));
    QCOMPARE(renewed->tabs().back().title, std::string("Draft"));
    QCOMPARE(renewed->tabs().back().sql, std::string("SELECT 'not saved anywhere yet'"));
    QVERIFY(renewed->tabs().back().dirty);
}

// A tunnel is kept in its own 0600 file keyed by the profile's id, its passphrase in the keyring;
// it reaches the profile's session, goes with a duplicate into the sheet, and leaves with the
// profile. The connections file keeps its keys.
void TestAppStore::tunnelsLiveBesideTheirProfile()
{
    ConnectionProfile profile = profileNamed("Behind bastion");
    SshTunnelSettings tunnel { "bastion.example.com", 2222, "deploy", SshAuth::keyFile, "/keys/id_ed25519" };
    const std::string secretItem = uuidText(sshSecretID(profile.id));
    SshTunnelSettings unnamed = tunnel;
    unnamed.host = " ";
    QCOMPARE(saveAndWait(profile, "pw", unnamed, "pp"), std::optional<std::string>("Enter the SSH host."));
    QCOMPARE(m_secrets->writes, 0);

    QCOMPARE(saveAndWait(profile, "pw", tunnel, "passphrase-not-in-files"), std::nullopt);
    QCOMPARE(m_store->tunnel(profile.id), tunnel);
    QCOMPARE(m_secrets->items.at(secretItem), std::string("passphrase-not-in-files"));
    QCOMPARE(modeOf(m_store->tunnelsPath()), 0600u);
    QVERIFY(!readWholeFile(m_store->tunnelsPath()).contains("passphrase"));
    QCOMPARE(readWholeFile(m_store->connectionsPath()), encodeProfiles({ profile }));
    QCOMPARE(m_store->session(profile)->tunnel(), tunnel);

    m_store->openConnectionSheet(profile);
    QCOMPARE(m_store->editingTunnel(), tunnel);
    ConnectionProfile copy = profile;
    copy.id = QUuid::createUuid();
    m_store->openConnectionSheet(copy, m_store->tunnel(profile.id));
    QCOMPARE(m_store->editingTunnel(), tunnel);

    // The agent needs no secret: the stored passphrase goes.
    tunnel.auth = SshAuth::agent;
    QCOMPARE(saveAndWait(profile, "pw", tunnel, "ignored"), std::nullopt);
    QCOMPARE(m_secrets->items.count(secretItem), std::size_t(0));
    m_store = reopen();
    QCOMPARE(m_store->tunnel(profile.id), tunnel);

    m_prompts->confirmations = { true };
    m_store->remove(profile);
    QCOMPARE(m_store->tunnel(profile.id), std::nullopt);
    m_store = reopen();
    QCOMPARE(m_store->tunnel(profile.id), std::nullopt);
    QCOMPARE(readWholeFile(m_store->tunnelsPath()), QByteArray("[]"));

    // A damaged tunnels file is reported rather than connecting past the SSH host.
    writeFileAtomically(m_store->tunnelsPath(), "[{\"profile\": 1}]");
    m_store = reopen();
    QVERIFY2(m_store->error()->starts_with("Could not load saved SSH tunnels: "), m_store->error()->c_str());
}

QTEST_GUILESS_MAIN(TestAppStore)
#include "TestAppStore.moc"
