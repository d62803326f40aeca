#include "credentials/Keychain.h"

#include "core/AppError.h"
#include "core/Utf8Text.h"
#include "core/UuidText.h"

namespace tallowick
{

namespace
{

[[noreturn]] void throwAccessFailure(const SecretOutcome &outcome)
{
    std::string text
        = outcome.message.empty() ? "Keyring error " + std::to_string(outcome.code) + "." : outcome.message;
    // The sentence that follows needs the store's text to end like a sentence.
    if (!text.ends_with('.') && !text.ends_with('!') && !text.ends_with('?')) {
        text += '.';
    }
    throw AppError("Could not access the saved password: " + text
        + " Reopen connection settings to try again, or enter the database password yourself.");
}

} // namespace

Keychain::Keychain(std::shared_ptr<SecretStore> store, std::shared_ptr<CredentialMemoryCache> cache)
    : m_store(std::move(store))
    , m_cache(std::move(cache))
{
}

std::string Keychain::load(const QUuid &id)
{
    return m_cache->value(id, [this, &id] {
        const SecretOutcome outcome = m_store->read(uuidText(id));
        switch (outcome.kind) {
        case SecretOutcome::Kind::notFound:
            return std::string();
        case SecretOutcome::Kind::found:
            if (!isValidUtf8(outcome.data)) {
                throw AppError("The saved password could not be decoded.");
            }
            return outcome.data;
        case SecretOutcome::Kind::failed:
            break;
        }
        throwAccessFailure(outcome);
    });
}

void Keychain::save(const std::string &password, const QUuid &id)
{
    if (password.empty()) {
        const SecretOutcome outcome = m_store->remove(uuidText(id));
        if (outcome.kind == SecretOutcome::Kind::failed) {
            throwAccessFailure(outcome);
        }
        m_cache->set("", id);
        return;
    }
    const SecretOutcome outcome = m_store->write(uuidText(id), password);
    if (outcome.kind != SecretOutcome::Kind::found) {
        throw AppError("The keyring could not save the password (" + std::to_string(outcome.code) + ").");
    }
    m_cache->set(password, id);
}

void Keychain::remove(const QUuid &id)
{
    const SecretOutcome outcome = m_store->remove(uuidText(id));
    if (outcome.kind == SecretOutcome::Kind::failed) {
        throwAccessFailure(outcome);
    }
    m_cache->remove(id);
}

} // namespace tallowick
