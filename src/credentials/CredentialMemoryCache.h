#pragma once

#include <QHash>
#include <QUuid>
#include <functional>
#include <mutex>
#include <string>

namespace tallowick
{

// Memory of passwords already read from the secret store, shared by every session of the run,
// so a slow or prompting lookup happens at most once per profile and run. An empty string is a valid answer ("the
// store holds no password") and is cached like any other; a failed lookup is never cached.
//
// Thread-safe. The lock is held across the loader, which serialises lookups of every profile
// from every session.
class CredentialMemoryCache
{
public:
    using Loader = std::function<std::string()>;

    // The cached value for `id`, or the loader's answer, which is then cached. A loader that
    // throws leaves the cache unchanged and its exception reaches the caller.
    std::string value(const QUuid &id, const Loader &load);

    void set(const std::string &password, const QUuid &id);
    void remove(const QUuid &id);

private:
    std::mutex m_lock;
    QHash<QUuid, std::string> m_values;
};

} // namespace tallowick
