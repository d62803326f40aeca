// Saves one connection profile with its password, the way the connection sheet does, for the
// demo script: scripts/demo runs it before starting the application. The folder is the
// application's usual one (set XDG_DATA_HOME to keep it apart), the password goes to the keyring.
//
//   tallowick_demo_profile NAME HOST PORT USER DATABASE CA_PATH   (password on standard input)
#include "credentials/Keychain.h"
#include "credentials/QtKeychainStore.h"
#include "session/UserPrompts.h"
#include "store/AppStore.h"

#include <QCoreApplication>
#include <algorithm>
#include <iostream>
#include <mysql.h>
#include <string>

using namespace tallowick;

namespace
{

class NoPrompts final : public UserPrompts
{
public:
    bool confirmAction(const std::string &, const std::string &, const std::string &) override { return false; }
    bool confirmSQL(const std::string &, const std::string &, const std::string &) override { return false; }
    std::optional<std::string> chooseFileToSave(const std::string &, FileKind) override { return std::nullopt; }
    std::optional<std::string> chooseFileToOpen(FileKind) override { return std::nullopt; }
};

} // namespace

int main(int argc, char *argv[])
{
    mysql_server_init(0, nullptr, nullptr);
    QCoreApplication app(argc, argv);
    if (argc != 7) {
        std::cerr << "usage: tallowick_demo_profile NAME HOST PORT USER DATABASE CA_PATH < password\n";
        return 2;
    }
    std::string password;
    std::getline(std::cin, password);

    const auto keychain
        = std::make_shared<Keychain>(std::make_shared<QtKeychainStore>(), std::make_shared<CredentialMemoryCache>());
    NoPrompts prompts;
    AppStore store(std::nullopt, keychain, prompts);

    ConnectionProfile profile;
    const auto existing = std::find_if(store.profiles().begin(),
        store.profiles().end(),
        [&](const ConnectionProfile &p) { return p.name == argv[1]; });
    if (existing != store.profiles().end()) {
        profile = *existing; // keep its identity, so running the demo twice leaves one profile
    }
    profile.name = argv[1];
    profile.host = argv[2];
    profile.port = std::stoll(argv[3]);
    profile.user = argv[4];
    profile.database = argv[5];
    profile.caPath = argv[6];
    profile.tls = profile.caPath.empty() ? TLSMode::disabled : TLSMode::verify;
    profile.color = "teal";

    int status = 0;
    store.save(profile, password, [&status](const std::optional<std::string> &error) {
        if (error) {
            std::cerr << *error << '\n';
            status = 1;
        } else {
            std::cout << "Saved the connection profile and its password.\n";
        }
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    return status;
}
