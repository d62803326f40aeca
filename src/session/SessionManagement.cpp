// The management forms' changes: a reviewed schema statement, a new account, a CSV import. Each
// tells the form how it ended and reloads what it touched.
#include "client/MySQLConnection.h"
#include "core/MainThread.h"
#include "management/CsvImport.h"
#include "management/ManagementSQL.h"
#include "session/CsvImportRun.h"
#include "session/ServerSession.h"

namespace tallowick
{

void ServerSession::reloadAfter(ManagementSheet kind, const std::string &database, const std::string &table)
{
    switch (kind) {
    case ManagementSheet::createDatabase:
        loadDatabases();
        break;
    case ManagementSheet::createTable:
        loadTables(database);
        break;
    case ManagementSheet::createUser:
        users();
        break;
    case ManagementSheet::addColumn:
    case ManagementSheet::modifyColumn:
    case ManagementSheet::addIndex:
    case ManagementSheet::insertRow:
    case ManagementSheet::importCSV:
        selectTable(table, database);
        break;
    }
}

void ServerSession::applyChange(
    ManagementSheet kind, const std::string &sql, const std::string &database, const std::string &table, Finished done)
{
    performFor(
        std::string(applyingChangeStatus),
        [sql](MySQLConnection &client) { client.query(sql); },
        [kind, database, table](ServerSession &session) { session.reloadAfter(kind, database, table); },
        std::move(done));
}

void ServerSession::createUser(
    const std::string &name, const std::string &host, const std::string &password, Finished done)
{
    performFor(
        std::string(applyingChangeStatus),
        [name, host, password](MySQLConnection &client) { client.createUser(name, host, password); },
        [](ServerSession &session) { session.users(); },
        std::move(done));
}

void ServerSession::importCSV(
    std::shared_ptr<const CsvImportPlan> plan, const std::string &database, const std::string &table, Finished done)
{
    const QPointer<ServerSession> guard(this);
    const std::size_t rows = plan->rows.size();
    performFor(
        std::string(importingCsvStatus),
        [plan, database, table, guard](MySQLConnection &client) {
            runCsvImport(
                client,
                database,
                table,
                *plan,
                [guard](std::size_t rowsDone, std::size_t rowsTotal) {
                    postToMainThread(guard, [status = csvImportStatus(rowsDone, rowsTotal)](ServerSession &session) {
                        session.reportProgress(status);
                    });
                },
                csvDefaultStatementBytes);
        },
        [database, table, rows](ServerSession &session) {
            if (session.database() == database && session.selectedTable() == table) {
                session.browse();
                // Shown while the page reloads (the status only changes while a job runs).
                session.reportProgress("Imported " + csvRowCountText(rows) + " into " + table);
            }
        },
        std::move(done));
}

} // namespace tallowick
