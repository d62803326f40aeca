#include "credentials/CredentialMemoryCache.h"

namespace tallowick
{

std::string CredentialMemoryCache::value(const QUuid &id, const Loader &load)
{
    const std::lock_guard guard(m_lock);
    if (const auto found = m_values.constFind(id); found != m_values.cend()) {
        return *found;
    }
    std::string loaded = load();
    m_values.insert(id, loaded);
    return loaded;
}

void CredentialMemoryCache::set(const std::string &password, const QUuid &id)
{
    const std::lock_guard guard(m_lock);
    m_values.insert(id, password);
}

void CredentialMemoryCache::remove(const QUuid &id)
{
    const std::lock_guard guard(m_lock);
    m_values.remove(id);
}

} // namespace tallowick
