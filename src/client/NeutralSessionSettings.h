#pragma once

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <string>

namespace tallowick
{

// Reads definitions and rows the same way whatever the server's or the session's settings: an
// SQL mode such as ANSI_QUOTES would write identifiers no other server reads, and TIMESTAMP values
// would be read in the session's time zone. The session gets its own settings back afterwards,
// also when the export fails.
class NeutralSessionSettings
{
public:
    explicit NeutralSessionSettings(MySQLConnection &connection)
        : m_connection(connection)
    {
        const QueryResult current = connection.query("SELECT @@SESSION.sql_mode, @@SESSION.time_zone");
        if (current.rows.empty() || current.rows.front().size() < 2) {
            throw AppError("The server did not report the session's SQL mode and time zone.");
        }
        m_sqlMode = current.rows.front()[0].value_or("");
        m_timeZone = current.rows.front()[1].value_or("SYSTEM");
        connection.query("SET SESSION sql_mode = '', time_zone = '+00:00'");
    }

    ~NeutralSessionSettings()
    {
        try {
            if (m_connection.isConnected()) {
                m_connection.query(
                    "SET SESSION sql_mode = " + SQL::value(m_sqlMode) + ", time_zone = " + SQL::value(m_timeZone));
            }
        } catch (const AppError &) {
            // The export's own outcome is the one to report; a connection that cannot take this
            // statement cannot take the next one either, and says so then.
        }
    }

    NeutralSessionSettings(const NeutralSessionSettings &) = delete;
    NeutralSessionSettings &operator=(const NeutralSessionSettings &) = delete;

private:
    MySQLConnection &m_connection;
    std::string m_sqlMode;
    std::string m_timeZone;
};

} // namespace tallowick
