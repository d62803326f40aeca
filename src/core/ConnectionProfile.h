#pragma once

#include "core/TLSMode.h"

#include <QUuid>
#include <cstdint>
#include <string>

namespace tallowick
{

// One saved server connection. It never holds a password: that lives in the credential store,
// keyed by `id`.
struct ConnectionProfile {
    QUuid id = QUuid::createUuid();
    std::string name;
    std::string host;
    std::int64_t port = 3306;
    std::string user;
    std::string database;
    TLSMode tls = TLSMode::disabled;
    std::string caPath;
    std::string color = "blue";
    bool readOnly = false;

    // host + ":" + port, with no brackets added around IPv6 literals.
    std::string endpoint() const;

    // Throws AppError with the first problem found, in the order name, host, port, user.
    void validate() const;

    bool operator==(const ConnectionProfile &) const = default;
};

} // namespace tallowick
