#include "client/ExportVerification.h"

#include "client/NeutralSessionSettings.h"
#include "client/ScriptReplay.h"
#include "core/AppError.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
#include "core/UuidText.h"

#include <QUuid>

namespace tallowick
{

namespace
{

// FNV-1a over the bytes, then a final mix, so that the sum of many row hashes stays spread out.
class RowHash
{
public:
    void add(const void *data, std::size_t length)
    {
        const auto *bytes = static_cast<const unsigned char *>(data);
        for (std::size_t i = 0; i < length; ++i) {
            m_state = (m_state ^ bytes[i]) * 0x100000001b3ULL;
        }
    }

    std::uint64_t value() const
    {
        std::uint64_t z = m_state + 0x9e3779b97f4a7c15ULL;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }

private:
    std::uint64_t m_state = 0xcbf29ce484222325ULL;
};

// The columns the export writes: every one but the generated ones.
std::string exportedColumns(MySQLConnection &connection, const std::string &database, const std::string &table)
{
    std::string list;
    for (const ColumnInfo &column : connection.columns(database, table)) {
        if (!column.generated()) {
            list += (list.empty() ? "" : ", ") + SQL::identifier(column.name);
        }
    }
    return list;
}

// Drops the scratch database however verification ends.
class ScratchDatabaseGuard
{
public:
    ScratchDatabaseGuard(MySQLConnection &connection, std::string name)
        : m_connection(connection)
        , m_name(std::move(name))
    {
        m_connection.query("CREATE DATABASE " + SQL::identifier(m_name) + " CHARACTER SET utf8mb4");
    }

    ~ScratchDatabaseGuard()
    {
        try {
            m_connection.query("DROP DATABASE IF EXISTS " + SQL::identifier(m_name));
        } catch (const AppError &) {
            // Verification's own outcome is the one to report.
        }
    }

    ScratchDatabaseGuard(const ScratchDatabaseGuard &) = delete;
    ScratchDatabaseGuard &operator=(const ScratchDatabaseGuard &) = delete;

private:
    MySQLConnection &m_connection;
    std::string m_name;
};

} // namespace

void addToDigest(TableDigest &digest, const MySQLConnection::RawRow &row)
{
    RowHash hash;
    for (std::size_t i = 0; i < row.binaryColumns.size(); ++i) {
        const unsigned char present = row.values[i] ? 1 : 0;
        const std::uint64_t length = row.values[i] ? row.lengths[i] : 0;
        hash.add(&present, 1);
        hash.add(&length, sizeof length);
        if (row.values[i]) {
            hash.add(row.values[i], row.lengths[i]);
        }
    }
    ++digest.rows;
    digest.sum += hash.value();
}

std::string MySQLConnection::verifyExport(
    const std::string &path, const std::string &database, const TableDigests &expected)
{
    const std::string scratch = "tallowick_verify_" + uuidText(QUuid::createUuid()).substr(0, 8);
    const ScratchDatabaseGuard guard(*this, scratch);
    // The export names its own database; here it goes into the scratch one instead.
    const std::string createOwn = "CREATE DATABASE IF NOT EXISTS " + SQL::identifier(database);
    const std::string useOwn = "USE " + SQL::identifier(database);
    ScriptReplay replay(*this);
    replay.setRewrite([&](const std::string &statement) -> std::optional<std::string> {
        if (statement == createOwn) {
            return std::nullopt;
        }
        return statement == useOwn ? "USE " + SQL::identifier(scratch) : statement;
    });
    replay.run(path, {}, nullptr);

    const NeutralSessionSettings neutral(*this);
    std::uint64_t rows = 0;
    for (const auto &[table, digest] : expected) {
        TableDigest restored;
        streamRows("SELECT " + exportedColumns(*this, scratch, table) + " FROM " + SQL::qualified(scratch, table),
            [&restored](const RawRow &row) { addToDigest(restored, row); });
        if (restored.rows != digest.rows) {
            throw AppError("The export does not restore table " + table + ": " + std::to_string(digest.rows)
                + " rows were exported, " + std::to_string(restored.rows) + " came back.");
        }
        if (restored.sum != digest.sum) {
            throw AppError("The export does not restore table " + table + ": its " + std::to_string(digest.rows)
                + " rows came back with different values.");
        }
        rows += digest.rows;
    }
    return "verified: " + std::to_string(expected.size()) + " tables, " + std::to_string(rows)
        + " rows restore exactly";
}

} // namespace tallowick
