#pragma once

#include "core/ConnectionProfile.h"
#include "core/ManagementSheet.h"
#include "core/SqlCompletion.h"
#include "core/SshTunnelSettings.h"
#include "session/SessionTypes.h"

#include <QObject>
#include <QUuid>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace tallowick
{

struct CsvImportPlan;
class Keychain;
class MySQLConnection;
class SshAbort;
class SerialLane;
class UserPrompts;

// The live side of one saved connection: everything the interface shows for that server, and
// the only place that talks to it.
//
// Threads: every property is read and written, and every operation is called, on the main
// thread. Server work runs as jobs on the session's own serial lane, one at a time (`busy`); the
// connection is touched only there. Results come back to the main thread by value. A request
// made while busy is dropped silently.
class ServerSession final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool connected READ connected NOTIFY connectedChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(std::string database READ database NOTIFY databaseChanged)
    Q_PROPERTY(std::string selectedTable READ selectedTable NOTIFY selectedTableChanged)
    Q_PROPERTY(tallowick::WorkspaceMode mode READ mode WRITE setMode NOTIFY modeChanged)
    Q_PROPERTY(tallowick::StringList databases READ databases NOTIFY databasesChanged)
    Q_PROPERTY(tallowick::TableLists tables READ tables NOTIFY tablesChanged)
    Q_PROPERTY(tallowick::ColumnList columns READ columns NOTIFY columnsChanged)
    Q_PROPERTY(tallowick::QueryResult tableResult READ tableResult NOTIFY tableResultChanged)
    Q_PROPERTY(tallowick::QueryTabs tabs READ tabs NOTIFY tabsChanged)
    Q_PROPERTY(QUuid activeTab READ activeTab WRITE setActiveTab NOTIFY activeTabChanged)
    Q_PROPERTY(std::string status READ status NOTIFY statusChanged)
    Q_PROPERTY(tallowick::OptionalText error READ error NOTIFY errorChanged)
    Q_PROPERTY(std::string version READ version NOTIFY versionChanged)
    Q_PROPERTY(std::string cipher READ cipher NOTIFY cipherChanged)
    Q_PROPERTY(qint64 page READ page WRITE setPage NOTIFY pageChanged)
    Q_PROPERTY(qint64 pageSize READ pageSize WRITE setPageSize NOTIFY pageSizeChanged)
    Q_PROPERTY(std::string filter READ filter WRITE setFilter NOTIFY filterChanged)
    Q_PROPERTY(std::string sortColumn READ sortColumn WRITE setSortColumn NOTIFY sortColumnChanged)
    Q_PROPERTY(bool sortDescending READ sortDescending WRITE setSortDescending NOTIFY sortDescendingChanged)
    Q_PROPERTY(qint64 selectedRow READ selectedRow WRITE setSelectedRow NOTIFY selectedRowChanged)
    Q_PROPERTY(tallowick::BuilderSpec builder READ builder WRITE setBuilder NOTIFY builderChanged)
    Q_PROPERTY(tallowick::ColumnLists builderColumns READ builderColumns NOTIFY builderColumnsChanged)
    Q_PROPERTY(tallowick::QueryResult metadata READ metadata NOTIFY metadataChanged)
    Q_PROPERTY(std::string showSQL READ showSQL WRITE setShowSQL NOTIFY showSQLChanged)
    Q_PROPERTY(tallowick::QueryResult userGrants READ userGrants NOTIFY userGrantsChanged)
    Q_PROPERTY(int progress READ progress NOTIFY progressChanged)

public:
    static constexpr const char *initialTabSQL
        = "-- Choose a database from the sidebar, then run a query.\nSELECT VERSION() AS server_version;";

    // `prompts` must outlive the session. The session does not connect by itself.
    ServerSession(
        ConnectionProfile profile, std::shared_ptr<Keychain> keychain, UserPrompts &prompts, QObject *parent = nullptr);
    ~ServerSession() override;

    const QUuid &id() const { return m_profile.id; }
    const ConnectionProfile &profile() const { return m_profile; }
    // The SSH host the server is reached through, from the next connect on; none by default.
    const std::optional<SshTunnelSettings> &tunnel() const { return m_tunnel; }
    void setTunnel(std::optional<SshTunnelSettings> tunnel) { m_tunnel = std::move(tunnel); }
    std::uint64_t connectionID() const { return m_connectionID; }
    // Where the session's confirmations go; forms that act on the session ask the same way.
    UserPrompts &prompts() const { return m_prompts; }

    bool connected() const { return m_connected; }
    bool busy() const { return m_busy; }
    const std::string &database() const { return m_database; }
    const std::string &selectedTable() const { return m_selectedTable; }
    WorkspaceMode mode() const { return m_mode; }
    const StringList &databases() const { return m_databases; }
    const TableLists &tables() const { return m_tables; }
    const ColumnList &columns() const { return m_columns; }
    const QueryResult &tableResult() const { return m_tableResult; }
    const QueryTabs &tabs() const { return m_tabs; }
    const QUuid &activeTab() const { return m_activeTab; }
    const std::string &status() const { return m_status; }
    const OptionalText &error() const { return m_error; }
    const std::string &version() const { return m_version; }
    const std::string &cipher() const { return m_cipher; }
    qint64 page() const { return m_page; }
    qint64 pageSize() const { return m_pageSize; }
    const std::string &filter() const { return m_filter; }
    const std::string &sortColumn() const { return m_sortColumn; }
    bool sortDescending() const { return m_sortDescending; }
    qint64 selectedRow() const { return m_selectedRow; }
    const BuilderSpec &builder() const { return m_builder; }
    const ColumnLists &builderColumns() const { return m_builderColumns; }
    const QueryResult &metadata() const { return m_metadata; }
    const std::string &showSQL() const { return m_showSQL; }
    // The grants of the account picked in the users panel.
    const QueryResult &userGrants() const { return m_userGrants; }
    // How far the running job is, in percent; -1 when it cannot tell.
    int progress() const { return m_progress; }

    // Index of the active tab in `tabs`; 0 when no tab matches.
    std::size_t tabIndex() const;
    // The result the grid shows for the current mode.
    QueryResult currentResult() const;
    // The selected table's entry in the loaded table list, when there is one.
    std::optional<TableInfo> tableInfo() const;

    // Settings the interface changes directly.
    void setMode(WorkspaceMode mode);
    void setActiveTab(const QUuid &id);
    void setPage(qint64 page);
    void setPageSize(qint64 pageSize);
    void setFilter(const std::string &filter);
    void setSortColumn(const std::string &column);
    void setSortDescending(bool descending);
    void setSelectedRow(qint64 row);
    void setBuilder(const BuilderSpec &builder);
    void setShowSQL(const std::string &text);
    void clearError();
    // Progress of the running job in the status line, and in percent when known (ignored once
    // the session is idle again).
    void reportProgress(const std::string &text, int percent = -1);
    // The editor's text of a tab; marks it dirty when it changed.
    void setTabSQL(const QUuid &tab, const std::string &sql);
    // The editor changed a tab's text and hands it over later (a large script): only the mark.
    void markTabEdited(const QUuid &tab);
    void setTabResultIndex(const QUuid &tab, std::int64_t index);

    // Connection.
    void connect();
    void disconnect();

    // Navigation and browsing.
    void loadDatabases();
    void loadTables(const std::string &database);
    void chooseDatabase(const std::string &name);

    // Completion's view of the schema: the databases, the tables of each database listed so far,
    // and the columns of each database whose catalog has been read.
    // One snapshot, shared with its readers until the databases, tables or columns change.
    std::shared_ptr<const SchemaCatalog> catalog() const;
    // Reads a database's tables and columns in the background (once; again after a schema
    // change), for names the editor meets in a statement.
    void requestCatalog(const std::string &database);
    void selectTable(const std::string &table, const std::string &database);
    void browse();
    void inspect(WorkspaceMode mode);
    void serverInfo();
    void users();
    void showCreate();

    // Tabs, runs and cancelling.
    void newTab(const std::string &sql, const std::optional<std::string> &title = std::nullopt);
    // Takes over the tabs of an earlier session of the same profile (its settings changed), so
    // no unsaved query is lost with it. Nothing changes for an empty list.
    void adoptTabs(QueryTabs tabs);
    void closeTab(const QUuid &id);
    void run(const std::optional<std::string> &sql = std::nullopt);
    void cancel();

    // Edits, files and the builder's column lists.
    void editCell(std::int64_t row, std::int64_t column, const Cell &value);
    void deleteSelectedRow();
    void exportCSV();
    // Every row, not only those on screen: the selected table in data mode, the statement of the
    // shown query result in query mode (a read only), streamed from the server to the file.
    void exportAllRowsCSV();
    // With `verify`, the export is then replayed into a scratch database and compared table by
    // table with what was written.
    void backup(bool verify = false);
    void importSQL();
    // Runs a SQL file of any size without opening it, after one confirmation naming the file,
    // its size and the server; the status shows how far it got, and cancel() stops it between
    // statements. Statements that ran stay applied, as in a plain run.
    void runSqlFile();
    void saveQuery();
    void loadBuilderColumns(const std::string &table);

    // Administration: results go to `metadata`, an account's grants to `userGrants`.
    void variables();
    void processes();
    // Asks first, then stops the server process (KILL) and reloads the process list.
    void killProcess(std::uint64_t processID);
    void grants(const std::string &user, const std::string &host);

    enum class TransactionCommand { start, commit, rollback };
    // Sends START TRANSACTION, COMMIT or ROLLBACK on the session's connection.
    void transaction(TransactionCommand command);

    // How an operation a form waits for ended: no value when it succeeded, or the message to
    // show. Called exactly once, on the main thread; at once when the request cannot start
    // (another operation is running, or the session is not connected).
    using Finished = std::function<void(const std::optional<std::string> &failure)>;

    // A reviewed change from a management form of `kind`, made in `database`.`table` (either
    // may be empty): sends the statement, then reloads what it touched (the database list, the
    // table list, the table's columns and first page, or the user list).
    void applyChange(ManagementSheet kind,
        const std::string &sql,
        const std::string &database,
        const std::string &table,
        Finished done);
    // Creates an account, escaped by the connection itself, then reloads the user list.
    void createUser(const std::string &name, const std::string &host, const std::string &password, Finished done);
    // Inserts every row of the CSV file at `path`, read as it streams and checked as `plan`
    // says, into `database`.`table` in one transaction, all or none, with the rows and bytes
    // done so far in the status; Cancel rolls it back. The table's page is reloaded when shown.
    void importCSV(std::shared_ptr<const CsvImportPlan> plan,
        const std::string &path,
        const std::string &database,
        const std::string &table,
        Finished done);

Q_SIGNALS:
    void connectedChanged();
    void busyChanged();
    void databaseChanged();
    void selectedTableChanged();
    void modeChanged();
    void databasesChanged();
    void tablesChanged();
    void catalogChanged();
    void columnsChanged();
    void tableResultChanged();
    void tabsChanged();
    void activeTabChanged();
    void statusChanged();
    void errorChanged();
    void versionChanged();
    void cipherChanged();
    void pageChanged();
    void pageSizeChanged();
    void filterChanged();
    void sortColumnChanged();
    void sortDescendingChanged();
    void selectedRowChanged();
    void builderChanged();
    void builderColumnsChanged();
    void metadataChanged();
    void showSQLChanged();
    void userGrantsChanged();
    void progressChanged();
    // After any of the above.
    void changed();
    // A finished run's history entry, on the main thread.
    void historyEntryCreated(const tallowick::QueryLog &entry);

private:
    struct LaneState;
    using Completion = std::function<void(ServerSession &)>;
    using Job = std::function<Completion(MySQLConnection &)>;
    using Failed = std::function<void(const std::string &message)>;

    // The single entry for server work: drops the call while busy, refuses it while disconnected,
    // shows `title` as the status while `task` runs on the lane, then hands its value to `done`
    // on the main thread. A failure shows the error and the status `title` + " failed".
    template <typename T>
    void perform(const std::string &title,
        std::function<T(MySQLConnection &)> task,
        std::function<void(ServerSession &, T)> done);
    void perform(const std::string &title,
        std::function<void(MySQLConnection &)> task,
        std::function<void(ServerSession &)> done);

    // Starts a job for an operation a form waits for, and tells `done` how it ended.
    void performFor(
        const std::string &title, std::function<void(MySQLConnection &)> task, Completion then, Finished done);
    void reloadAfter(ManagementSheet kind, const std::string &database, const std::string &table);
    // Confirms and starts the run of the file at `path`; `lead` opens the confirmation's text.
    void startFileRun(const std::string &path, const std::string &lead);
    bool mayRunFile();

    // Starts `job` on the lane; false when it did not start. A failure is also handed to `failed`.
    bool enqueue(const std::string &title, Job job, Failed failed = {});
    void finishJob(const Completion &completion);
    void failJob(const std::string &title, const std::string &message, const Failed &failed);
    void startConnecting(const std::string &password, const std::string &sshSecret);
    // Runs `job` on the lane without making the session busy (it gets no client while
    // disconnected); what it returns then runs on the main thread. For background reading only:
    // the user's own jobs queue behind it.
    void alongside(std::function<Completion(MySQLConnection *)> job);
    // Whether a job of the user's is running on the lane now; callable from any thread.
    std::function<bool()> userJobRunning() const;
    void loadCatalog(const std::string &database);
    // Drops what was read of one database's columns, or of all, to be read again on request.
    void forgetCatalog(const std::optional<std::string> &database = std::nullopt);
    void catalogLoaded(const std::string &database,
        const std::optional<QueryResult> &tables,
        const std::optional<QueryResult> &columns);
    static bool changesSchema(const std::vector<std::string> &statements);
    void connectionOpened(const std::string &version,
        const std::string &cipher,
        std::uint64_t connectionID,
        const QueryResult &databases);
    void connectionFailed(const std::string &message);
    void storeRunResults(const QUuid &tab, const std::string &text, std::vector<QueryResult> results);
    QueryTab *findTab(const QUuid &id);

    template <typename T> void assign(T &field, const T &value, void (ServerSession::*notify)());
    void setConnected(bool value);
    void setBusy(bool value);
    void setDatabase(const std::string &value);
    void setSelectedTable(const std::string &value);
    void setDatabases(const StringList &value);
    void setTables(const TableLists &value);
    void setColumns(const ColumnList &value);
    void setTableResult(const QueryResult &value);
    void changeTabs(const std::function<void(QueryTabs &)> &change);
    void setStatus(const std::string &value);
    void setError(const OptionalText &value);
    void setVersion(const std::string &value);
    void setCipher(const std::string &value);
    void setBuilderColumns(const ColumnLists &value);
    void setMetadata(const QueryResult &value);
    void setUserGrants(const QueryResult &value);

    const ConnectionProfile m_profile;
    std::optional<SshTunnelSettings> m_tunnel;
    // Set while connecting: Cancel stops an SSH tunnel that is still opening.
    std::shared_ptr<SshAbort> m_connectAbort;
    const std::shared_ptr<Keychain> m_keychain;
    UserPrompts &m_prompts;
    std::shared_ptr<LaneState> m_lane;
    std::unique_ptr<SerialLane> m_worker;
    std::uint64_t m_connectionID = 0;

    bool m_connected = false;
    bool m_busy = false;
    int m_progress = -1;
    // Set by cancel() while a SQL file runs or a CSV file is imported, which then stop before
    // their next statement.
    std::shared_ptr<std::atomic<bool>> m_transferCancelled;
    std::string m_database;
    std::string m_selectedTable;
    WorkspaceMode m_mode = WorkspaceMode::query;
    StringList m_databases;
    TableLists m_tables;
    std::map<std::string, std::map<std::string, std::vector<std::string>>> m_catalogColumns;
    mutable std::shared_ptr<const SchemaCatalog> m_catalogSnapshot;
    std::set<std::string> m_catalogLoading;
    ColumnList m_columns;
    QueryResult m_tableResult;
    QueryTabs m_tabs;
    QUuid m_activeTab;
    std::string m_status = "Disconnected";
    OptionalText m_error;
    std::string m_version;
    std::string m_cipher;
    qint64 m_page = 0;
    qint64 m_pageSize = 200;
    std::string m_filter;
    std::string m_sortColumn;
    bool m_sortDescending = false;
    qint64 m_selectedRow = -1;
    BuilderSpec m_builder;
    ColumnLists m_builderColumns;
    QueryResult m_metadata;
    std::string m_showSQL;
    QueryResult m_userGrants;
};

template <typename T>
void ServerSession::perform(
    const std::string &title, std::function<T(MySQLConnection &)> task, std::function<void(ServerSession &, T)> done)
{
    enqueue(title, [task = std::move(task), done = std::move(done)](MySQLConnection &client) -> Completion {
        // The value travels to the main thread by copy; nothing of the lane is shared with it.
        return [done, value = task(client)](ServerSession &session) mutable { done(session, std::move(value)); };
    });
}

} // namespace tallowick
