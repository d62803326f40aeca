#include "core/AppError.h"
#include "credentials/CredentialMemoryCache.h"

#include <QTest>
#include <atomic>
#include <chrono>
#include <latch>
#include <string>
#include <thread>

using namespace tallowick;

namespace
{

// Stands in for the secret store: answers with `answer` and counts how often it was asked.
struct FakeStore {
    std::string answer;
    int calls = 0;

    CredentialMemoryCache::Loader loader()
    {
        return [this] {
            ++calls;
            return answer;
        };
    }
};

} // namespace

class TestCredentialMemoryCache final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersAreKeptPerProfile();
    void failureIsNotCached();
    void lookupsWaitForTheLoaderInFlight_data();
    void lookupsWaitForTheLoaderInFlight();
};

// "The store holds no password" is an answer too; asking again could prompt the user again.
void TestCredentialMemoryCache::answersAreKeptPerProfile()
{
    CredentialMemoryCache cache;
    const QUuid first = QUuid::createUuid();
    const QUuid second = QUuid::createUuid();
    FakeStore store;

    QCOMPARE(cache.value(first, store.loader()), std::string());
    store.answer = "late";
    QCOMPARE(cache.value(first, store.loader()), std::string());
    QCOMPARE(cache.value(second, store.loader()), std::string("late"));
    QCOMPARE(store.calls, 2);

    // Setting and removing touch one profile only; a set value is answered without loading.
    cache.set("typed", first);
    cache.remove(second);
    store.answer = "fresh";
    QCOMPARE(cache.value(first, store.loader()), std::string("typed"));
    QCOMPARE(cache.value(second, store.loader()), std::string("fresh"));
    QCOMPARE(store.calls, 3);
}

// A denied or cancelled access must not be remembered as "no password".
void TestCredentialMemoryCache::failureIsNotCached()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    const auto denied = []() -> std::string { throw AppError("Could not access the saved password: denied."); };
    try {
        cache.value(id, denied);
        QFAIL("the loader's failure was swallowed");
    } catch (const AppError &error) {
        QCOMPARE(
            QString::fromStdString(error.message()), QStringLiteral("Could not access the saved password: denied."));
    }
    FakeStore store { "restored-specimen", 0 };
    QCOMPARE(cache.value(id, store.loader()), std::string("restored-specimen"));
    QCOMPARE(store.calls, 1);
}

void TestCredentialMemoryCache::lookupsWaitForTheLoaderInFlight_data()
{
    QTest::addColumn<bool>("sameProfile");

    QTest::newRow("same profile: loaded once") << true;
    QTest::newRow("different profiles: never at once") << false;
}

// The lock is held across the loader. While the first lookup waits for a slow store, a second
// one waits for it: for the same profile it then finds the answer cached instead of prompting a
// second time, and two prompts for different profiles can never be on screen at once.
void TestCredentialMemoryCache::lookupsWaitForTheLoaderInFlight()
{
    QFETCH(bool, sameProfile);
    CredentialMemoryCache cache;
    const QUuid firstId = QUuid::createUuid();
    const QUuid secondId = sameProfile ? firstId : QUuid::createUuid();
    std::atomic<int> calls = 0;
    std::atomic<int> inFlight = 0;
    std::atomic<bool> overlapped = false;
    std::latch loading(1);
    std::latch release(1);
    const auto store = [&](const std::string &answer, bool blocks) {
        return [&, answer, blocks] {
            ++calls;
            if (++inFlight > 1) {
                overlapped = true;
            }
            if (blocks) {
                loading.count_down();
                release.wait();
            }
            --inFlight;
            return answer;
        };
    };

    std::string firstAnswer;
    std::string secondAnswer;
    std::thread first([&] { firstAnswer = cache.value(firstId, store("one", true)); });
    loading.wait();
    std::thread second([&] { secondAnswer = cache.value(secondId, store("two", false)); });
    // Give the second lookup time to reach the store; without the lock held across the loader
    // it would call it now.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    release.count_down();
    first.join();
    second.join();

    QVERIFY(!overlapped);
    QCOMPARE(calls.load(), sameProfile ? 1 : 2);
    QCOMPARE(firstAnswer, std::string("one"));
    QCOMPARE(secondAnswer, std::string(sameProfile ? "one" : "two"));
}

QTEST_GUILESS_MAIN(TestCredentialMemoryCache)
#include "TestCredentialMemoryCache.moc"
