#pragma once

#include "credentials/SecretStore.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tallowick::test
{

// An in-memory secret store that counts its calls and can be told to fail. Thread-safe, since
// sessions read passwords on background threads.
class FakeSecretStore final : public SecretStore
{
public:
    std::map<std::string, std::string> items;
    std::optional<SecretOutcome> nextFailure; // returned once by the next call, then cleared
    int reads = 0;
    int writes = 0;
    int removals = 0;
    // Run at the start of a read or a write, outside the store's lock, so a test can hold the
    // call there the way a slow keyring would.
    std::function<void()> beforeRead;
    std::function<void()> beforeWrite;

    SecretOutcome read(const std::string &account) override
    {
        if (beforeRead) {
            beforeRead();
        }
        const std::lock_guard guard(m_lock);
        ++reads;
        if (auto failure = takeFailure()) {
            return *failure;
        }
        const auto found = items.find(account);
        return found == items.end() ? SecretOutcome::notFound() : SecretOutcome::found(found->second);
    }

    SecretOutcome write(const std::string &account, const std::string &data) override
    {
        if (beforeWrite) {
            beforeWrite();
        }
        const std::lock_guard guard(m_lock);
        ++writes;
        if (auto failure = takeFailure()) {
            return *failure;
        }
        items[account] = data;
        return SecretOutcome::found({});
    }

    SecretOutcome remove(const std::string &account) override
    {
        const std::lock_guard guard(m_lock);
        ++removals;
        if (auto failure = takeFailure()) {
            return *failure;
        }
        return items.erase(account) > 0 ? SecretOutcome::found({}) : SecretOutcome::notFound();
    }

private:
    std::mutex m_lock;

    std::optional<SecretOutcome> takeFailure()
    {
        std::optional<SecretOutcome> failure = nextFailure;
        nextFailure.reset();
        return failure;
    }
};

} // namespace tallowick::test
