// The schema catalog behind the editor's completion: tables and columns per database, read on the
// session's lane without making the session busy, so typing and running never wait for it.
#include "client/MySQLConnection.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "session/ServerSession.h"
#include "session/TableBrowsing.h"

#include <algorithm>

namespace tallowick
{

namespace
{

// Far beyond any real schema (5,000 tables of 20 columns is 100,000 rows), but a bound all the same.
constexpr std::int64_t catalogRowLimit = 2'000'000;

} // namespace

std::shared_ptr<const SchemaCatalog> ServerSession::catalog() const
{
    if (!m_catalogSnapshot) {
        m_catalogSnapshot
            = std::make_shared<const SchemaCatalog>(SchemaCatalog { m_databases, m_tables, m_catalogColumns });
    }
    return m_catalogSnapshot;
}

void ServerSession::forgetCatalog(const std::optional<std::string> &database)
{
    if (database) {
        m_catalogColumns.erase(*database);
    } else {
        m_catalogColumns.clear();
    }
    m_catalogSnapshot.reset();
}

void ServerSession::requestCatalog(const std::string &database)
{
    const bool known = std::find(m_databases.begin(), m_databases.end(), database) != m_databases.end();
    if (known && !m_catalogColumns.contains(database)) {
        loadCatalog(database);
    }
}

bool ServerSession::changesSchema(const std::vector<std::string> &statements)
{
    return std::any_of(statements.begin(), statements.end(), [](const std::string &statement) {
        const std::string keyword = SQL::leadingKeyword(statement);
        return keyword == "CREATE" || keyword == "ALTER" || keyword == "DROP" || keyword == "RENAME";
    });
}

void ServerSession::loadCatalog(const std::string &database)
{
    if (!m_connected || database.empty() || !m_catalogLoading.insert(database).second) {
        return;
    }
    // Beside the session's jobs, not one of them: the session stays idle, and a job the user
    // starts meanwhile simply runs after this one.
    alongside([database](MySQLConnection *client) -> Completion {
        std::optional<QueryResult> tables;
        std::optional<QueryResult> columns;
        if (client) {
            try {
                tables = client->query("SHOW FULL TABLES FROM " + SQL::identifier(database));
                columns = client->query("SELECT TABLE_NAME, COLUMN_NAME FROM information_schema.COLUMNS "
                                        "WHERE TABLE_SCHEMA = "
                        + SQL::value(database) + " ORDER BY TABLE_NAME, ORDINAL_POSITION",
                    catalogRowLimit);
            } catch (const std::exception &) {
                // No completion for a database that cannot be read; nothing else depends on it.
            }
        }
        return
            [database, tables, columns](ServerSession &session) { session.catalogLoaded(database, tables, columns); };
    });
}

void ServerSession::catalogLoaded(
    const std::string &database, const std::optional<QueryResult> &tables, const std::optional<QueryResult> &columns)
{
    m_catalogLoading.erase(database);
    if (!tables || !columns) {
        // Not asked again until the schema changes: the editor asks on every keystroke.
        m_catalogColumns[database] = {};
        m_catalogSnapshot.reset();
        return;
    }
    std::map<std::string, std::vector<std::string>> byTable;
    for (const Row &row : columns->rows) {
        if (row.size() >= 2 && row[0] && row[1]) {
            byTable[*row[0]].push_back(*row[1]);
        }
    }
    m_catalogColumns[database] = std::move(byTable);
    m_catalogSnapshot.reset();
    std::vector<TableInfo> listed = tableListFrom(*tables);
    if (const auto known = m_tables.find(database); known == m_tables.end() || known->second != listed) {
        TableLists updated = m_tables;
        updated[database] = std::move(listed);
        setTables(updated);
    }
    Q_EMIT catalogChanged();
}

} // namespace tallowick
