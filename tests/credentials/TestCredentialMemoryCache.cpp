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

// Stands in for the secret store: answers with `answer`, or throws `failure` when set, and
// counts how often it was asked.
struct FakeStore {
    std::string answer;
    std::string failure;
    int calls = 0;

    CredentialMemoryCache::Loader loader()
    {
        return [this] {
            ++calls;
            if (!failure.empty()) {
                throw AppError(failure);
            }
            return answer;
        };
    }
};

QByteArray bytes(const std::string &text)
{
    return QByteArray::fromStdString(text);
}

} // namespace

class TestCredentialMemoryCache final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadsOnceThenAnswersFromMemory();
    void emptyAnswerIsCached();
    void failureIsNotCached();
    void setAnswersWithoutLoading();
    void removeLoadsAgain();
    void profilesAreIndependent();
    void sharedInstanceIsOne();
    void concurrentLookupsOfOneProfileLoadOnce();
    void lookupsOfDifferentProfilesNeverOverlap();
};

void TestCredentialMemoryCache::loadsOnceThenAnswersFromMemory()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    FakeStore store { "s3cret", {}, 0 };

    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("s3cret"));
    store.answer = "changed in the store";
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("s3cret"));
    QCOMPARE(store.calls, 1);
}

// "The store holds no password" is an answer too; asking again could prompt the user again.
void TestCredentialMemoryCache::emptyAnswerIsCached()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    FakeStore store;

    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray());
    store.answer = "late";
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray());
    QCOMPARE(store.calls, 1);
}

// A denied or cancelled access must not be remembered as "no password".
void TestCredentialMemoryCache::failureIsNotCached()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    FakeStore store { {}, "Could not access the saved password: denied.", 0 };

    try {
        cache.value(id, store.loader());
        QFAIL("the loader's failure was swallowed");
    } catch (const AppError &error) {
        QCOMPARE(
            QString::fromStdString(error.message()), QStringLiteral("Could not access the saved password: denied."));
    }

    store.failure.clear();
    store.answer = "restored-specimen";
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("restored-specimen"));
    QCOMPARE(store.calls, 2);

    store.failure = "would fail again";
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("restored-specimen"));
    QCOMPARE(store.calls, 2);
}

void TestCredentialMemoryCache::setAnswersWithoutLoading()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    FakeStore store { "from the store", {}, 0 };

    cache.set("typed", id);
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("typed"));
    cache.set("", id);
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray());
    QCOMPARE(store.calls, 0);
}

void TestCredentialMemoryCache::removeLoadsAgain()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    FakeStore store { "first", {}, 0 };

    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("first"));
    cache.remove(id);
    store.answer = "fresh";
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("fresh"));
    QCOMPARE(store.calls, 2);

    // Removing what is not there is harmless.
    cache.remove(QUuid::createUuid());
    QCOMPARE(bytes(cache.value(id, store.loader())), QByteArray("fresh"));
    QCOMPARE(store.calls, 2);
}

void TestCredentialMemoryCache::profilesAreIndependent()
{
    CredentialMemoryCache cache;
    const QUuid first = QUuid::createUuid();
    const QUuid second = QUuid::createUuid();
    FakeStore firstStore { "one", {}, 0 };
    FakeStore secondStore { "two", {}, 0 };

    QCOMPARE(bytes(cache.value(first, firstStore.loader())), QByteArray("one"));
    QCOMPARE(bytes(cache.value(second, secondStore.loader())), QByteArray("two"));
    cache.remove(first);
    cache.set("changed", first);
    QCOMPARE(bytes(cache.value(second, secondStore.loader())), QByteArray("two"));
    QCOMPARE(bytes(cache.value(first, firstStore.loader())), QByteArray("changed"));
    QCOMPARE(firstStore.calls, 1);
    QCOMPARE(secondStore.calls, 1);
}

void TestCredentialMemoryCache::sharedInstanceIsOne()
{
    CredentialMemoryCache *fromOtherThread = nullptr;
    std::thread([&fromOtherThread] { fromOtherThread = &CredentialMemoryCache::shared(); }).join();
    QCOMPARE(&CredentialMemoryCache::shared(), fromOtherThread);

    const QUuid id = QUuid::createUuid();
    CredentialMemoryCache::shared().set("kept", id);
    FakeStore store { "from the store", {}, 0 };
    QCOMPARE(bytes(CredentialMemoryCache::shared().value(id, store.loader())), QByteArray("kept"));
    CredentialMemoryCache::shared().remove(id);
}

// The first lookup holds the lock while the store is slow; the second waits for it and then
// finds the answer cached instead of prompting a second time.
void TestCredentialMemoryCache::concurrentLookupsOfOneProfileLoadOnce()
{
    CredentialMemoryCache cache;
    const QUuid id = QUuid::createUuid();
    std::atomic<int> calls = 0;
    std::latch loading(1);
    std::latch release(1);
    const auto slowStore = [&] {
        if (++calls == 1) {
            loading.count_down();
        }
        release.wait();
        return std::string("s3cret");
    };

    std::string firstAnswer;
    std::string secondAnswer;
    std::thread first([&] { firstAnswer = cache.value(id, slowStore); });
    loading.wait();
    std::thread second([&] { secondAnswer = cache.value(id, slowStore); });
    // Give the second lookup time to reach the cache; without the lock held across the loader
    // it would call the store now.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    release.count_down();
    first.join();
    second.join();

    QCOMPARE(calls.load(), 1);
    QCOMPARE(bytes(firstAnswer), QByteArray("s3cret"));
    QCOMPARE(bytes(secondAnswer), QByteArray("s3cret"));
}

// Lookups of all profiles are serialised, so two prompts can never be on screen at once.
void TestCredentialMemoryCache::lookupsOfDifferentProfilesNeverOverlap()
{
    CredentialMemoryCache cache;
    std::atomic<int> inFlight = 0;
    std::atomic<bool> overlapped = false;
    std::latch loading(1);
    std::latch release(1);
    const auto store = [&](const std::string &answer, bool blocks) {
        return [&, answer, blocks] {
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
    std::thread first([&] { firstAnswer = cache.value(QUuid::createUuid(), store("one", true)); });
    loading.wait();
    std::thread second([&] { secondAnswer = cache.value(QUuid::createUuid(), store("two", false)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    release.count_down();
    first.join();
    second.join();

    QVERIFY(!overlapped);
    QCOMPARE(bytes(firstAnswer), QByteArray("one"));
    QCOMPARE(bytes(secondAnswer), QByteArray("two"));
}

QTEST_GUILESS_MAIN(TestCredentialMemoryCache)
#include "TestCredentialMemoryCache.moc"
