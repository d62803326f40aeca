#include "session/ProfileTest.h"

#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/MainThread.h"

namespace tallowick
{

void testProfile(const ConnectionProfile &profile,
    const std::string &password,
    QObject *receiver,
    std::function<void(const std::string &result)> done)
{
    const QPointer<QObject> guard(receiver);
    runInBackground([guard, profile, password, done = std::move(done)] {
        std::string result;
        {
            const ClientThreadScope scope;
            try {
                MySQLConnection connection(profile);
                connection.connect(password);
                const std::string cipher = connection.cipher().empty() ? "unencrypted TCP" : connection.cipher();
                result = "Connected · MySQL " + connection.version() + " · " + cipher;
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
