// Query tabs, script runs and cancelling a running statement.
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/AsciiText.h"
#include "core/MainThread.h"
#include "core/SQL.h"
#include "credentials/Keychain.h"
#include "session/ServerSession.h"
#include "session/TableBrowsing.h"
#include "session/TunnelRequest.h"
#include "session/UserPrompts.h"

#include <QDateTime>
#include <algorithm>
#include <utility>

namespace tallowick
{

namespace
{

// Statements that may carry credentials never reach the history.
bool mayHoldCredentials(const std::string &text)
{
    const std::string upper = asciiUpper(text);
    return upper.find("IDENTIFIED") != std::string::npos || upper.find("PASSWORD") != std::string::npos;
}

} // namespace

void ServerSession::newTab(const std::string &sql, const std::optional<std::string> &title)
{
    QueryTab tab;
    tab.title = title.value_or("Query " + std::to_string(m_tabs.size() + 1));
    tab.sql = sql;
    changeTabs([&tab](QueryTabs &tabs) { tabs.push_back(tab); });
    setActiveTab(tab.id);
}

void ServerSession::adoptTabs(QueryTabs tabs)
{
    if (tabs.empty()) {
        return;
    }
    const QUuid active = tabs.front().id;
    changeTabs([&tabs](QueryTabs &mine) { mine = std::move(tabs); });
    setActiveTab(active);
}

void ServerSession::closeTab(const QUuid &id)
{
    if (m_tabs.size() < 2) {
        return;
    }
    const QueryTab *tab = findTab(id);
    if (tab && tab->dirty
        && !m_prompts.confirmAction("Close an unsaved query?",
            "Save this query to a SQL file before closing if you want to keep it.",
            "Close without saving")) {
        return;
    }
    changeTabs([&id](QueryTabs &tabs) {
        tabs.erase(
            std::remove_if(tabs.begin(), tabs.end(), [&id](const QueryTab &candidate) { return candidate.id == id; }),
            tabs.end());
    });
    if (m_activeTab == id && !m_tabs.empty()) {
        setActiveTab(m_tabs.front().id);
    }
}

void ServerSession::run(const std::optional<std::string> &sql)
{
    // A request while busy is dropped before anything is asked.
    if (m_busy || m_tabs.empty()) {
        return;
    }
    const QueryTab &target = m_tabs[tabIndex()];
    const QUuid targetId = target.id;
    const std::string text = sql.value_or(target.sql);

    std::vector<std::string> statements;
    try {
        statements = SQL::statements(text);
    } catch (const AppError &failure) {
        setError(failure.message());
        return;
    }
    if (statements.empty()) {
        setError("Enter a SQL statement first.");
        return;
    }
    const bool changesData = std::any_of(statements.begin(), statements.end(), [](const std::string &statement) {
        return SQL::requiresReview(statement);
    });
    if (changesData && m_profile.readOnly) {
        setError("This connection is read-only. SELECT, SHOW, DESCRIBE, and EXPLAIN are allowed.");
        return;
    }
    if (!m_connected) {
        setError("Connect to this server first.");
        return;
    }
    if (changesData
        && !m_prompts.confirmSQL(text,
            "Run SQL that may change data?",
            "Review the SQL and the target server before running it. DDL statements such as "
            "ALTER and DROP can commit immediately.")) {
        return;
    }
    perform<std::vector<QueryResult>>(
        "Running " + std::to_string(statements.size()) + " statement(s)…",
        [statements](MySQLConnection &client) {
            std::vector<QueryResult> results;
            for (std::size_t i = 0; i < statements.size(); ++i) {
                try {
                    results.push_back(client.query(statements[i]));
                } catch (const AppError &failure) {
                    throw AppError("Statement " + std::to_string(i + 1) + " failed: " + failure.message()
                        + "\nEarlier statements may already have committed.");
                }
            }
            return results;
        },
        [targetId, text, schemaChanged = changesSchema(statements)](
            ServerSession &session, std::vector<QueryResult> results) {
            session.storeRunResults(targetId, text, std::move(results));
            if (schemaChanged) {
                // Read again when completion next needs it, not at once: a read now would come
                // before the user's next statement and clear the warnings it may ask for.
                session.forgetCatalog();
            }
        });
}

void ServerSession::storeRunResults(const QUuid &tabId, const std::string &text, std::vector<QueryResult> results)
{
    QueryTab *tab = findTab(tabId);
    if (!tab) {
        return; // closed while it ran: nothing is shown and nothing is recorded
    }
    double total = 0;
    for (const QueryResult &result : results) {
        total += result.elapsed;
    }
    const std::string summary = results.empty() ? std::string("Complete") : results.back().message;
    const auto lastRows = results.empty() ? std::int64_t(0) : static_cast<std::int64_t>(results.back().rows.size());
    std::vector<QueryResult> replaced;
    changeTabs([tab, &results, &replaced](QueryTabs &) {
        // The shown result is one copy; the list itself is moved in, as results can be large.
        tab->result = results.empty() ? std::nullopt : std::optional<QueryResult>(results.back());
        tab->resultIndex = std::max<std::int64_t>(static_cast<std::int64_t>(results.size()) - 1, 0);
        replaced = std::exchange(tab->results, std::move(results));
    });
    releaseInBackground(std::move(replaced));
    setStatus(summary + " · " + formatSeconds(total));
    if (!mayHoldCredentials(text)) {
        QueryLog entry;
        entry.date = QDateTime::currentDateTimeUtc();
        entry.connection = m_profile.name;
        entry.database = m_database;
        entry.sql = text;
        entry.elapsed = total;
        entry.rows = lastRows;
        Q_EMIT historyEntryCreated(entry);
    }
    setMode(WorkspaceMode::query);
}

void ServerSession::cancel()
{
    if (m_busy && m_connectAbort) {
        m_connectAbort->abort();
        return;
    }
    if (!m_busy || m_connectionID == 0) {
        return;
    }
    if (m_transferCancelled) {
        *m_transferCancelled = true;
    }
    // Never on the session's own lane: that is busy with the very statement to stop.
    const QPointer<ServerSession> guard(this);
    runInBackground([guard,
                        keychain = m_keychain,
                        profile = m_profile,
                        tunnel = m_tunnel,
                        target = m_connectionID,
                        running = userJobRunning()] {
        std::string password;
        std::string secret;
        try {
            password = keychain->load(profile.id);
            secret = loadSshSecret(*keychain, profile.id, tunnel);
        } catch (const std::exception &) {
            return;
        }
        const ClientThreadScope scope;
        try {
            // Through a tunnel of its own: the server may be reachable only from the SSH host.
            MySQLConnection killer(profile);
            if (tunnel) {
                killer.setTunnel(tunnelRequest(*tunnel, secret));
            }
            killer.connect(password);
            // Connecting took a while: the user's job may have ended, and the connection may be
            // reading the catalog instead, which must not be mistaken for it.
            if (running()) {
                killer.query("KILL QUERY " + std::to_string(target));
            }
            killer.close();
        } catch (const std::exception &failure) {
            postToMainThread(guard, [message = std::string(failure.what())](ServerSession &session) {
                session.setError("Could not cancel: " + message);
            });
        }
    });
}

} // namespace tallowick
