// Navigation and table browsing: the operations behind the database navigator and the data,
// structure, index, relation, server and user panels.
#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "session/ServerSession.h"
#include "session/TableBrowsing.h"

namespace tallowick
{

namespace
{

// A task that runs one statement at the default row cap.
std::function<QueryResult(MySQLConnection &)> statement(const std::string &sql)
{
    return [sql](MySQLConnection &client) { return client.query(sql); };
}

struct OpenedTable {
    ColumnList columns;
    QueryResult firstPage;
};

} // namespace

void ServerSession::loadDatabases()
{
    perform<QueryResult>("Loading databases…",
        statement("SHOW DATABASES"),
        [](ServerSession &session, const QueryResult &listing) { session.setDatabases(databaseNames(listing)); });
}

void ServerSession::loadTables(const std::string &database)
{
    perform<QueryResult>("Loading " + database + "…",
        statement("SHOW FULL TABLES FROM " + SQL::identifier(database)),
        [database](ServerSession &session, const QueryResult &listing) {
            TableLists tables = session.m_tables;
            tables[database] = tableListFrom(listing);
            session.setTables(tables);
        });
}

void ServerSession::chooseDatabase(const std::string &name)
{
    perform(
        "Selecting database…",
        [name](MySQLConnection &client) { client.use(name); },
        [name](ServerSession &session) {
            // Column lists are kept by table name, which only means something within one database.
            if (session.m_database != name) {
                session.setBuilderColumns({});
            }
            session.setDatabase(name);
            session.setSelectedTable("");
            BuilderSpec builder;
            builder.database = name;
            session.setBuilder(builder);
            session.loadTables(name);
            session.loadCatalog(name);
        });
}

void ServerSession::selectTable(const std::string &table, const std::string &database)
{
    perform<OpenedTable>(
        "Opening " + table + "…",
        [table, database](MySQLConnection &client) {
            client.use(database);
            OpenedTable opened;
            opened.columns = client.columns(database, table);
            opened.firstPage = client.query("SELECT * FROM " + SQL::qualified(database, table) + " LIMIT 200");
            return opened;
        },
        [table, database](ServerSession &session, const OpenedTable &opened) {
            if (session.m_database != database) {
                session.setBuilderColumns({});
            }
            session.setDatabase(database);
            session.setSelectedTable(table);
            session.setColumns(opened.columns);
            session.setTableResult(opened.firstPage);
            session.setPage(0);
            session.setPageSize(200);
            session.setFilter("");
            session.setSortColumn("");
            session.setSelectedRow(-1);
            session.setMode(WorkspaceMode::data);
            session.setStatus(opened.firstPage.message + " · " + formatSeconds(opened.firstPage.elapsed));
            BuilderSpec builder;
            builder.database = database;
            builder.table = table;
            session.setBuilder(builder);
            // The builder already has this table's columns; it need not load them again.
            ColumnLists builderColumns = session.m_builderColumns;
            builderColumns[table] = opened.columns;
            session.setBuilderColumns(builderColumns);
        });
}

void ServerSession::browse()
{
    if (m_selectedTable.empty()) {
        return;
    }
    std::string sql;
    try {
        sql = pageStatement(
            { m_database, m_selectedTable, m_columns, m_filter, m_sortColumn, m_sortDescending, m_page, m_pageSize });
    } catch (const AppError &failure) {
        setError(failure.message());
        return;
    }
    perform<QueryResult>("Loading rows…", statement(sql), [](ServerSession &session, const QueryResult &rows) {
        session.setTableResult(rows);
        session.setSelectedRow(-1);
        session.setStatus(
            rows.message + " · page " + std::to_string(session.m_page + 1) + " · " + formatSeconds(rows.elapsed));
    });
}

void ServerSession::inspect(WorkspaceMode mode)
{
    if (m_selectedTable.empty()) {
        return;
    }
    setMode(mode);
    const std::optional<std::string> sql = inspectionStatement(mode, m_database, m_selectedTable);
    if (!sql) {
        return;
    }
    perform<QueryResult>("Inspecting " + m_selectedTable + "…",
        statement(*sql),
        [](ServerSession &session, const QueryResult &result) { session.setMetadata(result); });
}

void ServerSession::serverInfo()
{
    perform<QueryResult>("Reading server status…",
        statement("SHOW GLOBAL STATUS"),
        [](ServerSession &session, const QueryResult &result) { session.setMetadata(result); });
}

void ServerSession::users()
{
    perform<QueryResult>("Reading users…",
        statement(usersStatement(m_version)),
        [](ServerSession &session, const QueryResult &result) { session.setMetadata(result); });
}

void ServerSession::showCreate()
{
    const std::string table = m_selectedTable;
    perform<QueryResult>("Reading table definition…",
        statement("SHOW CREATE TABLE " + SQL::qualified(m_database, table)),
        [table](ServerSession &session, const QueryResult &result) {
            if (!result.rows.empty() && result.rows.front().size() >= 2 && result.rows.front()[1]) {
                session.newTab(*result.rows.front()[1] + ";", table + " · DDL");
            }
        });
}

} // namespace tallowick
