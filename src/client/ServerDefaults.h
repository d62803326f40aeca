#pragma once

#include <string>

namespace tallowick
{

// True for a MariaDB version (as the server reports it, "10.11.19-MariaDB-...") whose
// information_schema.COLUMNS.COLUMN_DEFAULT quotes literal defaults: MariaDB 10.2.7 and later.
bool reportsDefaultsQuoted(const std::string &serverVersion);

// True when a COLUMN_DEFAULT of such a server is an expression (uuid(), curdate(), (1 + 1),
// current_timestamp(6), b'1'): anything but NULL, a quoted literal or a plain number.
bool isExpressionDefault(const std::string &columnDefault);

} // namespace tallowick
