#pragma once

#include <string>

namespace tallowick
{

// The three outcomes any secret store must be able to report.
struct SecretOutcome {
    enum class Kind { found, notFound, failed };

    Kind kind = Kind::failed;
    std::string data; // the secret's bytes, when found
    int code = 0; // the store's own status, when failed
    std::string message; // the store's own text for `code`; may be empty

    static SecretOutcome found(std::string bytes) { return { Kind::found, std::move(bytes), 0, {} }; }
    static SecretOutcome notFound() { return { Kind::notFound, {}, 0, {} }; }
    static SecretOutcome failed(int status, std::string text) { return { Kind::failed, {}, status, std::move(text) }; }
};

// A place to keep one secret per account name. Calls are synchronous and may be slow or prompt
// the user, so they are never made on the user-interface thread. A successful write or removal
// reports `found`.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    virtual SecretOutcome read(const std::string &account) = 0;
    virtual SecretOutcome write(const std::string &account, const std::string &data) = 0;
    virtual SecretOutcome remove(const std::string &account) = 0;
};

} // namespace tallowick
