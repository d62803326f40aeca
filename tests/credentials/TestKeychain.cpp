#include "credentials/CredentialMemoryCache.h"
#include "credentials/Keychain.h"
#include "support/Checks.h"
#include "support/FakeSecretStore.h"

#include <QTest>
#include <atomic>
#include <chrono>
#include <latch>
#include <thread>
#include <tuple>

using namespace tallowick;
using tallowick::test::errorFrom;
using tallowick::test::FakeSecretStore;

class TestKeychain final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cacheFollowsTheStore();
    void accessFailures();
    void saveFailureAndUndecodableData();
    void lookupsWaitForTheLoaderInFlight();

private:
    // Items are keyed by the profile's UUID in upper case, without braces.
    std::string account() const { return m_id.toString(QUuid::WithoutBraces).toUpper().toStdString(); }

    std::shared_ptr<FakeSecretStore> m_store;
    std::unique_ptr<Keychain> m_keychain;
    QUuid m_id;
};

void TestKeychain::init()
{
    m_store = std::make_shared<FakeSecretStore>();
    m_id = QUuid::createUuid();
    m_keychain = std::make_unique<Keychain>(m_store, std::make_shared<CredentialMemoryCache>());
}

// Each item is read once; a missing item is an answer too, remembered like a password.
void TestKeychain::cacheFollowsTheStore()
{
    const QUuid missing = QUuid::createUuid();
    m_store->items[account()] = "old";
    for (int round = 0; round < 2; ++round) {
        QCOMPARE(m_keychain->load(m_id), std::string("old"));
        QCOMPARE(m_keychain->load(missing), std::string());
    }
    m_keychain->save("new", m_id);
    QCOMPARE(m_store->items.size(), std::size_t(1));
    QCOMPARE(m_store->items[account()], std::string("new"));
    QCOMPARE(m_keychain->load(m_id), std::string("new"));

    // An empty password deletes the item, also when there is none.
    m_keychain->save("", m_id);
    QVERIFY(m_store->items.empty());
    QCOMPARE(m_keychain->load(m_id), std::string());
    m_keychain->save("", m_id);

    m_keychain->save("pw", m_id);
    m_keychain->remove(m_id);
    QVERIFY(m_store->items.empty());
    m_store->items[account()] = "restored elsewhere";
    QCOMPARE(m_keychain->load(m_id), std::string("restored elsewhere"));
    QCOMPARE(m_store->reads, 3);
}

// A lookup, removal or deletion the store fails tells the user what to do next, and changes
// nothing: the lookup is not cached as "no password", the cached value survives the rest.
void TestKeychain::accessFailures()
{
    const std::tuple<int, std::string, QString> cases[] = {
        { 4, "Access denied by the user.", "Access denied by the user." },
        { 6, "Locked", "Locked." },
        { 7, "", "Keyring error 7." },
    };
    for (const auto &[code, storeText, reason] : cases) {
        init();
        const QString full = "Could not access the saved password: " + reason
            + " Reopen connection settings to try again, or enter the database password yourself.";
        const auto failNext = [&] { m_store->nextFailure = SecretOutcome::failed(code, storeText); };

        failNext();
        QCOMPARE(errorFrom([this] { m_keychain->load(m_id); }), full);
        m_store->items[account()] = "pw";
        QCOMPARE(m_keychain->load(m_id), std::string("pw"));
        failNext();
        QCOMPARE(errorFrom([this] { m_keychain->remove(m_id); }), full);
        failNext();
        QCOMPARE(errorFrom([this] { m_keychain->save("", m_id); }), full);
        QCOMPARE(m_keychain->load(m_id), std::string("pw"));
        QCOMPARE(m_store->reads, 2);
    }
}

void TestKeychain::saveFailureAndUndecodableData()
{
    m_keychain->save("kept", m_id);
    m_store->nextFailure = SecretOutcome::failed(5, "No keyring");
    QCOMPARE(errorFrom([this] { m_keychain->save("lost", m_id); }),
        QStringLiteral("The keyring could not save the password (5)."));
    // The cache still holds what the keyring holds.
    QCOMPARE(m_keychain->load(m_id), std::string("kept"));

    m_keychain->remove(m_id);
    m_store->items[account()] = std::string("\xff\xfe", 2);
    QCOMPARE(errorFrom([this] { m_keychain->load(m_id); }), QStringLiteral("The saved password could not be decoded."));
    m_store->items[account()] = "fixed";
    QCOMPARE(m_keychain->load(m_id), std::string("fixed"));
}

// The lock is held across the loader. While the first lookup waits for a slow store, a second
// one waits for it: for the same profile it then finds the answer cached instead of prompting a
// second time, and two prompts for different profiles can never be on screen at once.
void TestKeychain::lookupsWaitForTheLoaderInFlight()
{
    for (const bool sameProfile : { true, false }) {
        CredentialMemoryCache cache;
        const QUuid firstId = QUuid::createUuid();
        const QUuid secondId = sameProfile ? firstId : QUuid::createUuid();
        std::atomic<bool> released = false;
        std::atomic<bool> overlapped = false;
        std::latch loading(1);
        std::latch release(1);
        std::string secondAnswer;
        std::thread first([&] {
            cache.value(firstId, [&] {
                loading.count_down();
                release.wait();
                return std::string("one");
            });
        });
        loading.wait();
        std::thread second([&] {
            secondAnswer = cache.value(secondId, [&] {
                overlapped = !released;
                return std::string("two");
            });
        });
        // Give the second lookup time to reach the store; without the lock held across the
        // loader it would call it now.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        released = true;
        release.count_down();
        first.join();
        second.join();
        QVERIFY2(!overlapped, sameProfile ? "same profile" : "different profiles");
        QCOMPARE(secondAnswer, std::string(sameProfile ? "one" : "two"));
    }
}

QTEST_GUILESS_MAIN(TestKeychain)
#include "TestKeychain.moc"
