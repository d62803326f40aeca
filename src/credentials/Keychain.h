#pragma once

#include "credentials/CredentialMemoryCache.h"
#include "credentials/SecretStore.h"

#include <QUuid>
#include <memory>
#include <string>

namespace tallowick
{

// Passwords of saved connections, one item per profile keyed by the profile's UUID text, behind
// the memory cache all sessions share. Every call is synchronous and may wait for the keyring:
// call it from a background thread, never from the user-interface thread. Background jobs hold
// it by shared ownership, so a lookup still waiting at quit finishes safely.
class Keychain
{
public:
    static constexpr const char *service = "local.tallowick.credentials";

    Keychain(std::shared_ptr<SecretStore> store, std::shared_ptr<CredentialMemoryCache> cache);

    // The password, or an empty string when none is stored. Served from the cache after the
    // first successful lookup; a failed lookup is never cached, so the next call asks again.
    std::string load(const QUuid &id);

    // Stores or replaces the password; an empty password deletes the item.
    void save(const std::string &password, const QUuid &id);

    // Deletes the item and forgets the cached value.
    void remove(const QUuid &id);

private:
    const std::shared_ptr<SecretStore> m_store;
    const std::shared_ptr<CredentialMemoryCache> m_cache;
};

} // namespace tallowick
