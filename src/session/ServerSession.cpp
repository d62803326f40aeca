#include "session/ServerSession.h"

#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/MainThread.h"
#include "core/UuidText.h"
#include "credentials/Keychain.h"
#include "session/SerialLane.h"
#include "session/TableBrowsing.h"
#include "session/TunnelRequest.h"
#include "session/UserPrompts.h"

#include <atomic>
#include <chrono>
#include <future>
#include <type_traits>

namespace tallowick
{

// What the lane's jobs share. Kept alive by the jobs themselves, so a job still running when its
// session is destroyed finishes safely and the connection is closed on the lane afterwards.
struct ServerSession::LaneState {
    std::unique_ptr<MySQLConnection> client; // touched only on the lane
    std::atomic<bool> sessionAlive { true };
    // A job of the user's is running on the client (not a background read beside them): only
    // then may Cancel stop the connection's statement.
    std::atomic<bool> userJobRunning { false };
};

std::function<bool()> ServerSession::userJobRunning() const
{
    return [lane = m_lane] { return lane->userJobRunning.load(); };
}

ServerSession::ServerSession(
    ConnectionProfile profile, std::shared_ptr<Keychain> keychain, UserPrompts &prompts, QObject *parent)
    : QObject(parent)
    , m_profile(std::move(profile))
    , m_keychain(std::move(keychain))
    , m_prompts(prompts)
    , m_lane(std::make_shared<LaneState>())
    , m_worker(std::make_unique<SerialLane>("Tallowick." + uuidText(m_profile.id)))
{
    QueryTab first;
    first.title = "Query 1";
    first.sql = initialTabSQL;
    m_tabs.push_back(first);
    m_activeTab = first.id;
}

ServerSession::~ServerSession()
{
    m_lane->sessionAlive = false;
    m_worker->post([lane = m_lane] {
        const ClientThreadScope scope;
        lane->client.reset();
    });
}

std::size_t ServerSession::tabIndex() const
{
    for (std::size_t i = 0; i < m_tabs.size(); ++i) {
        if (m_tabs[i].id == m_activeTab) {
            return i;
        }
    }
    return 0;
}

QueryResult ServerSession::currentResult() const
{
    switch (m_mode) {
    case WorkspaceMode::data:
        return m_tableResult;
    case WorkspaceMode::query:
        if (!m_tabs.empty() && m_tabs[tabIndex()].result) {
            return *m_tabs[tabIndex()].result;
        }
        return QueryResult {};
    default:
        return m_metadata;
    }
}

std::optional<TableInfo> ServerSession::tableInfo() const
{
    const auto list = m_tables.find(m_database);
    if (list == m_tables.end()) {
        return std::nullopt;
    }
    for (const TableInfo &table : list->second) {
        if (table.name == m_selectedTable) {
            return table;
        }
    }
    return std::nullopt;
}

QueryTab *ServerSession::findTab(const QUuid &id)
{
    for (QueryTab &tab : m_tabs) {
        if (tab.id == id) {
            return &tab;
        }
    }
    return nullptr;
}

// ---- work on the lane

bool ServerSession::enqueue(const std::string &title, Job job, Failed failed)
{
    if (m_busy) {
        return false;
    }
    if (!m_connected) {
        setError("Connect to this server first.");
        return false;
    }
    setBusy(true);
    setStatus(title);
    setError(std::nullopt);
    const QPointer<ServerSession> guard(this);
    m_worker->post([lane = m_lane, guard, title, job = std::move(job), failed = std::move(failed)] {
        if (!lane->sessionAlive) {
            return;
        }
        const ClientThreadScope scope;
        try {
            if (!lane->client) {
                throw AppError("The connection has closed.");
            }
            lane->userJobRunning = true;
            Completion completion;
            try {
                completion = job(*lane->client);
            } catch (...) {
                lane->userJobRunning = false;
                throw;
            }
            lane->userJobRunning = false;
            // Moved, not copied: a completion carries the whole result.
            postToMainThread(
                guard, [completion = std::move(completion)](ServerSession &session) { session.finishJob(completion); });
        } catch (const std::exception &failure) {
            postToMainThread(guard, [title, message = std::string(failure.what()), failed](ServerSession &session) {
                session.failJob(title, message, failed);
            });
        }
    });
    return true;
}

void ServerSession::alongside(std::function<Completion(MySQLConnection *)> job)
{
    const QPointer<ServerSession> guard(this);
    m_worker->post([lane = m_lane, guard, job = std::move(job)] {
        if (!lane->sessionAlive) {
            return;
        }
        const ClientThreadScope scope;
        Completion completion = job(lane->client.get());
        postToMainThread(guard, [completion = std::move(completion)](ServerSession &session) { completion(session); });
    });
}

void ServerSession::finishJob(const Completion &completion)
{
    // Busy is cleared before `done` runs, so a completion may chain the next job.
    setBusy(false);
    setStatus("Ready");
    completion(*this);
}

void ServerSession::failJob(const std::string &title, const std::string &message, const Failed &failed)
{
    setBusy(false);
    setError(message);
    setStatus(title + " failed");
    if (failed) {
        failed(message);
    }
}

void ServerSession::perform(
    const std::string &title, std::function<void(MySQLConnection &)> task, std::function<void(ServerSession &)> done)
{
    enqueue(title, [task = std::move(task), done = std::move(done)](MySQLConnection &client) -> Completion {
        task(client);
        return done;
    });
}

void ServerSession::performFor(
    const std::string &title, std::function<void(MySQLConnection &)> task, Completion then, Finished done)
{
    if (m_busy) {
        done("Wait for this connection's current operation to finish.");
        return;
    }
    const bool started = enqueue(
        title,
        [task = std::move(task), then = std::move(then), done](MySQLConnection &client) -> Completion {
            task(client);
            return [then, done](ServerSession &session) {
                then(session);
                done(std::nullopt);
            };
        },
        [done](const std::string &message) { done(message); });
    if (!started) {
        done(m_error.value_or("Connect to this server first."));
    }
}

// ---- connecting

void ServerSession::connect()
{
    if (m_busy) {
        return;
    }
    // The password may take a while (the keyring can prompt), so it is read in the background
    // and the session counts as busy from here on.
    setBusy(true);
    m_connectionID = 0;
    setStatus("Connecting to " + m_profile.endpoint() + "…");
    const QPointer<ServerSession> guard(this);
    runInBackground([guard, keychain = m_keychain, id = m_profile.id, tunnel = m_tunnel] {
        try {
            const std::string password = keychain->load(id);
            const std::string secret = loadSshSecret(*keychain, id, tunnel);
            postToMainThread(
                guard, [password, secret](ServerSession &session) { session.startConnecting(password, secret); });
        } catch (const std::exception &failure) {
            postToMainThread(guard, [message = std::string(failure.what())](ServerSession &session) {
                session.setBusy(false);
                session.setError(message);
                session.setStatus("Password access failed");
            });
        }
    });
}

namespace
{

// Asks the person, on the main thread, whether to trust a host key the lane met; the lane waits
// for the answer, or gives up when the session goes away meanwhile.
std::function<bool(const SshHostKey &)> hostKeyQuestion(
    const QPointer<ServerSession> &guard, const std::shared_ptr<const std::atomic<bool>> &alive)
{
    return [guard, alive](const SshHostKey &key) {
        const auto answer = std::make_shared<std::promise<bool>>();
        std::future<bool> answered = answer->get_future();
        postToMainThread(guard, [answer, key](ServerSession &session) {
            const std::string where = key.host + ":" + std::to_string(key.port);
            answer->set_value(session.prompts().confirmAction("Trust the SSH host " + key.host + "?",
                "Tallowick has not connected to " + where + " before. Its host key fingerprint is " + key.fingerprint
                    + ". Compare it with the fingerprint the host's administrator gives you. Trusting it adds it to "
                    + userKnownHostsFile() + "; a different key will then be refused.",
                "Trust Host"));
        });
        while (answered.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
            if (!alive->load()) {
                return false;
            }
        }
        return answered.get();
    };
}

} // namespace

void ServerSession::startConnecting(const std::string &password, const std::string &sshSecret)
{
    const QPointer<ServerSession> guard(this);
    std::optional<SshTunnelRequest> tunnel;
    if (m_tunnel) {
        m_connectAbort = std::make_shared<SshAbort>();
        tunnel = tunnelRequest(*m_tunnel, sshSecret);
        tunnel->abort = m_connectAbort;
        tunnel->acceptNewHostKey
            = hostKeyQuestion(guard, std::shared_ptr<const std::atomic<bool>>(m_lane, &m_lane->sessionAlive));
        setStatus("Opening SSH tunnel…");
    }
    m_worker->post([lane = m_lane, guard, profile = m_profile, password, tunnel] {
        if (!lane->sessionAlive) {
            return;
        }
        const ClientThreadScope scope;
        try {
            auto connection = std::make_unique<MySQLConnection>(profile);
            if (tunnel) {
                connection->setTunnel(*tunnel);
            }
            connection->connect(password);
            const QueryResult databases = connection->query("SHOW DATABASES");
            const std::string version = connection->version();
            const std::string cipher = connection->cipher();
            const std::uint64_t id = connection->connectionID();
            lane->client = std::move(connection);
            postToMainThread(guard, [version, cipher, id, databases](ServerSession &session) {
                session.connectionOpened(version, cipher, id, databases);
            });
        } catch (const std::exception &failure) {
            lane->client.reset();
            postToMainThread(guard,
                [message = std::string(failure.what())](ServerSession &session) { session.connectionFailed(message); });
        }
    });
}

void ServerSession::connectionOpened(
    const std::string &version, const std::string &cipher, std::uint64_t connectionID, const QueryResult &databases)
{
    m_connectAbort.reset();
    setConnected(true);
    setBusy(false);
    setVersion(version);
    setCipher(cipher);
    m_connectionID = connectionID;
    setDatabases(databaseNames(databases));
    setStatus("Connected · MySQL " + version);
    // The server may have changed while the session was away.
    forgetCatalog();
    // Coming back to a database kept from before a reconnect.
    if (!m_database.empty()) {
        loadTables(m_database);
        loadCatalog(m_database);
    }
}

void ServerSession::connectionFailed(const std::string &message)
{
    m_connectAbort.reset();
    setBusy(false);
    setConnected(false);
    setStatus("Connection failed");
    setError(message);
}

void ServerSession::disconnect()
{
    if (m_busy) {
        return;
    }
    m_worker->post([lane = m_lane] {
        const ClientThreadScope scope;
        if (lane->client) {
            lane->client->close();
        }
        lane->client.reset();
    });
    // Database, table, tabs, browser settings and builder stay, so a reconnect comes back here.
    // The old connection's id may be given to another client once it has gone.
    m_connectionID = 0;
    setConnected(false);
    setDatabases({});
    setTables({});
    setStatus("Disconnected");
}

// ---- properties

namespace
{

// Results and tab lists can hold thousands of rows: announce them without comparing.
template <typename T>
constexpr bool comparedBeforeAssigning = !std::is_same_v<T, QueryResult> && !std::is_same_v<T, QueryTabs>;

} // namespace

template <typename T> void ServerSession::assign(T &field, const T &value, void (ServerSession::*notify)())
{
    if constexpr (comparedBeforeAssigning<T>) {
        if (field == value) {
            return;
        }
    }
    field = value;
    Q_EMIT(this->*notify)();
    Q_EMIT changed();
}

void ServerSession::setConnected(bool value)
{
    assign(m_connected, value, &ServerSession::connectedChanged);
}

void ServerSession::setBusy(bool value)
{
    if (!value) {
        assign(m_progress, -1, &ServerSession::progressChanged);
        m_transferCancelled.reset();
    }
    assign(m_busy, value, &ServerSession::busyChanged);
}

void ServerSession::setDatabase(const std::string &value)
{
    assign(m_database, value, &ServerSession::databaseChanged);
}

void ServerSession::setSelectedTable(const std::string &value)
{
    assign(m_selectedTable, value, &ServerSession::selectedTableChanged);
}

void ServerSession::setMode(WorkspaceMode mode)
{
    assign(m_mode, mode, &ServerSession::modeChanged);
}

void ServerSession::setDatabases(const StringList &value)
{
    m_catalogSnapshot.reset();
    assign(m_databases, value, &ServerSession::databasesChanged);
}

void ServerSession::setTables(const TableLists &value)
{
    m_catalogSnapshot.reset();
    assign(m_tables, value, &ServerSession::tablesChanged);
}

void ServerSession::setColumns(const ColumnList &value)
{
    assign(m_columns, value, &ServerSession::columnsChanged);
}

void ServerSession::setTableResult(const QueryResult &value)
{
    assign(m_tableResult, value, &ServerSession::tableResultChanged);
}

void ServerSession::setActiveTab(const QUuid &id)
{
    assign(m_activeTab, id, &ServerSession::activeTabChanged);
}

void ServerSession::setStatus(const std::string &value)
{
    assign(m_status, value, &ServerSession::statusChanged);
}

void ServerSession::setError(const OptionalText &value)
{
    assign(m_error, value, &ServerSession::errorChanged);
}

void ServerSession::reportProgress(const std::string &text, int percent)
{
    if (m_busy) {
        setStatus(text);
        assign(m_progress, percent, &ServerSession::progressChanged);
    }
}

void ServerSession::clearError()
{
    setError(std::nullopt);
}

void ServerSession::setVersion(const std::string &value)
{
    assign(m_version, value, &ServerSession::versionChanged);
}

void ServerSession::setCipher(const std::string &value)
{
    assign(m_cipher, value, &ServerSession::cipherChanged);
}

void ServerSession::setPage(qint64 page)
{
    assign(m_page, page, &ServerSession::pageChanged);
}

void ServerSession::setPageSize(qint64 pageSize)
{
    assign(m_pageSize, pageSize, &ServerSession::pageSizeChanged);
}

void ServerSession::setFilter(const std::string &filter)
{
    assign(m_filter, filter, &ServerSession::filterChanged);
}

void ServerSession::setSortColumn(const std::string &column)
{
    assign(m_sortColumn, column, &ServerSession::sortColumnChanged);
}

void ServerSession::setSortDescending(bool descending)
{
    assign(m_sortDescending, descending, &ServerSession::sortDescendingChanged);
}

void ServerSession::setSelectedRow(qint64 row)
{
    assign(m_selectedRow, row, &ServerSession::selectedRowChanged);
}

void ServerSession::setBuilder(const BuilderSpec &builder)
{
    assign(m_builder, builder, &ServerSession::builderChanged);
}

void ServerSession::setBuilderColumns(const ColumnLists &value)
{
    assign(m_builderColumns, value, &ServerSession::builderColumnsChanged);
}

void ServerSession::setMetadata(const QueryResult &value)
{
    assign(m_metadata, value, &ServerSession::metadataChanged);
}

void ServerSession::setUserGrants(const QueryResult &value)
{
    assign(m_userGrants, value, &ServerSession::userGrantsChanged);
}

void ServerSession::setShowSQL(const std::string &text)
{
    assign(m_showSQL, text, &ServerSession::showSQLChanged);
}

void ServerSession::changeTabs(const std::function<void(QueryTabs &)> &change)
{
    // In place: tabs hold whole results, and the editor reports every keystroke.
    change(m_tabs);
    Q_EMIT tabsChanged();
    Q_EMIT changed();
}

void ServerSession::setTabSQL(const QUuid &tab, const std::string &sql)
{
    QueryTab *target = findTab(tab);
    if (!target || target->sql == sql) {
        return;
    }
    changeTabs([target, &sql](QueryTabs &) {
        target->sql = sql;
        target->dirty = true;
    });
}

void ServerSession::markTabEdited(const QUuid &tab)
{
    QueryTab *target = findTab(tab);
    if (target && !target->dirty) {
        changeTabs([target](QueryTabs &) { target->dirty = true; });
    }
}

void ServerSession::setTabResultIndex(const QUuid &tab, std::int64_t index)
{
    QueryTab *target = findTab(tab);
    if (!target || index < 0 || static_cast<std::size_t>(index) >= target->results.size()
        || target->resultIndex == index) {
        return;
    }
    changeTabs([target, index](QueryTabs &) {
        target->resultIndex = index;
        target->result = target->results[static_cast<std::size_t>(index)];
    });
}

} // namespace tallowick
