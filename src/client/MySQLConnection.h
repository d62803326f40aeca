#pragma once

#include "client/SshTunnel.h"
#include "core/ColumnInfo.h"
#include "core/ConnectionProfile.h"
#include "core/QueryResult.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct st_mysql;

namespace tallowick
{

// How long the client library waits on a connection. None of them limits how long a statement
// may run: the server is never left with a statement the program has stopped listening to.
struct ConnectionLimits {
    unsigned int connectSeconds = 12;
    unsigned int writeSeconds = 90; // sending a statement to a server that has stopped reading
    // A dead server host is noticed by TCP keep-alive probes: idle time before the first probe,
    // the time between probes, and the unanswered probes that end the connection.
    int keepAliveIdleSeconds = 60;
    int keepAliveIntervalSeconds = 10;
    int keepAliveProbes = 6;
};

// An order-independent fingerprint of a table's exported rows: how many, and the sum of a 64-bit
// hash of each row's values (NULL told apart from every value).
struct TableDigest {
    std::uint64_t rows = 0;
    std::uint64_t sum = 0;
    bool operator==(const TableDigest &) const = default;
};
using TableDigests = std::map<std::string, TableDigest>;

// The program's one wrapper around a MariaDB Connector/C connection. It owns at most one handle,
// applies the fixed client options and the profile's TLS policy, and turns every client-library
// failure into an AppError reading "MySQL <errno>: <text>".
//
// Not thread-safe: every call on one object comes from one thread at a time (the owning
// session's lane), inside a ClientThreadScope. Nothing reconnects by itself.
class MySQLConnection
{
public:
    static constexpr std::int64_t defaultMaxRows = 10000;

    explicit MySQLConnection(ConnectionProfile profile, ConnectionLimits limits = {});
    ~MySQLConnection();

    MySQLConnection(const MySQLConnection &) = delete;
    MySQLConnection &operator=(const MySQLConnection &) = delete;

    // From the next connect() on, the server is reached through an SSH tunnel that lives exactly
    // as long as the connection; the request's target is taken from the profile. Certificate
    // verification cannot be kept through a tunnel (see connect()).
    void setTunnel(SshTunnelRequest request) { m_tunnelRequest = std::move(request); }

    // Opens (or re-opens) the connection, through the tunnel when one is set: "SSH: …" errors
    // name the SSH hop. The password is used for this call only and never kept. A failure
    // always leaves the object disconnected.
    void connect(const std::string &password);
    void use(const std::string &database);
    // Gives the connection back the state it had after connecting: a script's session variables,
    // user variables, temporary tables and open transaction are dropped, the character set and
    // read-only mode applied again. The current database is the caller's to choose.
    void resetSession();
    void close();

    bool isConnected() const { return m_handle != nullptr; }
    const ConnectionProfile &profile() const { return m_profile; }
    const std::string &version() const { return m_version; }
    const std::string &cipher() const { return m_cipher; } // empty when the link is not encrypted
    std::uint64_t connectionID() const { return m_connectionID; }

    // Sends one statement and streams its result, keeping at most `maxRows` rows; the rest are
    // read and dropped unconverted so the connection stays in step with the server. Only the
    // first result set is kept (a procedure may answer with several); the others are read and
    // counted in the message, so the connection is always ready for the next statement.
    QueryResult query(const std::string &sql, std::int64_t maxRows = defaultMaxRows);

    // The table's columns from SHOW FULL COLUMNS, in table order. An expression default is marked
    // DEFAULT_GENERATED in `extra` on MariaDB too, which does not say so itself.
    std::vector<ColumnInfo> columns(const std::string &database, const std::string &table);

    // Writes one grid cell back to its base table, pinned by the full primary key and by the
    // cell's old value, so an edit against a row another session changed fails instead of
    // touching nothing or the wrong row. No value means SQL NULL.
    void updateCell(const QueryResult &result, std::int64_t row, std::int64_t column, const Cell &value);

    // Deletes the base-table row behind row `row` of a result read from `database`.`table`.
    void deleteRow(const QueryResult &result, std::int64_t row, const std::string &database, const std::string &table);

    // Sends one statement without waiting for its answer, so the caller can prepare the next
    // meanwhile. finishSent() must come before any other call on the connection.
    void send(const std::string &sql);
    // Reads the answer to what send() sent, dropping any rows; throws as query() does.
    void finishSent();

    // Whether a transaction is open on the server, asked of the server itself: a failed
    // statement's answer carries no status, and a deadlock ends the transaction behind it.
    bool transactionOpen();

    // Whether the table's storage engine has transactions, from information_schema; no value for a
    // view, a missing table or an unknown engine. An empty `database` means the current one.
    std::optional<bool> tableRollsBack(const std::string &database, const std::string &table);

    void createUser(const std::string &name, const std::string &host, const std::string &password);

    // A string literal escaped by the live connection, following its character set and SQL mode.
    std::string stringLiteral(const std::string &text) const;

    // Writes the database's tables (structure and rows) and then its views to `path` as a SQL
    // script, read inside one consistent snapshot, under a neutral SQL mode and UTC. `progress` gets each object's name
    // before it is written, on the calling thread. Memory stays flat whatever the table sizes.
    // With `digests`, each table's fingerprint is taken from the rows as they are written.
    void backup(const std::string &database,
        const std::string &path,
        const std::function<void(const std::string &)> &progress,
        TableDigests *digests = nullptr);
    // The same export into a temporary file next to `destination`, which replaces it only when
    // complete: a failed export never overwrites an earlier good file, and leaves nothing behind.
    void backupReplacing(const std::string &database,
        const std::string &destination,
        const std::function<void(const std::string &)> &progress,
        TableDigests *digests = nullptr);

    // Replays the export at `path`, written from `database`, into a scratch database on this
    // server, compares every table's fingerprint with `expected`, and drops the scratch database
    // again. Returns how much was checked; throws AppError naming the first table that differs.
    // The connection's session settings and current database are the caller's to restore.
    std::string verifyExport(const std::string &path, const std::string &database, const TableDigests &expected);

    // One streamed row of raw bytes: values[i] is nullptr for SQL NULL.
    struct RawRow {
        const std::vector<bool> &binaryColumns;
        char **values;
        const unsigned long *lengths;
    };

    // Sends `sql` and hands every row, uncapped and unconverted, to `onRow`; `onNames` gets the
    // column names first.
    void streamRows(const std::string &sql,
        const std::function<void(const RawRow &)> &onRow,
        const std::function<void(const std::vector<std::string> &)> &onNames = {});

    // Writes every row `sql` returns to `destination` as CSV (the grid's dialect and cell text),
    // streamed, so memory stays flat; the file replaces `destination` only when complete.
    // `progress` gets the rows written so far, now and then. Returns the number of rows.
    std::int64_t exportCsv(
        const std::string &sql, const std::string &destination, const std::function<void(std::int64_t rows)> &progress);

private:
    std::string clientErrorText() const;
    [[noreturn]] void throwClientError() const;
    // Reads and drops every result after the first; returns how many of them held rows.
    std::size_t discardFurtherResults();
    [[noreturn]] void closeAndRethrow();
    void applyOptions();
    void watchForDeadPeer();
    void writeBackup(const std::string &database,
        const std::string &path,
        const std::function<void(const std::string &)> &progress,
        TableDigests *digests);
    void markExpressionDefaults(
        const std::string &database, const std::string &table, std::vector<ColumnInfo> &columns);
    st_mysql *requireHandle() const;
    void refuseWhenReadOnly() const;

    st_mysql *m_handle = nullptr;
    const ConnectionProfile m_profile;
    std::optional<SshTunnelRequest> m_tunnelRequest;
    std::unique_ptr<SshTunnel> m_tunnel;
    const ConnectionLimits m_limits;
    std::string m_version;
    std::string m_cipher;
    std::uint64_t m_connectionID = 0;
};

} // namespace tallowick
