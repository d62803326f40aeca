#include "client/MySQLConnection.h"

#include "client/CellText.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <mysql.h>

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
        row.emplace_back(fields[i].binary ? hexDisplay(bytes) : repairedUtf8(bytes));
    }
    return row;
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

MySQLConnection::MySQLConnection(ConnectionProfile profile)
    : m_profile(std::move(profile))
{
}

MySQLConnection::~MySQLConnection()
{
    close();
}

void MySQLConnection::throwClientError() const
{
    throw AppError("MySQL " + std::to_string(mysql_errno(m_handle)) + ": " + textOrEmpty(mysql_error(m_handle)));
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
    // Fixed options; their results are deliberately not checked.
    const unsigned int connectTimeout = 12;
    const unsigned int ioTimeout = 90;
    const my_bool off = 0;
    const my_bool on = 1;
    const unsigned int noLocalInfile = 0;
    mysql_options(m_handle, MYSQL_OPT_CONNECT_TIMEOUT, &connectTimeout);
    mysql_options(m_handle, MYSQL_OPT_READ_TIMEOUT, &ioTimeout);
    mysql_options(m_handle, MYSQL_OPT_WRITE_TIMEOUT, &ioTimeout);
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
    m_handle = mysql_init(nullptr);
    if (!m_handle) {
        throw AppError("The MySQL client could not initialize.");
    }
    try {
        applyOptions();
        const char *database = m_profile.database.empty() ? nullptr : m_profile.database.c_str();
        // CLIENT_FOUND_ROWS: an UPDATE reports the rows it matched, so rewriting a cell with the
        // value it already holds still counts as one row.
        if (!mysql_real_connect(m_handle,
                m_profile.host.c_str(),
                m_profile.user.c_str(),
                password.c_str(),
                database,
                static_cast<unsigned int>(m_profile.port),
                nullptr,
                CLIENT_FOUND_ROWS)) {
            throwClientError();
        }
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
    result.message = std::to_string(result.rows.size()) + " rows";
    if (result.truncated) {
        result.message += " · display limit reached";
    }
    result.elapsed = secondsSince(start);
    return result;
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
    return columns;
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

void MySQLConnection::streamRows(const std::string &sql, const std::function<void(const RawRow &)> &onRow)
{
    MYSQL *handle = requireHandle();
    if (mysql_real_query(handle, sql.data(), sql.size()) != 0) {
        throwClientError();
    }
    MYSQL_RES *stream = mysql_use_result(handle);
    if (!stream) {
        throwClientError();
    }
    std::vector<bool> binaryColumns;
    const unsigned int fieldCount = mysql_num_fields(stream);
    const MYSQL_FIELD *columns = mysql_fetch_fields(stream);
    for (unsigned int i = 0; columns && i < fieldCount; ++i) {
        binaryColumns.push_back(isBinaryColumn(columns[i].charsetnr, static_cast<unsigned int>(columns[i].type)));
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
}

} // namespace tallowick
