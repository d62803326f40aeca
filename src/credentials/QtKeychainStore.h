#pragma once

#include "credentials/SecretStore.h"

#include <atomic>
#include <chrono>

namespace tallowick
{

// The freedesktop Secret Service (GNOME Keyring, KWallet) through QtKeychain. Insecure fallback
// stays off, so a password is never written to a file.
//
// QtKeychain's jobs belong to the thread of the application object, so each call hands its job
// to that thread and waits for the answer on the calling thread, which must be a background
// thread. A keyring that does not answer within `timeout` (a bus that never replies) is reported
// as a failure instead of a hang. With no Secret Service at all the answer is an error within
// milliseconds; the default bound is long because a locked keyring asks the user to unlock it,
// and that prompt is answered inside this wait.
class QtKeychainStore final : public SecretStore
{
public:
    explicit QtKeychainStore(std::chrono::milliseconds timeout = std::chrono::seconds(90));

    SecretOutcome read(const std::string &account) override;
    SecretOutcome write(const std::string &account, const std::string &data) override;
    SecretOutcome remove(const std::string &account) override;

    // Ends every wait at once, now and later, with a failure: the program is quitting and
    // nobody will answer a prompt any more.
    void abandonWaits() { m_abandoned = true; }

private:
    enum class Operation { read, write, remove };
    SecretOutcome run(Operation operation, const std::string &account, const std::string &data);

    std::chrono::milliseconds m_timeout;
    std::atomic<bool> m_abandoned { false };
};

} // namespace tallowick
