// Times the client against the server's own command-line tools. Run by scripts/bench, which
// starts the disposable server, wraps every run in /usr/bin/time and prints the ratios.
//
//   tallowick_client_bench setup <database> <rows>   create <database>.bench with <rows> rows
//   tallowick_client_bench drain <database>          SELECT * with the grid's 10,000-row cap
//   tallowick_client_bench export <database> <path>  the schema-and-data export
//   tallowick_client_bench replay <path>             run a SQL file as "Run SQL File" does
//   tallowick_client_bench csv <database> <path>     every row of the table to CSV, streamed
//
// The account comes from TALLOWICK_TEST_USER / TALLOWICK_TEST_PASSWORD / TALLOWICK_TEST_PORT.
#include "bench/BenchServer.h"
#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "client/ScriptReplay.h"
#include "core/SqlQuoting.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mysql.h>
#include <string>

using namespace tallowick;

namespace
{

void setUp(const std::string &database, long rows)
{
    const auto connection = bench::connectToTestServer();
    connection->query("DROP DATABASE IF EXISTS " + SQL::identifier(database));
    connection->query("CREATE DATABASE " + SQL::identifier(database) + " CHARACTER SET utf8mb4");
    connection->use(database);
    connection->query("CREATE TABLE bench (id INT PRIMARY KEY, name VARCHAR(100), notes TEXT, amount DOUBLE, "
                      "created DATETIME, payload VARBINARY(32)) ENGINE=InnoDB");
    connection->query("INSERT INTO bench SELECT seq, CONCAT('customer-', seq), REPEAT(CONCAT('note ', seq, ' '), 4), "
                      "seq * 1.25, '2026-01-01 00:00:00' - INTERVAL seq SECOND, UNHEX(SHA1(seq)) FROM seq_1_to_"
        + std::to_string(rows));
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
        if (mode == "setup" && argc == 4) {
            setUp(argv[2], std::stol(argv[3]));
        } else if (mode == "drain" && argc == 3) {
            const QueryResult result
                = bench::connectToTestServer()->query("SELECT * FROM " + SQL::qualified(argv[2], "bench"));
            rows = result.rows.size();
        } else if (mode == "export" && argc == 4) {
            bench::connectToTestServer()->backup(argv[2], argv[3], [](const std::string &) {});
        } else if (mode == "csv" && argc == 4) {
            rows = static_cast<std::size_t>(bench::connectToTestServer()->exportCsv(
                "SELECT * FROM " + SQL::qualified(argv[2], "bench"), argv[3], {}));
        } else if (mode == "replay" && argc == 3) {
            const auto connection = bench::connectToTestServer();
            rows = static_cast<std::size_t>(ScriptReplay(*connection).run(argv[2], {}, nullptr).statements);
        } else {
            std::cerr << "usage: tallowick_client_bench setup DB ROWS | drain DB | export DB PATH | replay PATH | csv "
                         "DB PATH\n";
            return 2;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::cout << mode << " kept_rows=" << rows << " seconds=" << seconds << '\n';
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
