#include "bench/BenchData.h"

namespace tallowick::bench
{

std::string mixedScript(std::size_t bytes)
{
    std::string script;
    script.reserve(bytes + 4096);
    for (std::size_t n = 0; script.size() < bytes; ++n) {
        const std::string id = std::to_string(n);
        script += "-- row " + id + "; a comment that holds a semicolon\n";
        script += "INSERT INTO `orders` (`id`, `note`) VALUES (" + id
            + ", 'it''s; fine \\' and \"quoted\"; ok', \"double; quoted\");\n";
        script += "/* block ; comment */ SELECT * FROM `t;1` WHERE a = 'x;y' # trailing ; comment\n;\n";
        script += "UPDATE t SET v = CONVERT(X'4f27427269656e' USING utf8mb4), w = 'Grüße — ünïcödé' WHERE id = " + id
            + ";\n";
        script += "/*!40101 SET NAMES utf8mb4 */;\n";
        if (n % 50 == 0) {
            script += "DELIMITER $$\nCREATE PROCEDURE p_" + id
                + "() BEGIN SELECT 1; SELECT 'a;b'; UPDATE t SET x = 1; END$$\nDELIMITER ;\n";
        }
    }
    return script;
}

std::string unbrokenScript(std::size_t bytes)
{
    std::string script = "SELECT '";
    script.reserve(bytes + 16);
    while (script.size() < bytes) {
        script += "no boundary here; only text inside one string ";
    }
    script += "'";
    return script;
}

QueryResult wideResult(std::size_t rows, std::size_t columns)
{
    QueryResult result;
    for (std::size_t c = 0; c < columns; ++c) {
        Field field;
        field.name = "column_" + std::to_string(c);
        result.fields.push_back(field);
    }
    result.rows.reserve(rows);
    for (std::size_t r = 0; r < rows; ++r) {
        Row row;
        row.reserve(columns);
        for (std::size_t c = 0; c < columns; ++c) {
            switch ((r + c) % 5) {
            case 0:
                row.emplace_back(std::to_string(r * 31 + c));
                break;
            case 1:
                row.emplace_back("plain text value " + std::to_string(r));
                break;
            case 2:
                row.emplace_back("needs \"quoting\", with a comma\nand a line break");
                break;
            case 3:
                row.emplace_back(std::nullopt);
                break;
            default:
                row.emplace_back("2026-11-23 09:00:00");
                break;
            }
        }
        result.rows.push_back(std::move(row));
    }
    return result;
}

} // namespace tallowick::bench
