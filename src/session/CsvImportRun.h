#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tallowick
{

class MySQLConnection;
struct CsvImportPlan;

// The CSV import's work on the session's lane. Refuses a read-only profile ("This connection is
// read-only.") and a table whose storage engine cannot roll back; then START TRANSACTION, the
// plan's INSERT batches, COMMIT. On any failure it sends ROLLBACK (whose own failure is ignored)
// and rethrows, so the table is left as it was. `progress` is called on the lane after each
// statement with the rows sent so far. Returns the number of rows imported.
std::size_t runCsvImport(MySQLConnection &client,
    const std::string &database,
    const std::string &table,
    const CsvImportPlan &plan,
    const std::function<void(std::size_t rowsDone, std::size_t rowsTotal)> &progress,
    std::size_t maxStatementBytes);

} // namespace tallowick
