// Running a SQL file of any size without opening it in the editor.
#include "client/MySQLConnection.h"
#include "client/ScriptReplay.h"
#include "core/AppError.h"
#include "core/FileText.h"
#include "core/MainThread.h"
#include "core/SqlQuoting.h"
#include "session/ServerSession.h"
#include "session/TableBrowsing.h"
#include "session/UserPrompts.h"

#include <QFileInfo>
#include <chrono>

namespace tallowick
{

namespace
{

std::string progressText(const std::string &name, const ScriptReplayProgress &progress)
{
    return "Running " + name + " · " + byteText(progress.bytesDone) + " of " + byteText(progress.bytesTotal) + " · "
        + std::to_string(progress.statementsDone) + " of " + std::to_string(progress.statementsTotal) + " statements";
}

struct FileRunResult {
    ScriptReplayOutcome outcome;
    bool databaseGone = false; // the file dropped the database the session had chosen
    double seconds = 0;
    QueryResult databases;
    std::optional<QueryResult> tables;
};

} // namespace

void ServerSession::runSqlFile()
{
    if (!m_busy && mayRunFile()) {
        if (const std::optional<std::string> path = m_prompts.chooseFileToOpen(UserPrompts::FileKind::sql)) {
            startFileRun(*path, {});
        }
    }
}

// Refused with the reason shown, before any question: a file may hold writes of any kind.
bool ServerSession::mayRunFile()
{
    if (m_profile.readOnly) {
        setError("This connection is read-only. SELECT, SHOW, DESCRIBE, and EXPLAIN are allowed.");
        return false;
    }
    if (!m_connected) {
        setError("Connect to this server first.");
        return false;
    }
    return true;
}

void ServerSession::startFileRun(const std::string &path, const std::string &lead)
{
    if (m_busy || !mayRunFile()) {
        return;
    }
    const QFileInfo info(QString::fromStdString(path));
    const std::string name = info.fileName().toStdString();
    const std::string target
        = m_profile.name + " (" + m_profile.endpoint() + (m_database.empty() ? "" : ", database " + m_database) + ")";
    if (!m_prompts.confirmAction("Run " + name + "?",
            lead + name + " (" + byteText(static_cast<std::uint64_t>(info.size())) + ") runs on " + target
                + " without review, statement by statement, and stops at the first failure. What ran before it "
                  "stays applied.",
            "Run File")) {
        return;
    }
    const auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_transferCancelled = cancelled;
    const QPointer<ServerSession> guard(this);
    perform<FileRunResult>(
        "Running " + name + "…",
        [path, name, cancelled, guard, database = m_database](MySQLConnection &client) {
            const auto started = std::chrono::steady_clock::now();
            FileRunResult result;
            std::optional<AppError> failure;
            try {
                ScriptReplay replay(client);
                result.outcome = replay.run(
                    path,
                    [guard, name](const ScriptReplayProgress &progress) {
                        const int percent = progress.bytesTotal == 0
                            ? 100
                            : static_cast<int>(progress.bytesDone * 100 / progress.bytesTotal);
                        postToMainThread(guard, [text = progressText(name, progress), percent](ServerSession &session) {
                            session.reportProgress(text, percent);
                        });
                    },
                    cancelled.get());
            } catch (const AppError &error) {
                failure = error;
            }
            // Whatever the file set for itself (SQL mode, time zone, checks, variables, its own
            // database) must not stay on the connection the rest of the workspace uses.
            try {
                client.resetSession();
            } catch (const AppError &) {
                if (!failure) {
                    throw;
                }
            }
            try {
                if (!database.empty()) {
                    client.use(database);
                }
            } catch (const AppError &) {
                result.databaseGone = true;
            }
            if (failure) {
                throw AppError(*cancelled ? "Cancelled. " + failure->message() : failure->message());
            }
            result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
            result.databases = client.query("SHOW DATABASES");
            if (!database.empty() && !result.databaseGone) {
                result.tables = client.query("SHOW FULL TABLES FROM " + SQL::identifier(database));
            }
            return result;
        },
        [name, database = m_database](ServerSession &session, const FileRunResult &result) {
            session.setDatabases(databaseNames(result.databases));
            if (result.databaseGone) {
                session.setDatabase(std::string());
                session.setSelectedTable(std::string());
            }
            if (result.tables) {
                TableLists tables = session.m_tables;
                tables[database] = tableListFrom(*result.tables);
                session.setTables(tables);
            }
            // A file may have changed any schema.
            session.forgetCatalog();
            session.loadCatalog(session.m_database);
            const std::string count = std::to_string(result.outcome.statements) + " statements";
            session.setStatus(result.outcome.cancelled
                    ? "Cancelled " + name + " after " + count + "; they stay applied"
                    : name + ": " + count + " run · " + formatSeconds(result.seconds));
        });
}

} // namespace tallowick
