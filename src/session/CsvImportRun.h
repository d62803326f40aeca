#pragma once

#include "core/ColumnInfo.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tallowick
{

class MySQLConnection;
struct CsvImportPlan;

// Plans the import of the CSV file at `path` from its first csvPlanningBytes, so choosing even a
// huge file answers at once: the header mapped, the first rows previewed, and every refusal a
// small file can have. Throws AppError with the form's messages, or "Could not open …".
CsvImportPlan planCsvImportFile(
    const std::string &path, const std::vector<ColumnInfo> &tableColumns, bool nullMarkerIsNull);

struct CsvImportProgress {
    std::size_t rowsDone;
    std::uint64_t bytesDone;
    std::uint64_t bytesTotal;
};

// The CSV import's work on the session's lane. Refuses a read-only profile ("This connection is
// read-only.") and a table whose storage engine cannot roll back; then START TRANSACTION, the
// file's rows as INSERT batches read as the file streams, COMMIT. Every row is checked as the
// plan's were, and the header must still be the planned one. On any failure, or when `cancel`
// is set, it sends ROLLBACK (whose own failure is ignored) and throws, so the table is left as
// it was. `progress` is called on the lane after each statement. Returns the rows imported.
std::size_t runCsvImport(MySQLConnection &client,
    const std::string &database,
    const std::string &table,
    const std::string &path,
    const CsvImportPlan &plan,
    const std::function<void(const CsvImportProgress &)> &progress,
    std::size_t maxStatementBytes,
    const std::atomic<bool> *cancel = nullptr);

} // namespace tallowick
