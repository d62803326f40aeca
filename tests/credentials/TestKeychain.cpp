#include "core/AppError.h"
#include "core/UuidText.h"
#include "credentials/Keychain.h"
#include "support/FakeSecretStore.h"

#include <QTest>

using namespace tallowick;
using tallowick::test::FakeSecretStore;

namespace
{

const std::string accessFailureEnd
    = " Reopen connection settings to try again, or enter the database password yourself.";

std::string messageOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const AppError &error) {
        return error.message();
    }
    return "(no error)";
}

} // namespace

class TestKeychain final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void loadsOnceThenServesFromCache();
    void missingPasswordIsCachedAsEmpty();
    void itemsAreKeyedByUpperCaseUuidText();
    void saveUpdatesTheCacheWithoutAReadBack();
    void savingAnEmptyPasswordDeletesTheItem();
    void removeForgetsTheCachedValue();
    void failedLookupIsRetriedNotCachedAsEmpty();
    void accessFailureMessages_data();
    void accessFailureMessages();
    void saveFailureNamesTheStatus();
    void undecodableDataIsReported();
    void failedRemovalKeepsTheCache();

private:
    std::unique_ptr<FakeSecretStore> m_store;
    std::unique_ptr<CredentialMemoryCache> m_cache;
    std::unique_ptr<Keychain> m_keychain;
    QUuid m_id;
};

void TestKeychain::init()
{
    m_store = std::make_unique<FakeSecretStore>();
    m_cache = std::make_unique<CredentialMemoryCache>();
    m_id = QUuid::createUuid();
    m_keychain = std::make_unique<Keychain>(*m_store, *m_cache);
}

void TestKeychain::loadsOnceThenServesFromCache()
{
    m_store->items[uuidText(m_id)] = "s3cret";
    QCOMPARE(m_keychain->load(m_id), std::string("s3cret"));
    QCOMPARE(m_keychain->load(m_id), std::string("s3cret"));
    QCOMPARE(m_store->reads, 1);
}

void TestKeychain::missingPasswordIsCachedAsEmpty()
{
    QCOMPARE(m_keychain->load(m_id), std::string());
    QCOMPARE(m_keychain->load(m_id), std::string());
    QCOMPARE(m_store->reads, 1);
}

void TestKeychain::itemsAreKeyedByUpperCaseUuidText()
{
    m_keychain->save("pw", m_id);
    QCOMPARE(m_store->items.size(), std::size_t(1));
    const std::string account = m_store->items.begin()->first;
    QCOMPARE(account, m_id.toString(QUuid::WithoutBraces).toUpper().toStdString());
}

void TestKeychain::saveUpdatesTheCacheWithoutAReadBack()
{
    m_store->items[uuidText(m_id)] = "old";
    QCOMPARE(m_keychain->load(m_id), std::string("old"));
    m_keychain->save("new", m_id);
    QCOMPARE(m_store->items[uuidText(m_id)], std::string("new"));
    QCOMPARE(m_keychain->load(m_id), std::string("new"));
    QCOMPARE(m_store->reads, 1);
}

void TestKeychain::savingAnEmptyPasswordDeletesTheItem()
{
    m_keychain->save("pw", m_id);
    m_keychain->save("", m_id);
    QVERIFY(m_store->items.empty());
    QCOMPARE(m_keychain->load(m_id), std::string());
    QCOMPARE(m_store->reads, 0);
    // Deleting what is not there is fine too.
    m_keychain->save("", m_id);
}

void TestKeychain::removeForgetsTheCachedValue()
{
    m_keychain->save("pw", m_id);
    m_keychain->remove(m_id);
    QVERIFY(m_store->items.empty());
    m_store->items[uuidText(m_id)] = "restored elsewhere";
    QCOMPARE(m_keychain->load(m_id), std::string("restored elsewhere"));
    QCOMPARE(m_store->reads, 1);
}

void TestKeychain::failedLookupIsRetriedNotCachedAsEmpty()
{
    m_store->items[uuidText(m_id)] = "restored-specimen";
    m_store->nextFailure = SecretOutcome::failed(4, "Access denied by the user.");
    QVERIFY_THROWS_EXCEPTION(AppError, m_keychain->load(m_id));
    QCOMPARE(m_keychain->load(m_id), std::string("restored-specimen"));
    QCOMPARE(m_store->reads, 2);
}

void TestKeychain::accessFailureMessages_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("storeText");
    QTest::addColumn<QString>("expected");
    QTest::newRow("with the store's text") << 4 << "Access denied by the user."
                                           << "Could not access the saved password: Access denied by the user.";
    QTest::newRow("without text") << 7 << ""
                                  << "Could not access the saved password: Keyring error 7.";
}

void TestKeychain::accessFailureMessages()
{
    QFETCH(int, code);
    QFETCH(QString, storeText);
    QFETCH(QString, expected);
    const std::string full = expected.toStdString() + accessFailureEnd;
    m_store->nextFailure = SecretOutcome::failed(code, storeText.toStdString());
    QCOMPARE(messageOf([this] { m_keychain->load(m_id); }), full);
    m_store->nextFailure = SecretOutcome::failed(code, storeText.toStdString());
    QCOMPARE(messageOf([this] { m_keychain->remove(m_id); }), full);
    m_store->nextFailure = SecretOutcome::failed(code, storeText.toStdString());
    QCOMPARE(messageOf([this] { m_keychain->save("", m_id); }), full);
}

void TestKeychain::saveFailureNamesTheStatus()
{
    m_keychain->save("kept", m_id);
    m_store->nextFailure = SecretOutcome::failed(5, "No keyring");
    QCOMPARE(messageOf([this] { m_keychain->save("lost", m_id); }),
        std::string("The keyring could not save the password (5)."));
    // The cache still holds what the keyring holds.
    QCOMPARE(m_keychain->load(m_id), std::string("kept"));
}

void TestKeychain::undecodableDataIsReported()
{
    m_store->items[uuidText(m_id)] = std::string("\xff\xfe", 2);
    QCOMPARE(messageOf([this] { m_keychain->load(m_id); }), std::string("The saved password could not be decoded."));
    m_store->items[uuidText(m_id)] = "fixed";
    QCOMPARE(m_keychain->load(m_id), std::string("fixed"));
}

void TestKeychain::failedRemovalKeepsTheCache()
{
    m_keychain->save("pw", m_id);
    m_store->nextFailure = SecretOutcome::failed(6, "Locked");
    QVERIFY_THROWS_EXCEPTION(AppError, m_keychain->remove(m_id));
    QCOMPARE(m_keychain->load(m_id), std::string("pw"));
    QCOMPARE(m_store->reads, 0);
}

QTEST_GUILESS_MAIN(TestKeychain)
#include "TestKeychain.moc"
