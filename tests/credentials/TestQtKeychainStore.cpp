#include "core/AppError.h"
#include "core/UuidText.h"
#include "credentials/Keychain.h"
#include "credentials/QtKeychainStore.h"

#include <QElapsedTimer>
#include <QTest>
#include <future>

using namespace tallowick;

namespace
{

// The store must be called off the main thread while the main thread keeps its event loop
// running (the keyring's jobs live there), as the application does.
template <typename Work> auto inBackground(Work work) -> decltype(work())
{
    auto result = std::async(std::launch::async, std::move(work));
    while (result.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return result.get();
}

} // namespace

// Three environments, which CTest runs separately: a real Secret Service inside a private D-Bus
// session (with-keyring.sh), a private D-Bus session where nothing provides it, and no session
// bus at all. The last two prove that a missing keyring is reported clearly instead of hanging.
class TestQtKeychainStore final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTripThroughTheKeyring();
    void refusesTheMainThread();
    void lookupFailsClearly();
    void quittingEndsAWaitingLookup();
};

void TestQtKeychainStore::roundTripThroughTheKeyring()
{
    QtKeychainStore store;
    const std::string account = uuidText(QUuid::createUuid());
    const std::string secret = "p\xC3\xA4ss 'word' \\ \xF0\x9F\x94\x91";
    QCOMPARE(inBackground([&] { return store.read(account).kind; }), SecretOutcome::Kind::notFound);
    QCOMPARE(inBackground([&] { return store.write(account, secret).kind; }), SecretOutcome::Kind::found);
    const SecretOutcome read = inBackground([&] { return store.read(account); });
    QCOMPARE(read.kind, SecretOutcome::Kind::found);
    QCOMPARE(read.data, secret);
    QCOMPARE(inBackground([&] { return store.write(account, "second").kind; }), SecretOutcome::Kind::found);
    QCOMPARE(inBackground([&] { return store.read(account).data; }), std::string("second"));
    QCOMPARE(inBackground([&] { return store.remove(account).kind; }), SecretOutcome::Kind::found);
    QCOMPARE(inBackground([&] { return store.read(account).kind; }), SecretOutcome::Kind::notFound);
    // Removing what is not there is no failure (the keyring may call it done or not found).
    QVERIFY(inBackground([&] { return store.remove(account).kind; }) != SecretOutcome::Kind::failed);
}

void TestQtKeychainStore::refusesTheMainThread()
{
    // Waiting on the main thread for a job that must run on the main thread would hang forever.
    QtKeychainStore store(std::chrono::seconds(30));
    QCOMPARE(store.read("any").kind, SecretOutcome::Kind::failed);
}

// A password lookup must fail with the usual advice rather than hang.
void TestQtKeychainStore::lookupFailsClearly()
{
    Keychain keychain(
        std::make_shared<QtKeychainStore>(std::chrono::seconds(10)), std::make_shared<CredentialMemoryCache>());
    QElapsedTimer clock;
    clock.start();
    std::string message = "(no failure)";
    inBackground([&] {
        try {
            keychain.load(QUuid::createUuid());
        } catch (const AppError &error) {
            message = error.message();
        }
    });
    qInfo("keyring failure reported after %lld ms: %s", clock.elapsed(), message.c_str());
    QVERIFY2(message.starts_with("Could not access the saved password: "), message.c_str());
    QVERIFY2(message.ends_with(". Reopen connection settings to try again, or enter the database password yourself."),
        message.c_str());
}

// At quit the event loop that would run the keyring's job is gone; a lookup still waiting (on an
// unlock prompt, say) must end at once, not after the long timeout.
void TestQtKeychainStore::quittingEndsAWaitingLookup()
{
    QtKeychainStore store(std::chrono::seconds(30));
    auto lookup = std::async(std::launch::async, [&store] { return store.read("pending at quit"); });
    QCOMPARE(lookup.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    store.abandonWaits();
    QCOMPARE(lookup.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    QCOMPARE(lookup.get().message, std::string("The keyring did not answer."));
}

QTEST_GUILESS_MAIN(TestQtKeychainStore)
#include "TestQtKeychainStore.moc"
