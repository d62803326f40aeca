// How much the session layer adds to a query: the time from run() of a 10,000-row SELECT to its
// result stored in the tab, against the client's bare query() of the same statement on the same
// server. Both are measured alternately in one process; medians are reported.
//
//   tallowick_session_bench <database>   (the table <database>.bench, made by tallowick_client_bench)
//
// The account comes from TALLOWICK_TEST_USER / TALLOWICK_TEST_PASSWORD / TALLOWICK_TEST_PORT.
#include "bench/BenchServer.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/SqlQuoting.h"
#include "credentials/Keychain.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <mysql.h>
#include <vector>

using namespace tallowick;

namespace
{

class EnvironmentPassword final : public SecretStore
{
public:
    SecretOutcome read(const std::string &) override { return SecretOutcome::found(bench::testServerPassword()); }
    SecretOutcome write(const std::string &, const std::string &) override { return SecretOutcome::found({}); }
    SecretOutcome remove(const std::string &) override { return SecretOutcome::found({}); }
};

class NoPrompts final : public UserPrompts
{
public:
    bool confirmAction(const std::string &, const std::string &, const std::string &) override { return false; }
    bool confirmSQL(const std::string &, const std::string &, const std::string &) override { return false; }
    std::optional<std::string> chooseFileToSave(const std::string &, FileKind) override { return std::nullopt; }
    std::optional<std::string> chooseFileToOpen(FileKind) override { return std::nullopt; }
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Runs the event loop until the session is idle again.
void waitUntilIdle(ServerSession &session)
{
    QEventLoop loop;
    QObject::connect(&session, &ServerSession::busyChanged, &loop, [&session, &loop] {
        if (!session.busy()) {
            loop.quit();
        }
    });
    if (session.busy()) {
        loop.exec();
    }
}

} // namespace

int main(int argc, char *argv[])
{
    mysql_server_init(0, nullptr, nullptr);
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::cerr << "usage: tallowick_session_bench DATABASE\n";
        return 2;
    }
    const ClientThreadScope scope;
    const ConnectionProfile profile = bench::testServerProfile();
    const std::string sql = "SELECT * FROM " + SQL::qualified(argv[1], "bench") + " LIMIT 10000";

    const auto keychain = std::make_shared<Keychain>(
        std::make_shared<EnvironmentPassword>(), std::make_shared<CredentialMemoryCache>());
    NoPrompts prompts;
    ServerSession session(profile, keychain, prompts);
    session.connect();
    waitUntilIdle(session);
    MySQLConnection bare(profile);
    bare.connect(bench::testServerPassword());
    if (!session.connected()) {
        std::cerr << session.error().value_or("the session did not connect") << '\n';
        return 1;
    }

    std::vector<double> bareTimes;
    std::vector<double> sessionTimes;
    for (int round = 0; round < 81; ++round) {
        auto start = std::chrono::steady_clock::now();
        const QueryResult direct = bare.query(sql);
        bareTimes.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());

        start = std::chrono::steady_clock::now();
        session.run(sql);
        waitUntilIdle(session);
        sessionTimes.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (session.error() || session.tabs()[0].result->rows.size() != direct.rows.size()) {
            std::cerr << "the session run did not produce the same result\n";
            return 1;
        }
    }
    const double bareMedian = median(bareTimes);
    const double sessionMedian = median(sessionTimes);
    std::printf("bare query():   %.2f ms (median of %zu)\n", bareMedian * 1000, bareTimes.size());
    std::printf("session run():  %.2f ms (median of %zu), result stored in the tab\n",
        sessionMedian * 1000,
        sessionTimes.size());
    const double bareBest = *std::min_element(bareTimes.begin(), bareTimes.end());
    const double sessionBest = *std::min_element(sessionTimes.begin(), sessionTimes.end());
    std::printf("session layer overhead: %+.1f%% on the medians, %+.1f%% on the fastest runs (%.2f vs %.2f ms)\n",
        (sessionMedian / bareMedian - 1) * 100,
        (sessionBest / bareBest - 1) * 100,
        sessionBest * 1000,
        bareBest * 1000);
    return 0;
}
