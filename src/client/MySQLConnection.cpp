#include "client/MySQLConnection.h"

#include "client/CellText.h"
#include "client/ServerDefaults.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <mysql.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace tallowick
{

namespace
{

std::string textOrEmpty(const char *text)
{
    return text ? std::string(text) : std::string();
}

// The CA file verify mode falls back to: the system bundle, wherever this system keeps it.
std::string systemCertificateBundle()
{
    static constexpr std::array<const char *, 3> candidates {
        "/etc/ssl/certs/ca-certificates.crt",
        "/etc/pki/tls/certs/ca-bundle.crt",
        "/etc/ssl/cert.pem",
    };
    for (const char *candidate : candidates) {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error)) {
            return candidate;
        }
    }
    return candidates.back();
}

bool isRegularFile(const std::string &path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

Field makeField(const MYSQL_FIELD &column)
{
    Field field;
    field.name = textOrEmpty(column.name);
    field.type = std::to_string(static_cast<unsigned int>(column.type));
    field.primary = (column.flags & PRI_KEY_FLAG) != 0;
    field.nullable = (column.flags & NOT_NULL_FLAG) == 0;
    field.binary = isBinaryColumn(column.charsetnr, static_cast<unsigned int>(column.type));
    field.database = textOrEmpty(column.db);
    field.table = textOrEmpty(column.org_table);
    field.originalName = textOrEmpty(column.org_name);
    field.sourceAlias = textOrEmpty(column.table);
    return field;
}

Row convertRow(const std::vector<Field> &fields, MYSQL_ROW values, const unsigned long *lengths)
{
    Row row;
    row.reserve(fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!values[i]) {
            row.emplace_back(std::nullopt);
            continue;
        }
        const std::string_view bytes(values[i], lengths[i]);
        row.emplace_back(cellText(bytes, fields[i].binary));
    }
    return row;
}

// The summary of the first result says how many result sets after it were read but not shown.
void appendUnshownResults(std::string &message, std::size_t count)
{
    if (count > 0) {
        message
            += " · " + std::to_string(count) + (count == 1 ? " more result set" : " more result sets") + " not shown";
    }
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

MySQLConnection::MySQLConnection(ConnectionProfile profile, ConnectionLimits limits)
    : m_profile(std::move(profile))
    , m_limits(limits)
{
}

MySQLConnection::~MySQLConnection()
{
    close();
}

std::string MySQLConnection::clientErrorText() const
{
    return "MySQL " + std::to_string(mysql_errno(m_handle)) + ": " + textOrEmpty(mysql_error(m_handle));
}

void MySQLConnection::throwClientError() const
{
    throw AppError(clientErrorText());
}

void MySQLConnection::closeAndRethrow()
{
    close();
    throw;
}

st_mysql *MySQLConnection::requireHandle() const
{
    if (!m_handle) {
        throw AppError("Connect to a server first.");
    }
    return m_handle;
}

void MySQLConnection::refuseWhenReadOnly() const
{
    if (m_profile.readOnly) {
        throw AppError("This connection is read-only.");
    }
}

void MySQLConnection::applyOptions()
{
    // Fixed options; their results are deliberately not checked. There is no read limit: a
    // statement may take as long as the server needs, and Cancel is the way out. A library read
    // limit would drop the connection under a long statement that the server may still commit.
    const my_bool off = 0;
    const my_bool on = 1;
    const unsigned int noLocalInfile = 0;
    mysql_options(m_handle, MYSQL_OPT_CONNECT_TIMEOUT, &m_limits.connectSeconds);
    mysql_options(m_handle, MYSQL_OPT_WRITE_TIMEOUT, &m_limits.writeSeconds);
    mysql_options(m_handle, MYSQL_OPT_RECONNECT, &off);
    mysql_options(m_handle, MYSQL_OPT_LOCAL_INFILE, &noLocalInfile);

    if (m_profile.tls == TLSMode::disabled) {
        mysql_options(m_handle, MYSQL_OPT_SSL_ENFORCE, &off);
        mysql_options(m_handle, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &off);
    } else {
        const bool verify = m_profile.tls == TLSMode::verify;
        if (mysql_options(m_handle, MYSQL_OPT_SSL_ENFORCE, &on) != 0
            || mysql_options(m_handle, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, verify ? &on : &off) != 0) {
            throwClientError();
        }
        if (verify) {
            const std::string ca = m_profile.caPath.empty() ? systemCertificateBundle() : m_profile.caPath;
            if (!isRegularFile(ca)) {
                throw AppError("Choose a CA certificate file for TLS verification.");
            }
            if (mysql_options(m_handle, MYSQL_OPT_SSL_CA, ca.c_str()) != 0) {
                throwClientError();
            }
        }
        mysql_options(m_handle, MARIADB_OPT_TLS_VERSION, "TLSv1.2,TLSv1.3");
    }

    // Always TCP, even for localhost: never a local socket.
    const unsigned int protocol = MYSQL_PROTOCOL_TCP;
    mysql_options(m_handle, MYSQL_OPT_PROTOCOL, &protocol);
}

void MySQLConnection::connect(const std::string &password)
{
    close();
    if (m_tunnelRequest && m_profile.tls == TLSMode::verify) {
        // The client library checks the certificate against the address it connects to, which
        // through a tunnel is 127.0.0.1, never the server's own name: a check of the wrong name
        // would pass or fail for the wrong reason.
        throw AppError("Verify certificate cannot be used through an SSH tunnel: the MySQL client library can only "
                       "check the certificate against the tunnel's local address, not against "
            + m_profile.host + ". Choose Require encryption, or connect without the tunnel.");
    }
    m_handle = mysql_init(nullptr);
    if (!m_handle) {
        throw AppError("The MySQL client could not initialize.");
    }
    try {
        applyOptions();
        std::string host = m_profile.host;
        auto port = static_cast<unsigned int>(m_profile.port);
        if (m_tunnelRequest) {
            SshTunnelRequest request = *m_tunnelRequest;
            request.targetHost = m_profile.host;
            request.targetPort = m_profile.port;
            m_tunnel = std::make_unique<SshTunnel>(std::move(request));
            host = "127.0.0.1";
            port = static_cast<unsigned int>(m_tunnel->localPort());
        }
        const char *database = m_profile.database.empty() ? nullptr : m_profile.database.c_str();
        // CLIENT_FOUND_ROWS: an UPDATE reports the rows it matched, so rewriting a cell with the
        // value it already holds still counts as one row.
        if (!mysql_real_connect(m_handle,
                host.c_str(),
                m_profile.user.c_str(),
                password.c_str(),
                database,
                port,
                nullptr,
                CLIENT_FOUND_ROWS)) {
            throwClientError();
        }
        watchForDeadPeer();
        if (mysql_set_character_set(m_handle, "utf8mb4") != 0) {
            throwClientError();
        }
        m_version = textOrEmpty(mysql_get_server_info(m_handle));
        m_cipher = textOrEmpty(mysql_get_ssl_cipher(m_handle));
        m_connectionID = mysql_thread_id(m_handle);
        // Our own check, not only the library's enforce option.
        if (m_profile.tls != TLSMode::disabled && m_cipher.empty()) {
            throw AppError("The server did not establish TLS. The connection has been closed.");
        }
        if (m_profile.readOnly) {
            query("SET SESSION TRANSACTION READ ONLY");
        }
    } catch (...) {
        closeAndRethrow();
    }
}

void MySQLConnection::watchForDeadPeer()
{
    // TCP keep-alive probes run while the connection waits for a long statement's answer, so a
    // server host that has gone away ends the wait with an error instead of hanging for ever.
    const my_socket socket = mysql_get_socket(m_handle);
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &m_limits.keepAliveIdleSeconds, sizeof(int));
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &m_limits.keepAliveIntervalSeconds, sizeof(int));
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &m_limits.keepAliveProbes, sizeof(int));
}

void MySQLConnection::use(const std::string &database)
{
    if (mysql_select_db(requireHandle(), database.c_str()) != 0) {
        throwClientError();
    }
}

void MySQLConnection::close()
{
    if (m_handle) {
        mysql_close(m_handle);
        m_handle = nullptr;
    }
    m_tunnel.reset();
}

std::optional<bool> MySQLConnection::tableRollsBack(const std::string &database, const std::string &table)
{
    const std::string schema = database.empty() ? "DATABASE()" : SQL::value(database);
    const QueryResult answer = query("SELECT e.TRANSACTIONS FROM information_schema.TABLES t "
                                     "JOIN information_schema.ENGINES e ON e.ENGINE = t.ENGINE "
                                     "WHERE t.TABLE_SCHEMA = "
        + schema + " AND t.TABLE_NAME = " + SQL::value(table));
    if (answer.rows.empty() || answer.rows.front().empty() || !answer.rows.front().front()) {
        return std::nullopt;
    }
    return *answer.rows.front().front() == "YES";
}

void MySQLConnection::send(const std::string &sql)
{
    if (mysql_send_query(requireHandle(), sql.data(), sql.size()) != 0) {
        throwClientError();
    }
}

void MySQLConnection::finishSent()
{
    MYSQL *handle = requireHandle();
    if (mysql_read_query_result(handle) != 0) {
        throwClientError();
    }
    if (mysql_field_count(handle) != 0) {
        MYSQL_RES *rows = mysql_use_result(handle);
        while (rows && mysql_fetch_row(rows)) { }
        mysql_free_result(rows);
    }
    discardFurtherResults();
}

void MySQLConnection::resetSession()
{
    MYSQL *handle = requireHandle();
    if (mysql_reset_connection(handle) != 0 || mysql_set_character_set(handle, "utf8mb4") != 0) {
        throwClientError();
    }
    if (m_profile.readOnly) {
        query("SET SESSION TRANSACTION READ ONLY");
    }
}

bool MySQLConnection::transactionOpen()
{
    query("DO 0");
    unsigned int status = 0;
    if (mariadb_get_infov(requireHandle(), MARIADB_CONNECTION_SERVER_STATUS, &status) != 0) {
        throwClientError();
    }
    return (status & SERVER_STATUS_IN_TRANS) != 0;
}

QueryResult MySQLConnection::query(const std::string &sql, std::int64_t maxRows)
{
    MYSQL *handle = requireHandle();
    const auto start = std::chrono::steady_clock::now();
    if (mysql_real_query(handle, sql.data(), sql.size()) != 0) {
        throwClientError();
    }
    QueryResult result;
    result.statement = sql;

    MYSQL_RES *stream = mysql_use_result(handle);
    if (!stream) {
        if (mysql_field_count(handle) != 0) {
            throwClientError();
        }
        result.affected = mysql_affected_rows(handle);
        result.message = std::to_string(result.affected) + " rows affected";
        appendUnshownResults(result.message, discardFurtherResults());
        result.elapsed = secondsSince(start);
        return result;
    }

    const auto keep = static_cast<std::size_t>(std::max<std::int64_t>(maxRows, 0));
    try {
        const unsigned int fieldCount = mysql_num_fields(stream);
        const MYSQL_FIELD *columns = mysql_fetch_fields(stream);
        if (!columns) {
            throwClientError();
        }
        result.fields.reserve(fieldCount);
        for (unsigned int i = 0; i < fieldCount; ++i) {
            result.fields.push_back(makeField(columns[i]));
        }
        while (MYSQL_ROW values = mysql_fetch_row(stream)) {
            const unsigned long *lengths = mysql_fetch_lengths(stream);
            if (!lengths) {
                throwClientError();
            }
            if (result.rows.size() < keep) {
                result.rows.push_back(convertRow(result.fields, values, lengths));
            } else {
                // Keep draining: unread rows left on the wire would break the next statement.
                result.truncated = true;
            }
        }
        if (mysql_errno(handle) != 0) {
            throwClientError();
        }
    } catch (...) {
        // The message was taken first: freeing the result may reset the handle's error.
        mysql_free_result(stream);
        throw;
    }
    mysql_free_result(stream);
    const std::size_t unshown = discardFurtherResults();
    result.message = std::to_string(result.rows.size()) + " rows";
    if (result.truncated) {
        result.message += " · display limit reached";
    }
    appendUnshownResults(result.message, unshown);
    result.elapsed = secondsSince(start);
    return result;
}

std::size_t MySQLConnection::discardFurtherResults()
{
    // A CALL answers with one result per SELECT of the procedure and a closing status; every one
    // must be read before the connection accepts the next statement.
    std::size_t resultSets = 0;
    while (mysql_more_results(m_handle)) {
        const int status = mysql_next_result(m_handle);
        if (status > 0) {
            throwClientError();
        }
        if (status < 0) {
            break;
        }
        MYSQL_RES *stream = mysql_use_result(m_handle);
        if (!stream) {
            if (mysql_field_count(m_handle) != 0) {
                throwClientError();
            }
            continue;
        }
        ++resultSets;
        while (mysql_fetch_row(stream)) { }
        const bool failed = mysql_errno(m_handle) != 0;
        if (failed) {
            const AppError error(clientErrorText());
            mysql_free_result(stream);
            throw error;
        }
        mysql_free_result(stream);
    }
    return resultSets;
}

std::vector<ColumnInfo> MySQLConnection::columns(const std::string &database, const std::string &table)
{
    // Server order: Field, Type, Collation, Null, Key, Default, Extra, Privileges, Comment.
    const QueryResult listing = query("SHOW FULL COLUMNS FROM " + SQL::qualified(database, table));
    std::vector<ColumnInfo> columns;
    for (const Row &row : listing.rows) {
        if (row.size() < 7 || !row[0] || !row[1]) {
            continue;
        }
        ColumnInfo column;
        column.name = *row[0];
        column.type = *row[1];
        column.collation = row[2];
        column.nullable = row[3] == "YES";
        column.primary = row[4] == "PRI";
        column.defaultValue = row[5];
        column.extra = row[6].value_or("");
        column.comment = row.size() >= 9 ? row[8].value_or("") : "";
        columns.push_back(std::move(column));
    }
    if (reportsDefaultsQuoted(m_version)) {
        markExpressionDefaults(database, table, columns);
    }
    return columns;
}

void MySQLConnection::markExpressionDefaults(
    const std::string &database, const std::string &table, std::vector<ColumnInfo> &columns)
{
    // MariaDB shows uuid() the same way for DEFAULT uuid() and for DEFAULT 'uuid()', and never
    // says DEFAULT_GENERATED. Its information_schema quotes literal defaults, so an expression is
    // marked here the way MySQL marks it, and nothing downstream mistakes it for text.
    const QueryResult defaults = query("SELECT COLUMN_NAME, COLUMN_DEFAULT FROM information_schema.COLUMNS "
                                       "WHERE TABLE_SCHEMA = "
        + SQL::value(database) + " AND TABLE_NAME = " + SQL::value(table));
    for (const Row &row : defaults.rows) {
        if (row.size() < 2 || !row[0] || !row[1] || !isExpressionDefault(*row[1])) {
            continue;
        }
        for (ColumnInfo &column : columns) {
            if (column.name == *row[0] && column.extra.find("DEFAULT_GENERATED") == std::string::npos) {
                column.extra = column.extra.empty() ? "DEFAULT_GENERATED" : "DEFAULT_GENERATED " + column.extra;
            }
        }
    }
}

std::string MySQLConnection::stringLiteral(const std::string &text) const
{
    if (!m_handle) {
        throw AppError("The connection is closed.");
    }
    std::string buffer(text.size() * 2 + 1, '\0');
    const unsigned long written = mysql_real_escape_string(m_handle, buffer.data(), text.data(), text.size());
    buffer.resize(std::min<std::size_t>(written, text.size() * 2));
    return "'" + repairedUtf8(buffer) + "'";
}

void MySQLConnection::streamRows(const std::string &sql,
    const std::function<void(const RawRow &)> &onRow,
    const std::function<void(const std::vector<std::string> &)> &onNames)
{
    MYSQL *handle = requireHandle();
    if (mysql_real_query(handle, sql.data(), sql.size()) != 0) {
        throwClientError();
    }
    MYSQL_RES *stream = mysql_use_result(handle);
    if (!stream) {
        if (mysql_field_count(handle) == 0) {
            discardFurtherResults();
            throw AppError("The statement returned no rows.");
        }
        throwClientError();
    }
    std::vector<bool> binaryColumns;
    const unsigned int fieldCount = mysql_num_fields(stream);
    const MYSQL_FIELD *columns = mysql_fetch_fields(stream);
    std::vector<std::string> names;
    for (unsigned int i = 0; columns && i < fieldCount; ++i) {
        binaryColumns.push_back(isBinaryColumn(columns[i].charsetnr, static_cast<unsigned int>(columns[i].type)));
        names.emplace_back(columns[i].name, columns[i].name_length);
    }
    if (onNames) {
        onNames(names);
    }
    try {
        while (MYSQL_ROW values = mysql_fetch_row(stream)) {
            const unsigned long *lengths = mysql_fetch_lengths(stream);
            if (!lengths) {
                throwClientError();
            }
            onRow(RawRow { binaryColumns, values, lengths });
        }
        if (mysql_errno(handle) != 0) {
            throwClientError();
        }
    } catch (...) {
        // The message was taken first: freeing the result may reset the handle's error.
        mysql_free_result(stream);
        throw;
    }
    mysql_free_result(stream);
    discardFurtherResults();
}

} // namespace tallowick
