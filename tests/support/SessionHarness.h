#pragma once

#include "credentials/Keychain.h"
#include "session/ServerSession.h"
#include "support/FakeSecretStore.h"
#include "support/ScriptedPrompts.h"
#include "support/TestServer.h"

#include <memory>

namespace tallowick::test
{

// A session against the disposable server with an in-memory keyring and scripted prompts.
struct SessionHarness {
    TestServer server = TestServer::fromEnvironment();
    std::shared_ptr<FakeSecretStore> secretStore = std::make_shared<FakeSecretStore>();
    FakeSecretStore &secrets = *secretStore;
    std::shared_ptr<Keychain> keychain
        = std::make_shared<Keychain>(secretStore, std::make_shared<CredentialMemoryCache>());
    ScriptedPrompts prompts;

    // A profile for the test server whose password is in the fake keyring.
    ConnectionProfile profile(const std::string &name = "Session test");

    std::unique_ptr<ServerSession> session(const ConnectionProfile &profile);
};

// Lets the event loop run until the session is idle (also across chained jobs). False on timeout.
bool settle(ServerSession &session, int timeoutMilliseconds = 30000);

// Connects and waits; false when the session did not end up connected.
bool connectAndSettle(ServerSession &session);

} // namespace tallowick::test
