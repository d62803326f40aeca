#include "core/ConnectionProfile.h"

#include "core/AppError.h"
#include "core/Utf8Text.h"

namespace tallowick
{

std::string ConnectionProfile::endpoint() const
{
    return host + ":" + std::to_string(port);
}

void ConnectionProfile::validate() const
{
    // Name and host ignore surrounding spaces and tabs; the user name is taken as typed, so a
    // user made only of blanks is accepted on purpose.
    if (trimSpacesAndTabs(name).empty()) {
        throw AppError("Give this connection a name.");
    }
    if (trimSpacesAndTabs(host).empty()) {
        throw AppError("Enter the MySQL server hostname.");
    }
    if (port < 1 || port > 65535) {
        throw AppError("The port must be between 1 and 65535.");
    }
    if (user.empty()) {
        throw AppError("Enter a MySQL username.");
    }
}

} // namespace tallowick
