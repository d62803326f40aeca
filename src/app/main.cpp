#include "app/Commands.h"
#include "app/DesktopApp.h"
#include "app/EntryMode.h"
#include "app/IntegrationChecks.h"
#include "app/UnitChecks.h"
#include "ui/AppIcon.h"
#include "version/Version.h"

#include <iostream>
#include <mysql.h>
#include <string>
#include <variant>
#include <vector>

namespace
{

template <class... Handlers> struct Overloaded : Handlers... {
    using Handlers::operator()...;
};

} // namespace

int main(int argc, char *argv[])
{
    using namespace tallowick;

    // The client library is initialised once for the process and never shut down explicitly.
    mysql_server_init(0, nullptr, nullptr);

    const std::vector<std::string> arguments(argv, argv + argc);
    return std::visit(
        Overloaded {
            [](const SelfTestMode &) { return runNonInteractive([] { runUnitChecks(std::cout); }, std::cerr); },
            [](const IntegrationTestMode &mode) {
                return runNonInteractive(
                    [&mode] { runIntegrationChecks(mode.port, mode.ca, mode.tunnel, std::cout); }, std::cerr);
            },
            [](const MakeIconMode &mode) {
                return runNonInteractive([&mode] { createAppIcon(mode.path, mode.size); }, std::cerr);
            },
            [](const VersionMode &) {
                std::cout << "Tallowick " << versionText << '\n' << std::flush;
                return 0;
            },
            [&argc, argv, &arguments](const DesktopMode &) {
                return isCommand(arguments) ? runCommandLine(arguments, argc, argv) : runDesktop(argc, argv);
            },
        },
        chooseEntryMode(arguments));
}
