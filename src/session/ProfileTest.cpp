#include "session/ProfileTest.h"

#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/MainThread.h"
#include "session/TunnelRequest.h"

namespace tallowick
{

void testProfile(const ConnectionProfile &profile,
    const std::string &password,
    const std::optional<SshTunnelSettings> &tunnel,
    const std::string &sshSecret,
    QObject *receiver,
    std::function<void(const std::string &result)> done)
{
    const QPointer<QObject> guard(receiver);
    runInBackground([guard, profile, password, tunnel, sshSecret, done = std::move(done)] {
        std::string result;
        {
            const ClientThreadScope scope;
            try {
                MySQLConnection connection(profile);
                if (tunnel) {
                    connection.setTunnel(tunnelRequest(*tunnel, sshSecret));
                }
                connection.connect(password);
                const std::string cipher = connection.cipher().empty() ? "unencrypted TCP" : connection.cipher();
                result = "Connected · MySQL " + connection.version() + " · " + cipher
                    + (tunnel ? " · through SSH " + tunnel->host : "");
                // A test holds no connection open longer than it takes to read the answer.
                connection.close();
            } catch (const std::exception &failure) {
                result = failure.what();
            }
        }
        postToMainThread(guard, [done, result](QObject &) { done(result); });
    });
}

} // namespace tallowick
