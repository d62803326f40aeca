#pragma once

#include "core/ConnectionProfile.h"

#include <QObject>
#include <functional>
#include <string>

namespace tallowick
{

// "Test connection": opens a connection to `profile` with `password` on the background pool,
// reads what the server says about itself and closes it again. `done` gets one line for the
// person, "Connected · MySQL <version> · <cipher>" or the error, on the main thread and only
// while `receiver` exists.
void testProfile(const ConnectionProfile &profile,
    const std::string &password,
    QObject *receiver,
    std::function<void(const std::string &result)> done);

} // namespace tallowick
