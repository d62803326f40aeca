#pragma once

#include "core/QueryResult.h"

#include <cstddef>
#include <string>

namespace tallowick::bench
{

// A script of about `bytes` bytes mixing quoted text with semicolons, doubled and escaped
// quotes, line and block comments, versioned comments and a DELIMITER block now and then.
std::string mixedScript(std::size_t bytes);

// A script of about `bytes` bytes with no statement boundary at all: one long quoted string.
std::string unbrokenScript(std::size_t bytes);

// A result of `rows` x `columns` cells of varied text, some NULL, some needing CSV quoting.
QueryResult wideResult(std::size_t rows, std::size_t columns);

} // namespace tallowick::bench
