#include "client/ScriptReplay.h"

#include "core/AppError.h"
#include "core/FileText.h"
#include "core/InsertRows.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "core/Utf8Text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>

namespace tallowick
{

namespace
{

constexpr std::size_t statementShown = 120;

// The 1-based line of the first byte that is not UTF-8, counting from `firstLine`.
std::int64_t lineOfInvalidByte(std::string_view text, std::int64_t firstLine)
{
    std::int64_t line = firstLine;
    for (std::size_t pos = 0; pos < text.size();) {
        const DecodedChar c = decodeUtf8At(text, pos);
        if (c.codePoint == 0xFFFD && text.substr(pos, 3) != "\xEF\xBF\xBD") {
            break;
        }
        line += text[pos] == '\n' ? 1 : 0;
        pos += c.length;
    }
    return line;
}

bool containsWord(std::string_view text, std::string_view upperWord)
{
    const auto match = std::search(text.begin(), text.end(), upperWord.begin(), upperWord.end(), [](char a, char b) {
        return (a >= 'a' && a <= 'z' ? static_cast<char>(a - ('a' - 'A')) : a) == b;
    });
    return match != text.end();
}

// Statements after which the file's own transaction or lock state decides what a later
// statement means, so from there on nothing may be grouped.
bool managesTransactions(const std::string &keyword, std::string_view statement)
{
    static constexpr std::array<std::string_view, 12> words { "START",
        "BEGIN",
        "COMMIT",
        "ROLLBACK",
        "SAVEPOINT",
        "RELEASE",
        "LOCK",
        "UNLOCK",
        "XA",
        "CALL",
        "FLUSH",
        "HANDLER" };
    if (std::find(words.begin(), words.end(), keyword) != words.end()) {
        return true;
    }
    return keyword == "SET" && (containsWord(statement, "AUTOCOMMIT") || containsWord(statement, "TRANSACTION"));
}

// What a versioned comment (/*!40101 … */) does is hidden from the keyword: it may set the SQL
// mode or start a transaction.
bool mentionsTransactions(std::string_view statement)
{
    static constexpr std::array<std::string_view, 8> words {
        "AUTOCOMMIT", "TRANSACTION", "LOCK", "BEGIN", "COMMIT", "ROLLBACK", "SAVEPOINT", "XA"
    };
    return std::any_of(
        words.begin(), words.end(), [statement](std::string_view word) { return containsWord(statement, word); });
}

bool readsSessionResults(std::string_view statement)
{
    static constexpr std::array<std::string_view, 9> words { "LAST_INSERT_ID",
        "ROW_COUNT",
        "FOUND_ROWS",
        "@@IDENTITY",
        "WARNING_COUNT",
        "ERROR_COUNT",
        "SHOW WARNINGS",
        "SHOW ERRORS",
        "DIAGNOSTICS" };
    return std::any_of(
        words.begin(), words.end(), [statement](std::string_view word) { return containsWord(statement, word); });
}

std::string statementStart(const std::string &statement)
{
    std::string shown;
    for (std::size_t pos = 0; pos < statement.size() && shown.size() < statementShown;) {
        const DecodedChar c = decodeUtf8At(statement, pos);
        if (c.codePoint == '\n' || c.codePoint == '\r' || c.codePoint == '\t') {
            if (!shown.ends_with(' ')) {
                shown += ' ';
            }
        } else {
            shown.append(statement, pos, c.length);
        }
        pos += c.length;
    }
    return shown.size() < statement.size() ? shown + "…" : shown;
}

constexpr const char *earlierApplied = " Every statement before it was applied.";

AppError failureAt(const SQL::ScriptStatement &statement, const AppError &error, const std::string &after)
{
    const std::string start = statementStart(statement.text);
    return AppError("Stopped at line " + std::to_string(statement.line) + ": " + error.message()
        + ". The statement began: " + start + (start.ends_with("…") ? "" : ".") + after);
}

// A table name as INSERT writes it, bare or back-quoted, possibly after its database.
std::pair<std::string, std::string> splitTableName(std::string_view written)
{
    std::vector<std::string> parts(1);
    bool quoted = false;
    for (std::size_t i = 0; i < written.size(); ++i) {
        const char c = written[i];
        if (c == '`') {
            if (quoted && i + 1 < written.size() && written[i + 1] == '`') {
                parts.back() += '`';
                ++i;
            } else {
                quoted = !quoted;
            }
        } else if (c == '.' && !quoted) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts.size() == 2 ? std::pair { parts[0], parts[1] } : std::pair { std::string(), parts[0] };
}

} // namespace

ScriptReplay::ScriptReplay(MySQLConnection &connection, ScriptReplayLimits limits)
    : m_connection(connection)
    , m_limits(limits)
{
}

ScriptReplay::Survey ScriptReplay::survey(const std::string &path, const std::atomic<bool> *cancel) const
{
    Survey result;
    SQL::StatementStream stream;
    const auto split = [&](const auto &step) {
        try {
            step();
        } catch (const AppError &error) {
            throw AppError(path + ": " + error.message() + " Nothing was run.");
        }
        for (SQL::ScriptStatement statement; stream.next(statement);) {
            ++result.statements;
            result.readsSessionResults = result.readsSessionResults || readsSessionResults(statement.text);
        }
    };
    const auto notUtf8 = [&path](std::int64_t line) {
        return AppError(path + " is not UTF-8 text (line " + std::to_string(line) + "). Nothing was run.");
    };
    std::string carried;
    std::int64_t lines = 1;
    readFilePieces(path, m_limits.pieceBytes, [&](std::string_view piece, std::uint64_t done) {
        carried.append(piece);
        const std::string_view whole = std::string_view(carried).substr(0, wholeCharactersEnd(carried));
        if (!isValidUtf8(whole)) {
            throw notUtf8(lineOfInvalidByte(whole, lines));
        }
        lines += std::count(whole.begin(), whole.end(), '\n');
        split([&] { stream.feed(whole); });
        carried.erase(0, whole.size());
        result.bytes = done;
        return !(cancel && cancel->load());
    });
    if (!carried.empty()) {
        throw notUtf8(lines);
    }
    split([&] { stream.finish(); });
    return result;
}

ScriptReplayOutcome ScriptReplay::run(
    const std::string &path, const Progress &progress, const std::atomic<bool> *cancel)
{
    const Survey surveyed = survey(path, cancel);
    if (cancel && cancel->load()) {
        return { 0, true };
    }
    // What one statement left behind (its row count, generated key or warnings) would read a
    // group's COMMIT or a combined statement instead; such a file runs plainly.
    m_plain = surveyed.readsSessionResults;
    readSessionSettings();
    ScriptReplayProgress report { 0, surveyed.bytes, 0, surveyed.statements };
    SQL::StatementStream stream;
    bool cancelled = false;
    try {
        const auto runReady = [&] {
            for (SQL::ScriptStatement statement; !cancelled && stream.next(statement);) {
                if (cancel && cancel->load()) {
                    cancelled = true;
                    break;
                }
                runStatement(std::move(statement));
            }
        };
        readFilePieces(path, m_limits.pieceBytes, [&](std::string_view piece, std::uint64_t done) {
            stream.feed(piece);
            runReady();
            report.bytesDone = done;
            report.statementsDone = m_done;
            if (progress && !cancelled) {
                progress(report);
            }
            return !cancelled;
        });
        if (!cancelled) {
            stream.finish();
            runReady();
        }
        closeGroup();
        if (progress && !cancelled) {
            report.statementsDone = m_done;
            progress(report);
        }
    } catch (...) {
        // Whatever stopped the run, the statements already sent stay as a plain run leaves them.
        try {
            settle();
            if (m_groupOpen) {
                m_connection.query("COMMIT");
            }
        } catch (const AppError &) {
            // The connection is gone; the error that ended the run says more.
        }
        throw;
    }
    return { m_done, cancelled };
}

void ScriptReplay::runStatement(SQL::ScriptStatement statement)
{
    if (m_rewrite) {
        std::optional<std::string> rewritten = m_rewrite(statement.text);
        if (!rewritten) {
            return;
        }
        statement.text = std::move(*rewritten);
    }
    const std::string keyword = SQL::leadingKeyword(statement.text);
    if (keyword.empty()) {
        closeGroup();
        m_plain = m_plain || mentionsTransactions(statement.text);
        m_transactionalTables.clear();
        runAlone(statement);
        readSessionSettings();
        return;
    }
    if (!m_plain && managesTransactions(keyword, statement.text)) {
        closeGroup();
        m_plain = true;
    }
    if (m_plain) {
        runAlone(statement);
        return;
    }
    // Only rows for a table that rolls back join the program's transaction: rows a deadlock cannot
    // take back would be applied twice by the replay that follows one.
    const auto parts = keyword == "INSERT" || keyword == "REPLACE" ? SQL::insertRows(statement.text, m_backslashEscapes)
                                                                   : std::nullopt;
    if (parts && transactional(parts->table)) {
        openGroup();
        if (m_strict) {
            const std::string head(parts->head);
            const std::string rows(parts->rows);
            addToCombination(std::move(statement), head, rows);
        } else {
            // Without a strict mode a multi-row INSERT stores a default where one row alone fails
            // (NULL into NOT NULL): rows stay statements of their own.
            sendCombination();
            runInGroup(statement);
        }
        if (m_groupBytes >= m_limits.groupBytes) {
            closeGroup();
        }
        return;
    }
    closeGroup();
    if (keyword != "INSERT" && keyword != "REPLACE") {
        // A definition or a USE may change which table a name means and how it stores rows.
        m_transactionalTables.clear();
    }
    runAlone(statement);
    if (keyword == "SET") {
        readSessionSettings();
    }
}

void ScriptReplay::addToCombination(SQL::ScriptStatement statement, std::string_view head, std::string_view rows)
{
    const std::size_t limit = std::min(m_limits.combinedBytes, m_packetBytes / 2);
    if (!m_combined.empty() && (head != m_head || m_head.size() + m_rows.size() + rows.size() + 2 > limit)) {
        sendCombination();
    }
    if (m_combined.empty()) {
        m_head = head;
        m_rows.clear();
    }
    if (!m_rows.empty()) {
        m_rows += ',';
    }
    m_rows += rows;
    m_combined.push_back(std::move(statement));
}

void ScriptReplay::sendCombination()
{
    if (m_combined.empty()) {
        return;
    }
    settle();
    openGroup(); // a replay in settle() may have ended the group
    // Sent without waiting: the next rows are read and gathered while the server inserts these.
    m_connection.send(m_head + ' ' + m_rows);
    m_inFlight = std::move(m_combined);
    m_combined.clear();
    m_rows.clear();
}

void ScriptReplay::settle()
{
    if (m_inFlight.empty()) {
        return;
    }
    std::vector<SQL::ScriptStatement> combined = std::move(m_inFlight);
    m_inFlight.clear();
    bool applied = false;
    try {
        m_connection.finishSent();
        applied = true;
    } catch (const AppError &) {
        if (m_groupOpen && groupRolledBack()) {
            replayLostGroup();
        }
    }
    for (SQL::ScriptStatement &statement : combined) {
        if (applied) {
            m_groupBytes += statement.text.size();
            m_group.push_back(std::move(statement));
            ++m_done;
        } else if (m_groupOpen) {
            // The combined statement left nothing behind; row by row finds the failing one.
            runInGroup(statement);
        } else {
            runAlone(statement);
        }
    }
}

QueryResult ScriptReplay::ask(const std::string &sql)
{
    settle();
    return m_connection.query(sql);
}

void ScriptReplay::runInGroup(const SQL::ScriptStatement &statement)
{
    // A failure of the statements in flight is theirs, not this one's: settled outside the try.
    settle();
    openGroup();
    try {
        m_connection.query(statement.text);
    } catch (const AppError &error) {
        if (groupRolledBack()) {
            // The server rolled back the whole transaction (a deadlock): apply what it held as a
            // plain run would have, then try this statement on its own.
            replayLostGroup();
            runAlone(statement);
            return;
        }
        fail(statement, error);
    }
    m_groupBytes += statement.text.size();
    m_group.push_back(statement);
    ++m_done;
}

void ScriptReplay::runAlone(const SQL::ScriptStatement &statement)
{
    settle();
    try {
        m_connection.query(statement.text);
    } catch (const AppError &error) {
        throw failureAt(statement, error, earlierApplied);
    }
    ++m_done;
}

void ScriptReplay::openGroup()
{
    if (!m_groupOpen) {
        ask("START TRANSACTION");
        m_groupOpen = true;
    }
}

void ScriptReplay::closeGroup()
{
    sendCombination();
    settle();
    if (!m_groupOpen) {
        return;
    }
    try {
        m_connection.query("COMMIT");
    } catch (const AppError &error) {
        if (groupRolledBack()) {
            replayLostGroup();
            return;
        }
        if (m_group.empty()) {
            throw;
        }
        // Say how far the file certainly got: the failed commit may have kept nothing since.
        const std::string first = std::to_string(m_group.front().line);
        m_groupOpen = false;
        throw AppError("Stopped at the commit of the statements from line " + first + " on: " + error.message()
            + ". They may not have been applied; every statement before line " + first + " was.");
    }
    m_groupOpen = false;
    m_group.clear();
    m_groupBytes = 0;
}

bool ScriptReplay::groupRolledBack()
{
    try {
        return !m_connection.transactionOpen();
    } catch (const AppError &) {
        // The server cannot be asked; the error that brought us here is the one to report.
        return false;
    }
}

void ScriptReplay::fail(const SQL::ScriptStatement &statement, const AppError &error)
{
    const std::int64_t firstOfGroup = m_group.empty() ? statement.line : m_group.front().line;
    std::string after = earlierApplied;
    // Rows gathered after the failing statement never run, as in a plain run.
    m_combined.clear();
    m_rows.clear();
    try {
        // Only this statement failed: what ran before it is kept, as a plain run keeps it.
        closeGroup();
    } catch (const AppError &) {
        after = " The connection failed, so the statements from line " + std::to_string(firstOfGroup)
            + " on may not have been applied.";
    }
    throw failureAt(statement, error, after);
}

void ScriptReplay::replayLostGroup()
{
    m_groupOpen = false;
    try {
        // After a deadlock the server still treats the session as inside START TRANSACTION; what
        // runs next must commit on its own again.
        m_connection.query("ROLLBACK");
    } catch (const AppError &) {
        // The statements below report a connection that is gone.
    }
    std::vector<SQL::ScriptStatement> lost = std::move(m_group);
    m_group.clear();
    m_groupBytes = 0;
    m_done -= static_cast<std::int64_t>(lost.size());
    for (const SQL::ScriptStatement &statement : lost) {
        runAlone(statement);
    }
}

bool ScriptReplay::transactional(std::string_view table)
{
    if (const auto known = m_transactionalTables.find(table); known != m_transactionalTables.end()) {
        return known->second;
    }
    const auto [database, name] = splitTableName(table);
    settle();
    const bool result = m_connection.tableRollsBack(database, name).value_or(false);
    m_transactionalTables.emplace(std::string(table), result);
    return result;
}

void ScriptReplay::readSessionSettings()
{
    const QueryResult answer = ask("SELECT @@SESSION.sql_mode, @@SESSION.max_allowed_packet");
    const Row &row = answer.rows.at(0);
    const std::string mode = row.at(0).value_or("");
    m_backslashEscapes = mode.find("NO_BACKSLASH_ESCAPES") == std::string::npos;
    m_strict
        = mode.find("STRICT_TRANS_TABLES") != std::string::npos || mode.find("STRICT_ALL_TABLES") != std::string::npos;
    m_packetBytes = static_cast<std::size_t>(std::stoull(row.at(1).value_or("1048576")));
}

} // namespace tallowick
