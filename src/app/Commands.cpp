#include "app/Commands.h"

#include "app/CommandLine.h"
#include "app/EntryMode.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "client/ScriptReplay.h"
#include "core/AppError.h"
#include "core/FileText.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "credentials/Keychain.h"
#include "credentials/QtKeychainStore.h"
#include "management/CsvImport.h"
#include "session/CsvImportRun.h"
#include "session/TunnelRequest.h"
#include "store/AppStore.h"

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace tallowick
{

namespace
{

using Clock = std::chrono::steady_clock;

ConnectionProfile savedProfile(const std::string &name)
{
    const std::vector<ConnectionProfile> profiles = AppStore::savedProfiles(AppStore::defaultFolder());
    for (const ConnectionProfile &profile : profiles) {
        if (profile.name == name) {
            return profile;
        }
    }
    std::string known;
    for (const ConnectionProfile &profile : profiles) {
        known += (known.empty() ? " Saved connections: " : ", ") + profile.name;
    }
    throw AppError("No saved connection is named \"" + name + "\"." + (known.empty() ? "" : known + "."));
}

std::optional<SshTunnelSettings> savedTunnel(const ConnectionProfile &profile)
{
    const SshTunnels tunnels = AppStore::savedTunnels(AppStore::defaultFolder());
    const auto found = tunnels.find(profile.id);
    return found == tunnels.end() ? std::nullopt : std::optional(found->second);
}

std::string password(const CommandRequest &request, const ConnectionProfile &profile, Keychain &keychain)
{
    if (!request.passwordStdin) {
        return keychain.load(profile.id);
    }
    std::string line;
    std::getline(std::cin, line);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

// Progress on standard error: a bar redrawn in place on a terminal, a plain line now and then
// otherwise, so a log file does not fill with bars.
class ProgressLine
{
public:
    ProgressLine()
        : m_terminal(isatty(STDERR_FILENO) == 1)
    {
    }

    ~ProgressLine()
    {
        if (m_drawn) {
            std::cerr << '\n' << std::flush;
        }
    }

    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void show(double fraction, const std::string &text)
    {
        const auto now = Clock::now();
        const auto gap = m_terminal ? std::chrono::milliseconds(100) : std::chrono::milliseconds(2000);
        if (m_drawn && now - m_last < gap && fraction < 1.0) {
            return;
        }
        m_last = now;
        const int percent = static_cast<int>(fraction * 100);
        if (m_terminal) {
            constexpr int width = 30;
            const int filled = percent * width / 100;
            std::cerr << "\r[" << std::string(static_cast<std::size_t>(filled), '#')
                      << std::string(static_cast<std::size_t>(width - filled), ' ') << "] " << percent << "% " << text
                      << "\x1b[K" << std::flush;
            m_drawn = true;
        } else {
            std::cerr << percent << "% " << text << '\n' << std::flush;
        }
    }

private:
    bool m_terminal;
    bool m_drawn = false;
    Clock::time_point m_last;
};

std::string secondsSince(Clock::time_point start)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << std::chrono::duration<double>(Clock::now() - start).count();
    return text.str();
}

void runFile(const CommandRequest &request, MySQLConnection &connection)
{
    const auto start = Clock::now();
    ScriptReplayOutcome outcome;
    {
        ProgressLine progress;
        outcome = ScriptReplay(connection)
                      .run(
                          request.file,
                          [&progress](const ScriptReplayProgress &report) {
                              progress.show(
                                  report.bytesTotal == 0 ? 1.0 : double(report.bytesDone) / double(report.bytesTotal),
                                  std::to_string(report.statementsDone) + " of "
                                      + std::to_string(report.statementsTotal) + " statements");
                          },
                          nullptr);
    }
    std::cout << outcome.statements << " statements run in " << secondsSince(start) << " s\n" << std::flush;
}

void exportDatabase(const CommandRequest &request, MySQLConnection &connection)
{
    const auto start = Clock::now();
    TableDigests digests;
    connection.backupReplacing(
        request.database,
        request.output,
        [](const std::string &name) { std::cerr << "Exporting " << name << "…\n"
                                                << std::flush; },
        &digests);
    std::string verified;
    if (request.verify) {
        std::cerr << "Verifying the export in a scratch database…\n" << std::flush;
        try {
            verified = " · " + connection.verifyExport(request.output, request.database, digests);
        } catch (const AppError &failure) {
            throw AppError("Exported " + request.database + " to " + request.output
                + ", but the export does not verify. " + failure.message());
        }
    }
    std::cout << "Exported " << request.database << " to " << request.output << " in " << secondsSince(start) << " s"
              << verified << "\n"
              << std::flush;
}

void exportCsv(const CommandRequest &request, MySQLConnection &connection)
{
    const auto start = Clock::now();
    const std::string sql
        = request.table.empty() ? request.query : "SELECT * FROM " + SQL::qualified(request.database, request.table);
    if (SQL::requiresReview(sql)) {
        throw AppError("export-csv runs only SELECT, SHOW, DESCRIBE, and EXPLAIN.");
    }
    const std::int64_t rows = connection.exportCsv(sql, request.output, [](std::int64_t done) {
        std::cerr << "Exported " << done << " rows…\n" << std::flush;
    });
    std::cout << "Exported " << rows << " rows to " << request.output << " in " << secondsSince(start) << " s\n"
              << std::flush;
}

void importCsv(const CommandRequest &request, MySQLConnection &connection)
{
    const auto start = Clock::now();
    const CsvImportPlan plan
        = planCsvImportFile(request.file, connection.columns(request.database, request.table), true);
    std::size_t rows = 0;
    {
        ProgressLine line;
        rows = runCsvImport(
            connection,
            request.database,
            request.table,
            request.file,
            plan,
            [&plan, &line](const CsvImportProgress &progress) {
                line.show(progress.bytesTotal == 0 ? 1.0 : double(progress.bytesDone) / double(progress.bytesTotal),
                    csvImportStatus(progress.rowsDone, plan.rowCount, progress.bytesDone, progress.bytesTotal));
            },
            csvDefaultStatementBytes);
    }
    std::cout << "Imported " << csvRowCountText(rows) << " into " << request.database << "." << request.table << " in "
              << secondsSince(start) << " s\n"
              << std::flush;
}

void execute(const CommandRequest &request)
{
    const ConnectionProfile profile = savedProfile(request.connection);
    if ((request.command == "run-file" || request.command == "import-csv") && profile.readOnly) {
        throw AppError("The connection \"" + profile.name + "\" is read-only; " + request.command + " writes.");
    }
    if (request.verify && profile.readOnly) {
        throw AppError("The connection \"" + profile.name
            + "\" is read-only; --verify creates a scratch database. Export without --verify.");
    }
    Keychain keychain(std::make_shared<QtKeychainStore>(), std::make_shared<CredentialMemoryCache>());
    const std::string secret = password(request, profile, keychain);
    const ClientThreadScope scope;
    MySQLConnection connection(profile);
    if (const std::optional<SshTunnelSettings> tunnel = savedTunnel(profile)) {
        SshTunnelRequest through = tunnelRequest(*tunnel, loadSshSecret(keychain, profile.id, tunnel));
        through.acceptNewHostKey = [accept = request.acceptNewHostKey](const SshHostKey &key) -> bool {
            if (!accept) {
                throw AppError("SSH: " + key.host + " is not a known host yet (its key is " + key.fingerprint
                    + "). Run again with --accept-new-host-key to trust it.");
            }
            std::cerr << "Trusting the new SSH host key " << key.fingerprint << " of " << key.host << ":" << key.port
                      << ".\n"
                      << std::flush;
            return true;
        };
        connection.setTunnel(std::move(through));
    }
    connection.connect(secret);
    if (!request.database.empty()) {
        connection.use(request.database);
    }
    if (request.command == "run-file") {
        runFile(request, connection);
    } else if (request.command == "export-csv") {
        exportCsv(request, connection);
    } else if (request.command == "import-csv") {
        importCsv(request, connection);
    } else {
        exportDatabase(request, connection);
    }
}

} // namespace

bool isCommand(const std::vector<std::string> &arguments)
{
    try {
        return parseCommand(arguments).has_value();
    } catch (const UsageError &) {
        return true;
    }
}

int runCommandLine(const std::vector<std::string> &arguments, int &argc, char **argv)
{
    std::optional<CommandRequest> request;
    try {
        request = parseCommand(arguments);
    } catch (const UsageError &error) {
        std::cerr << error.what() << '\n' << commandUsage(arguments.at(1)) << std::flush;
        return 2;
    }
    if (request->help) {
        std::cout << commandUsage(request->command) << std::flush;
        return 0;
    }
    // The keyring answers through this event loop; the command itself runs beside it.
    QCoreApplication app(argc, argv);
    int status = 1;
    std::thread worker([&] {
        status = runNonInteractive([&] { execute(*request); }, std::cerr);
        QMetaObject::invokeMethod(
            &app, [] { QCoreApplication::exit(); }, Qt::QueuedConnection);
    });
    QCoreApplication::exec();
    worker.join();
    return status;
}

} // namespace tallowick
