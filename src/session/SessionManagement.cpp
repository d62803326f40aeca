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
    if (kind == ManagementSheet::createTable || kind == ManagementSheet::addColumn
        || kind == ManagementSheet::modifyColumn) {
        forgetCatalog(database);
        loadCatalog(database);
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

void ServerSession::importCSV(std::shared_ptr<const CsvImportPlan> plan,
    const std::string &path,
    const std::string &database,
    const std::string &table,
    Finished done)
{
    const QPointer<ServerSession> guard(this);
    const auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_transferCancelled = cancelled;
    const auto rows = std::make_shared<std::size_t>(0);
    performFor(
        std::string(importingCsvStatus),
        [plan, path, database, table, guard, cancelled, rows](MySQLConnection &client) {
            *rows = runCsvImport(
                client,
                database,
                table,
                path,
                *plan,
                [guard, total = plan->rowCount](const CsvImportProgress &progress) {
                    const int percent = progress.bytesTotal == 0 ? 100
                                                                 : static_cast<int>(std::min<std::uint64_t>(100,
                                                                     progress.bytesDone * 100 / progress.bytesTotal));
                    postToMainThread(guard,
                        [status = csvImportStatus(progress.rowsDone, total, progress.bytesDone, progress.bytesTotal),
                            percent](ServerSession &session) { session.reportProgress(status, percent); });
                },
                csvDefaultStatementBytes,
                cancelled.get());
        },
        [database, table, rows](ServerSession &session) {
            if (session.database() == database && session.selectedTable() == table) {
                session.browse();
                // Shown while the page reloads (the status only changes while a job runs).
                session.reportProgress("Imported " + csvRowCountText(*rows) + " into " + table);
            }
        },
        std::move(done));
}

} // namespace tallowick
