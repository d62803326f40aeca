#pragma once

#include "core/ConnectionProfile.h"
#include "core/SshTunnelSettings.h"

#include <QObject>
#include <functional>
#include <optional>
#include <string>

namespace tallowick
{

// "Test connection": opens a connection to `profile` with `password` on the background pool,
// through `tunnel` when given (so both hops are tested; a host key not known yet is reported,
// not trusted), reads what the server says about itself and closes it again. `done` gets one
// line for the person, "Connected · MySQL <version> · <cipher>" (with " · through SSH <host>"
// for a tunnel) or the error, on the main thread and only while `receiver` exists.
void testProfile(const ConnectionProfile &profile,
    const std::string &password,
    const std::optional<SshTunnelSettings> &tunnel,
    const std::string &sshSecret,
    QObject *receiver,
    std::function<void(const std::string &result)> done);

} // namespace tallowick
