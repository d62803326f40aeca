#pragma once

#include <optional>
#include <string_view>

namespace tallowick::SQL
{

// A plain multi-row INSERT or REPLACE split into what names the target and the rows it adds:
// "INSERT INTO `t` (`a`, `b`) VALUES" and "(1, 'x'), (2, 'y')". Two statements with the same
// `head` can be sent as one, `head` followed by both row lists joined by a comma.
struct InsertRows {
    std::string_view head;
    std::string_view rows;
    std::string_view table; // the table as written, possibly qualified and quoted
};

// The statement's parts when it is exactly INSERT|REPLACE [INTO] table [(columns)] VALUES|VALUE
// followed by parenthesised rows of literals (CONVERT allowed) and nothing else; nothing for every
// other form (IGNORE, priorities, ON DUPLICATE KEY UPDATE, SET, SELECT, RETURNING, comments,
// functions and subqueries in the values), whose meaning could change when rows are combined. `backslashEscapes` is
// false under the NO_BACKSLASH_ESCAPES SQL mode, where a backslash inside a string is an ordinary character.
std::optional<InsertRows> insertRows(std::string_view statement, bool backslashEscapes);

} // namespace tallowick::SQL
