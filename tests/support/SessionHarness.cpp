#include "support/SessionHarness.h"

#include "core/UuidText.h"

#include <QDeadlineTimer>
#include <QSignalSpy>

namespace tallowick::test
{

ConnectionProfile SessionHarness::profile(const std::string &name)
{
    ConnectionProfile result = server.profile();
    result.name = name;
    secrets.items[uuidText(result.id)] = server.password;
    return result;
}

std::unique_ptr<ServerSession> SessionHarness::session(const ConnectionProfile &profile)
{
    return std::make_unique<ServerSession>(profile, keychain, prompts);
}

bool settle(ServerSession &session, int timeoutMilliseconds)
{
    QSignalSpy busyChanges(&session, &ServerSession::busyChanged);
    const QDeadlineTimer deadline(timeoutMilliseconds);
    while (session.busy()) {
        if (deadline.hasExpired()) {
            return false;
        }
        busyChanges.wait(static_cast<int>(std::max<qint64>(deadline.remainingTime(), 1)));
    }
    return true;
}

bool connectAndSettle(ServerSession &session)
{
    session.connect();
    return settle(session) && session.connected();
}

} // namespace tallowick::test
