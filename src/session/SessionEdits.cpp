// Cell edits, row deletes, CSV and schema exports, script import, saving a query and the query
// builder's column lists.
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/Csv.h"
#include "core/FileText.h"
#include "core/MainThread.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "core/Utf8Text.h"
#include "core/UuidText.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"

#include <QDir>
#include <QFileInfo>
#include <cstdio>

namespace tallowick
{

namespace
{

constexpr std::size_t largestImportBytes = 20'000'000;

// Puts `value` into the cell (row, column) of `result`, when that cell exists.
void replaceCell(QueryResult &result, std::int64_t row, std::int64_t column, const Cell &value)
{
    if (row >= 0 && static_cast<std::size_t>(row) < result.rows.size() && column >= 0
        && static_cast<std::size_t>(column) < result.rows[static_cast<std::size_t>(row)].size()) {
        result.rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] = value;
    }
}

} // namespace

void ServerSession::editCell(std::int64_t row, std::int64_t column, const Cell &value)
{
    const QueryResult target = currentResult();
    if (row < 0 || static_cast<std::size_t>(row) >= target.rows.size() || column < 0
        || static_cast<std::size_t>(column) >= target.fields.size()) {
        return;
    }
    const WorkspaceMode editedIn = m_mode;
    const QUuid tabId = m_activeTab;
    perform(
        "Saving cell…",
        [target, row, column, value](MySQLConnection &client) { client.updateCell(target, row, column, value); },
        [editedIn, tabId, resultId = target.id, row, column, value](ServerSession &session) {
            if (editedIn == WorkspaceMode::data) {
                session.browse();
            } else if (QueryTab *tab = session.findTab(tabId)) {
                // Shown at once without re-running; values the server derives are not refreshed.
                session.changeTabs([tab, resultId, row, column, &value](QueryTabs &) {
                    if (tab->result && tab->result->id == resultId) {
                        replaceCell(*tab->result, row, column, value);
                    }
                    for (QueryResult &stored : tab->results) {
                        if (stored.id == resultId) {
                            replaceCell(stored, row, column, value);
                        }
                    }
                });
            }
            session.setStatus("Cell saved · rerun the query to refresh derived values");
        });
}

void ServerSession::deleteSelectedRow()
{
    if (m_mode != WorkspaceMode::data || m_selectedRow < 0
        || static_cast<std::size_t>(m_selectedRow) >= m_tableResult.rows.size()) {
        return;
    }
    if (!m_prompts.confirmAction("Delete this row?",
            "This permanently deletes one row from " + m_profile.name + " / " + m_database + " / " + m_selectedTable
                + ".",
            "Delete row")) {
        return;
    }
    perform(
        "Deleting row…",
        [result = m_tableResult, row = m_selectedRow, database = m_database, table = m_selectedTable](
            MySQLConnection &client) { client.deleteRow(result, row, database, table); },
        [](ServerSession &session) { session.browse(); });
}

void ServerSession::exportCSV()
{
    const std::optional<std::string> path = m_prompts.chooseFileToSave("query-results.csv", UserPrompts::FileKind::csv);
    if (!path) {
        return;
    }
    const QueryResult shown = currentResult();
    try {
        writeFileAtomically(*path, QByteArray::fromStdString(SQL::csv(shown)));
    } catch (const AppError &failure) {
        setError(failure.message());
        return;
    }
    setStatus("Exported " + std::to_string(shown.rows.size()) + " displayed rows");
}

void ServerSession::exportAllRowsCSV()
{
    if (m_busy) {
        return;
    }
    std::string sql;
    std::string proposed = "query-results.csv";
    if (m_mode == WorkspaceMode::data && !m_selectedTable.empty()) {
        sql = "SELECT * FROM " + SQL::qualified(m_database, m_selectedTable);
        proposed = m_selectedTable + ".csv";
    } else if (m_mode == WorkspaceMode::query && !m_tabs.empty() && m_tabs[tabIndex()].result) {
        sql = m_tabs[tabIndex()].result->statement;
        // Running it again must not change anything.
        if (SQL::requiresReview(sql)) {
            setError("Only the result of SELECT, SHOW, DESCRIBE, or EXPLAIN can be exported in full.");
            return;
        }
    } else {
        setError("Open a table or run a query first.");
        return;
    }
    if (!m_connected) {
        setError("Connect to this server first.");
        return;
    }
    const std::optional<std::string> path = m_prompts.chooseFileToSave(proposed, UserPrompts::FileKind::csv);
    if (!path) {
        return;
    }
    const QPointer<ServerSession> guard(this);
    perform<std::int64_t>(
        "Exporting rows to CSV…",
        [sql, guard, destination = *path](MySQLConnection &client) {
            return client.exportCsv(sql, destination, [guard](std::int64_t rows) {
                postToMainThread(guard, [rows](ServerSession &session) {
                    session.reportProgress("Exported " + std::to_string(rows) + " rows…");
                });
            });
        },
        [destination = *path](ServerSession &session, std::int64_t rows) {
            session.setStatus("Exported " + std::to_string(rows) + " rows to " + destination);
        });
}

void ServerSession::backup(bool verify)
{
    if (m_database.empty()) {
        setError("Select a database first.");
        return;
    }
    if (verify && m_profile.readOnly) {
        setError("Verifying an export creates a scratch database, which a read-only connection does not do.");
        return;
    }
    if (m_busy) {
        return;
    }
    const std::optional<std::string> destination
        = m_prompts.chooseFileToSave(m_database + "-export.sql", UserPrompts::FileKind::sql);
    if (!destination) {
        return;
    }
    const QPointer<ServerSession> guard(this);
    perform<std::string>(
        "Exporting schema and data…",
        [guard, verify, database = m_database, destination = *destination](MySQLConnection &client) {
            TableDigests digests;
            client.backupReplacing(
                database,
                destination,
                [guard](const std::string &name) {
                    postToMainThread(
                        guard, [name](ServerSession &session) { session.reportProgress("Exporting " + name + "…"); });
                },
                &digests);
            if (!verify) {
                return std::string();
            }
            postToMainThread(guard,
                [](ServerSession &session) { session.reportProgress("Verifying the export in a scratch database…"); });
            std::string verified;
            std::optional<std::string> failure;
            try {
                verified = client.verifyExport(destination, database, digests);
            } catch (const AppError &error) {
                failure = error.message();
            }
            // The replay's session settings and database do not stay on the workspace's connection.
            try {
                client.resetSession();
                client.use(database);
            } catch (const AppError &) {
                if (!failure) {
                    throw;
                }
            }
            if (failure) {
                throw AppError(
                    "Schema and data exported to " + destination + ", but the export does not verify. " + *failure);
            }
            return " · " + verified;
        },
        [destination = *destination](ServerSession &session, const std::string &verified) {
            session.setStatus("Schema and data exported to " + destination + verified);
        });
}

void ServerSession::importSQL()
{
    const std::optional<std::string> path = m_prompts.chooseFileToOpen(UserPrompts::FileKind::sql);
    if (!path) {
        return;
    }
    const QFileInfo info(QString::fromStdString(*path));
    // Checked before reading, so a huge file is never pulled into memory. Too large for the
    // editor, it can still run directly.
    const std::string tooLarge
        = info.fileName().toStdString() + " is larger than 20 MB, too large to open in the editor. ";
    if (info.exists() && static_cast<std::size_t>(info.size()) > largestImportBytes) {
        startFileRun(*path, tooLarge);
        return;
    }
    std::string text;
    try {
        text = readWholeFile(*path).toStdString();
    } catch (const AppError &failure) {
        setError(failure.message());
        return;
    }
    if (text.size() > largestImportBytes) {
        startFileRun(*path, tooLarge);
        return;
    }
    if (!isValidUtf8(text)) {
        setError("The file " + info.fileName().toStdString() + " is not UTF-8 text.");
        return;
    }
    newTab(text, info.fileName().toStdString());
    setStatus("Script loaded for review. Run to import.");
}

void ServerSession::saveQuery()
{
    if (m_tabs.empty()) {
        return;
    }
    const QUuid tabId = m_tabs[tabIndex()].id;
    const std::optional<std::string> path
        = m_prompts.chooseFileToSave(m_tabs[tabIndex()].title + ".sql", UserPrompts::FileKind::sql);
    QueryTab *tab = findTab(tabId);
    if (!path || !tab) {
        return;
    }
    try {
        writeFileAtomically(*path, QByteArray::fromStdString(tab->sql));
    } catch (const AppError &failure) {
        setError(failure.message());
        return;
    }
    const std::string title = QFileInfo(QString::fromStdString(*path)).completeBaseName().toStdString();
    changeTabs([tab, &title](QueryTabs &) {
        tab->title = title;
        tab->dirty = false;
    });
    setStatus("Query saved");
}

void ServerSession::loadBuilderColumns(const std::string &table)
{
    if (table.empty() || m_builderColumns.count(table) > 0) {
        return;
    }
    perform<ColumnList>(
        "Loading query-builder columns…",
        [database = m_database, table](MySQLConnection &client) { return client.columns(database, table); },
        [table](ServerSession &session, const ColumnList &columns) {
            ColumnLists lists = session.m_builderColumns;
            lists[table] = columns;
            session.setBuilderColumns(lists);
        });
}

} // namespace tallowick
