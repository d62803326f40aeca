#include "session/CsvImportRun.h"

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "core/FileText.h"
#include "management/CsvImport.h"

#include <utility>

namespace tallowick
{

namespace
{

constexpr std::size_t pieceBytes = 1 << 20;
constexpr const char *cancelledMessage = "Cancelled. Nothing was imported.";

} // namespace

CsvImportPlan planCsvImportFile(
    const std::string &path, const std::vector<ColumnInfo> &tableColumns, bool nullMarkerIsNull)
{
    FileReader file(path);
    // One byte past the planning size tells whether the file ends there.
    std::string head;
    for (std::string_view piece = file.read(pieceBytes); !piece.empty() && head.size() <= csvPlanningBytes;
         piece = file.read(pieceBytes)) {
        head.append(piece);
    }
    const bool wholeFile = head.size() <= csvPlanningBytes;
    if (!wholeFile) {
        head.resize(csvPlanningBytes);
    }
    return planCsvImport(head, wholeFile, tableColumns, nullMarkerIsNull, file.size());
}

std::size_t runCsvImport(MySQLConnection &client,
    const std::string &database,
    const std::string &table,
    const std::string &path,
    const CsvImportPlan &plan,
    const std::function<void(const CsvImportProgress &)> &progress,
    std::size_t maxStatementBytes,
    const std::atomic<bool> *cancel)
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
    // START TRANSACTION would commit the user's own open transaction, and the import's
    // ROLLBACK could then no longer take their changes back.
    if (client.transactionOpen()) {
        throw AppError("A transaction is open on this connection. Commit or roll it back before importing.");
    }
    FileReader file(path);
    CsvImportReader reader(plan.nullMarkerIsNull);
    bool atEnd = false;
    const auto nextRow = [&](Row &row) {
        while (!reader.next(row)) {
            if (atEnd) {
                return false;
            }
            const std::string_view piece = file.read(pieceBytes);
            if (piece.empty()) {
                reader.finish();
                atEnd = true;
            } else {
                reader.feed(piece);
            }
        }
        // What the preview showed must be what goes in.
        if (reader.rowsRead() == 1 && *reader.header() != plan.header) {
            throw AppError("The CSV file changed after it was chosen. Choose it again.");
        }
        return true;
    };
    CsvInsertBatches batches(database, table, plan.columns, nextRow, maxStatementBytes);

    bool sent = false; // a statement is on its way and its answer not read yet
    try {
        client.query("START TRANSACTION");
        // The next statement is built from the file while the server inserts the last one.
        std::string building;
        std::string sending;
        while (batches.next(building)) {
            if (sent) {
                sent = false;
                client.finishSent();
                if (progress) {
                    progress({ batches.rowsDone(), file.bytesRead(), file.size() });
                }
            }
            if (cancel && cancel->load()) {
                break; // reported below, after the rollback
            }
            std::swap(building, sending);
            client.send(sending);
            sent = true;
        }
        if (sent) {
            sent = false;
            client.finishSent();
        }
        if (cancel && cancel->load()) {
            throw AppError(cancelledMessage);
        }
        client.query("COMMIT");
        if (progress) {
            progress({ batches.rowsDone(), file.bytesRead(), file.size() });
        }
    } catch (...) {
        try {
            if (sent) {
                client.finishSent();
            }
        } catch (...) {
            // The statement's own failure is not the one to report.
        }
        try {
            client.query("ROLLBACK");
        } catch (...) {
            // The first failure is the one to report; a connection that is gone has rolled back
            // on the server already.
        }
        // Cancel also stops the running statement, whose error would hide why.
        if (cancel && cancel->load()) {
            throw AppError(cancelledMessage);
        }
        throw;
    }
    return batches.rowsDone();
}

} // namespace tallowick
