#pragma once

#include "credentials/CredentialMemoryCache.h"
#include "credentials/SecretStore.h"

#include <QUuid>
#include <string>

namespace tallowick
{

// Passwords of saved connections, one item per profile keyed by the profile's UUID text, behind
// the process-wide memory cache. Every call is synchronous and may wait for the keyring: call
// it from a background thread, never from the user-interface thread.
class Keychain
{
public:
    static constexpr const char *service = "local.tallowick.credentials";

    Keychain(SecretStore &store, CredentialMemoryCache &cache);

    // The password, or an empty string when none is stored. Served from the cache after the
    // first successful lookup; a failed lookup is never cached, so the next call asks again.
    std::string load(const QUuid &id);

    // Stores or replaces the password; an empty password deletes the item.
    void save(const std::string &password, const QUuid &id);

    // Deletes the item and forgets the cached value.
    void remove(const QUuid &id);

private:
    SecretStore &m_store;
    CredentialMemoryCache &m_cache;
};

} // namespace tallowick
