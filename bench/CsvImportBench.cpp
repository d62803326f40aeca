// Times the CSV import against the server's own client replaying one INSERT per row. Run by
// scripts/bench, which starts the disposable server, wraps every run in /usr/bin/time and prints
// rows per second and the ratio.
//
//   tallowick_csv_import_bench files <database> <rows> <csv> <sql>
//       write a six-column CSV of <rows> rows, as the program's own CSV export writes it, and the
//       same rows as a script of one-row INSERTs into <database>.csv_cli
//   tallowick_csv_import_bench setup <database>    (re)create <database> with empty csv_app and csv_cli
//   tallowick_csv_import_bench import <database> <csv>   import the file into <database>.csv_app
//
// The account comes from TALLOWICK_TEST_USER / TALLOWICK_TEST_PASSWORD / TALLOWICK_TEST_PORT.
#include "bench/BenchServer.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "core/Csv.h"
#include "core/SqlQuoting.h"
#include "management/CsvImport.h"
#include "session/CsvImportRun.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <mysql.h>
#include <string>

using namespace tallowick;

namespace
{

const char *const tableColumns
    = "(id INT PRIMARY KEY, name VARCHAR(100) NOT NULL, notes TEXT NULL, "
      "amount DECIMAL(12,2) NOT NULL, created DATETIME NOT NULL, active TINYINT(1) NOT NULL) "
      "ENGINE=InnoDB";

// Varied enough to exercise the quoting: a comma and quotes now and then, an apostrophe or a line
// break (hexadecimal literals), some NULL notes and some non-ASCII names.
QueryResult benchRows(long rows)
{
    QueryResult result;
    for (const char *name : { "id", "name", "notes", "amount", "created", "active" }) {
        Field field;
        field.name = name;
        result.fields.push_back(field);
    }
    result.rows.reserve(static_cast<std::size_t>(rows));
    for (long i = 1; i <= rows; ++i) {
        const std::string n = std::to_string(i);
        Cell notes;
        switch (i % 5) {
        case 0:
            break;
        case 1:
            notes = "order " + n + ", paid";
            break;
        case 2:
            notes = "said \"deliver " + n + "\"";
            break;
        case 3:
            notes = "O'Brien's order " + n;
            break;
        default:
            notes = "two\nlines " + n;
            break;
        }
        char created[32];
        std::snprintf(created,
            sizeof created,
            "2026-%02ld-%02ld %02ld:%02ld:%02ld",
            1 + i % 12,
            1 + i % 28,
            i % 24,
            i % 60,
            (i / 60) % 60);
        result.rows.push_back({ n,
            (i % 7 == 0 ? "Zoë " : "customer ") + n,
            notes,
            std::to_string(i % 100000) + "." + std::to_string(10 + i % 90),
            std::string(created),
            std::string(i % 2 ? "1" : "0") });
    }
    return result;
}

void writeFiles(const std::string &database, long rows, const std::string &csvPath, const std::string &sqlPath)
{
    const QueryResult result = benchRows(rows);
    std::ofstream(csvPath, std::ios::binary) << SQL::csv(result);

    std::ofstream script(sqlPath, std::ios::binary);
    const std::string prefix = "INSERT INTO " + SQL::qualified(database, "csv_cli")
        + " (`id`, `name`, `notes`, `amount`, `created`, `active`) VALUES (";
    for (const Row &row : result.rows) {
        std::string line = prefix;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += (i > 0 ? ", " : "") + SQL::value(row[i]);
        }
        script << line << ");\n";
    }
}

void setUp(const std::string &database)
{
    const auto connection = bench::connectToTestServer();
    connection->query("DROP DATABASE IF EXISTS " + SQL::identifier(database));
    connection->query("CREATE DATABASE " + SQL::identifier(database) + " CHARACTER SET utf8mb4");
    for (const char *table : { "csv_app", "csv_cli" }) {
        connection->query("CREATE TABLE " + SQL::qualified(database, table) + " " + tableColumns);
    }
}

std::size_t import(const std::string &database, const std::string &csvPath)
{
    const auto connection = bench::connectToTestServer();
    const CsvImportPlan plan = planCsvImportFile(csvPath, connection->columns(database, "csv_app"), true);
    return runCsvImport(*connection, database, "csv_app", csvPath, plan, {}, csvDefaultStatementBytes);
}

} // namespace

int main(int argc, char *argv[])
{
    mysql_server_init(0, nullptr, nullptr);
    const ClientThreadScope scope;
    const std::string mode = argc > 1 ? argv[1] : "";
    try {
        const auto start = std::chrono::steady_clock::now();
        std::size_t rows = 0;
        if (mode == "files" && argc == 6) {
            writeFiles(argv[2], std::stol(argv[3]), argv[4], argv[5]);
        } else if (mode == "setup" && argc == 3) {
            setUp(argv[2]);
        } else if (mode == "import" && argc == 4) {
            rows = import(argv[2], argv[3]);
        } else {
            std::cerr << "usage: tallowick_csv_import_bench files DB ROWS CSV SQL | setup DB | import DB CSV\n";
            return 2;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::cout << mode << " rows=" << rows << " seconds=" << seconds << '\n';
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
