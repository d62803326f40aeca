#pragma once

#include "core/QueryResult.h"

#include <string>

namespace tallowick
{

// The rows of `result` in which any cell contains `needle`, ignoring case; all rows for an empty
// needle. Used to narrow lists already on screen (status variables, processes) without asking
// the server again. A filtered copy gets an id of its own.
QueryResult rowsContaining(const QueryResult &result, const std::string &needle);

} // namespace tallowick
