#pragma once

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/ScriptSplitter.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tallowick
{

struct ScriptReplayLimits {
    std::size_t pieceBytes = 1 << 20; // read from the file at a time
    std::size_t combinedBytes = 256 << 10; // the largest INSERT made of several
    std::size_t groupBytes = 8 << 20; // statements kept for one transaction before its COMMIT
};

struct ScriptReplayProgress {
    std::uint64_t bytesDone = 0;
    std::uint64_t bytesTotal = 0;
    std::int64_t statementsDone = 0;
    std::int64_t statementsTotal = 0;
};

struct ScriptReplayOutcome {
    std::int64_t statements = 0; // statements run
    bool cancelled = false;
};

// Runs a SQL file of any size on a connection, leaving the database as running its statements
// one by one, in order, with autocommit would, and stopping at the first failure.
//
// The file is read twice as a stream, never held: first to refuse what cannot run (not UTF-8,
// an unterminated quote or comment at the end) before anything is sent, then to run it. To avoid
// one commit per row, consecutive INSERT and REPLACE statements run inside a transaction of the
// program's own, and plain ones into the same transactional table are sent as one statement.
// Whatever goes wrong inside such a group ends as the plain run would: a failing combined
// statement is rerun row by row, a failing statement keeps what ran before it (committed), and a
// transaction the server rolled back whole (a deadlock) is replayed statement by statement. A
// file that manages transactions or locks itself runs plainly from that statement on, and one
// that reads what a statement left behind (ROW_COUNT(), LAST_INSERT_ID(), warnings) runs plainly
// throughout.
class ScriptReplay
{
public:
    using Progress = std::function<void(const ScriptReplayProgress &)>;

    explicit ScriptReplay(MySQLConnection &connection, ScriptReplayLimits limits = {});

    // `progress` is called on the calling thread after each piece of the file; `cancel` is looked
    // at between statements, and what ran before it stays applied. Throws AppError naming the
    // file's line, the server's error and the start of the statement that failed.
    ScriptReplayOutcome run(const std::string &path, const Progress &progress, const std::atomic<bool> *cancel);

    // Each statement passes through `rewrite` before it runs; no value skips it.
    using Rewrite = std::function<std::optional<std::string>(const std::string &statement)>;
    void setRewrite(Rewrite rewrite) { m_rewrite = std::move(rewrite); }

private:
    struct Survey {
        std::uint64_t bytes = 0;
        std::int64_t statements = 0;
        bool readsSessionResults = false;
    };

    Survey survey(const std::string &path, const std::atomic<bool> *cancel) const;
    void runStatement(SQL::ScriptStatement statement);
    void addToCombination(SQL::ScriptStatement statement, std::string_view head, std::string_view rows);
    void sendCombination();
    // Waits for the combination in flight, and deals with its failure as a plain run would.
    void settle();
    // Every statement of the replay's own goes through here, after the one in flight.
    QueryResult ask(const std::string &sql);
    void runInGroup(const SQL::ScriptStatement &statement);
    void runAlone(const SQL::ScriptStatement &statement);
    void openGroup();
    void closeGroup();
    void replayLostGroup();
    bool groupRolledBack();
    [[noreturn]] void fail(const SQL::ScriptStatement &statement, const AppError &error);
    bool transactional(std::string_view table);
    void readSessionSettings();

    MySQLConnection &m_connection;
    const ScriptReplayLimits m_limits;
    Rewrite m_rewrite;
    bool m_plain = false; // the file runs its own transactions or locks
    bool m_backslashEscapes = true;
    bool m_strict = true; // the SQL mode has STRICT_TRANS_TABLES or STRICT_ALL_TABLES
    std::size_t m_packetBytes = 0;
    std::int64_t m_done = 0;

    bool m_groupOpen = false;
    std::vector<SQL::ScriptStatement> m_group; // run in the open transaction, for a replay
    std::size_t m_groupBytes = 0;

    std::string m_head; // of the combination being gathered
    std::string m_rows;
    std::vector<SQL::ScriptStatement> m_combined;
    std::vector<SQL::ScriptStatement> m_inFlight; // sent as one, answer not read yet

    std::map<std::string, bool, std::less<>> m_transactionalTables;
};

} // namespace tallowick
