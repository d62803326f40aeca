#include "session/CsvImportRun.h"

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "management/CsvImport.h"

namespace tallowick
{

std::size_t runCsvImport(MySQLConnection &client,
    const std::string &database,
    const std::string &table,
    const CsvImportPlan &plan,
    const std::function<void(std::size_t rowsDone, std::size_t rowsTotal)> &progress,
    std::size_t maxStatementBytes)
{
    if (client.profile().readOnly) {
        throw AppError("This connection is read-only.");
    }
    // Without transactions a failure in a later statement would leave the earlier ones behind.
    // A view or an unknown engine is let through: the INSERT itself will then decide.
    if (client.tableRollsBack(database, table) == false) {
        throw AppError("This table's storage engine cannot roll back a failed import. Convert the table to InnoDB, "
                       "or use SQL import.");
    }
    try {
        client.query("START TRANSACTION");
        CsvInsertBatches batches(database, table, plan, maxStatementBytes);
        std::string statement;
        while (batches.next(statement)) {
            client.query(statement);
            if (progress) {
                progress(batches.rowsDone(), plan.rows.size());
            }
        }
        client.query("COMMIT");
    } catch (...) {
        try {
            client.query("ROLLBACK");
        } catch (...) {
            // The first failure is the one to report; a connection that is gone has rolled back
            // on the server already.
        }
        throw;
    }
    return plan.rows.size();
}

} // namespace tallowick
