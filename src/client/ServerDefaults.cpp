#include "client/ServerDefaults.h"

#include <regex>
#include <tuple>

namespace tallowick
{

bool reportsDefaultsQuoted(const std::string &serverVersion)
{
    static const std::regex pattern(R"(^(?:5\.5\.5-)?(\d+)\.(\d+)\.(\d+)-MariaDB)");
    std::smatch parts;
    if (!std::regex_search(serverVersion, parts, pattern)) {
        return false;
    }
    const std::tuple version(std::stoi(parts[1]), std::stoi(parts[2]), std::stoi(parts[3]));
    return version >= std::tuple(10, 2, 7);
}

bool isExpressionDefault(const std::string &columnDefault)
{
    static const std::regex number(R"(^[-+]?[0-9]+(?:\.[0-9]*)?(?:[eE][-+]?[0-9]+)?$)");
    if (columnDefault == "NULL" || columnDefault.starts_with('\'')) {
        return false;
    }
    return !std::regex_match(columnDefault, number);
}

} // namespace tallowick
