// The schema-and-data export: tables (structure, then one INSERT per row) and then views, read
// inside one consistent snapshot and streamed to the file so memory stays flat.
#include "client/ExportFile.h"
#include "client/ExportVerification.h"
#include "client/MySQLConnection.h"
#include "client/NeutralSessionSettings.h"
#include "core/AppError.h"
#include "core/FileText.h"
#include "core/SqlQuoting.h"

#include <QDateTime>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tallowick
{

namespace
{

struct ListedObject {
    std::string name;
    bool view;
};

std::vector<ListedObject> listObjects(const QueryResult &listing)
{
    std::vector<ListedObject> objects;
    for (const Row &row : listing.rows) {
        if (row.size() < 2 || !row[0]) {
            continue;
        }
        objects.push_back({ *row[0], row[1] == "VIEW" });
    }
    return objects;
}

std::string secondValueOfFirstRow(const QueryResult &result)
{
    if (result.rows.empty() || result.rows.front().size() < 2) {
        return {};
    }
    return result.rows.front()[1].value_or("");
}

void appendValue(std::string &out, const char *value, unsigned long length, bool binary)
{
    if (!value) {
        out += "NULL";
    } else if (length == 0) {
        out += "''";
    } else if (binary) {
        SQL::appendHexLiteral(out, std::string_view(value, length));
    } else {
        // Text travels as hex too, so no quoting or escaping rule of the server can change it.
        SQL::appendUtf8HexLiteral(out, std::string_view(value, length));
    }
}

} // namespace

void MySQLConnection::backup(const std::string &database,
    const std::string &path,
    const std::function<void(const std::string &)> &progress,
    TableDigests *digests)
{
    const NeutralSessionSettings neutral(*this);
    writeBackup(database, path, progress, digests);
}

void MySQLConnection::backupReplacing(const std::string &database,
    const std::string &destination,
    const std::function<void(const std::string &)> &progress,
    TableDigests *digests)
{
    replaceWhenComplete(destination, [&](const std::string &partial) { backup(database, partial, progress, digests); });
}

void MySQLConnection::writeBackup(const std::string &database,
    const std::string &path,
    const std::function<void(const std::string &)> &progress,
    TableDigests *digests)
{
    const std::vector<ListedObject> objects = listObjects(query("SHOW FULL TABLES FROM " + SQL::identifier(database)));
    ExportFile file(path, "backup file");
    const std::string timestamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODate).toStdString();
    // The replay gets the settings the file was read under: zero stays a value in an
    // AUTO_INCREMENT key, dates the server once took come back as they are, a value that would
    // not fit fails loudly, and TIMESTAMP values are written and read in UTC. The replaying
    // session's own settings come back after the last object.
    file.write("-- Tallowick export · " + timestamp
        + "\n-- Tables and views only. Routines, triggers, events, and user accounts are not included.\n"
          "SET NAMES utf8mb4;\n"
          "SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE='NO_AUTO_VALUE_ON_ZERO,STRICT_ALL_TABLES,ALLOW_INVALID_DATES';\n"
          "SET @OLD_TIME_ZONE=@@TIME_ZONE, TIME_ZONE='+00:00';\n"
          "SET FOREIGN_KEY_CHECKS=0;\nCREATE DATABASE IF NOT EXISTS "
        + SQL::identifier(database) + ";\nUSE " + SQL::identifier(database) + ";\n\n");

    query("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ");
    query("START TRANSACTION WITH CONSISTENT SNAPSHOT");
    try {
        for (const ListedObject &table : objects) {
            if (table.view) {
                continue;
            }
            progress(table.name);
            const std::string create
                = secondValueOfFirstRow(query("SHOW CREATE TABLE " + SQL::qualified(database, table.name)));
            file.write("-- Table " + SQL::identifier(table.name) + "\n" + create + ";\n");

            // Generated columns are never exported as data: the server computes them again.
            std::string columnList;
            for (const ColumnInfo &column : columns(database, table.name)) {
                if (!column.generated()) {
                    columnList += (columnList.empty() ? "" : ", ") + SQL::identifier(column.name);
                }
            }
            if (!columnList.empty()) {
                if (!isConnected()) {
                    throw AppError("The connection closed during export.");
                }
                const std::string insertPrefix
                    = "INSERT INTO " + SQL::identifier(table.name) + " (" + columnList + ") VALUES (";
                std::string statement;
                TableDigest *digest = digests ? &(*digests)[table.name] : nullptr;
                streamRows(
                    "SELECT " + columnList + " FROM " + SQL::qualified(database, table.name), [&](const RawRow &row) {
                        statement = insertPrefix;
                        for (std::size_t i = 0; i < row.binaryColumns.size(); ++i) {
                            if (i > 0) {
                                statement += ", ";
                            }
                            appendValue(statement, row.values[i], row.lengths[i], row.binaryColumns[i]);
                        }
                        statement += ");\n";
                        file.write(statement);
                        if (digest) {
                            addToDigest(*digest, row);
                        }
                    });
            }
            file.write("\n");
        }
        // Views after every table, so their base tables exist when the file is replayed.
        for (const ListedObject &view : objects) {
            if (!view.view) {
                continue;
            }
            progress(view.name);
            file.write(
                secondValueOfFirstRow(query("SHOW CREATE VIEW " + SQL::qualified(database, view.name))) + ";\n\n");
        }
        query("COMMIT");
        file.write("SET SQL_MODE=@OLD_SQL_MODE;\nSET TIME_ZONE=@OLD_TIME_ZONE;\n"
                   "SET FOREIGN_KEY_CHECKS=1;\n-- Export complete.\n");
        file.close();
    } catch (...) {
        try {
            query("ROLLBACK");
        } catch (const AppError &) {
            // The export's own error is the one worth reporting.
        }
        throw;
    }
}

} // namespace tallowick
