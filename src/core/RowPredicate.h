#pragma once

#include "core/QueryResult.h"

#include <string>
#include <vector>

namespace tallowick::SQL
{

// The WHERE condition (without the word WHERE) that pins exactly the row the user saw: every
// primary-key column, in key order, compared NULL-safely (<=>) with its fetched value, which is
// always written as a string literal through value().
//
// Throws AppError when the key list is empty, or when any key column is missing from `fields`
// (or lies outside `row`): a composite key is never matched partially and there is no fallback
// to comparing all columns.
std::string rowPredicate(const std::vector<Field> &fields, const Row &row, const std::vector<std::string> &primary);

} // namespace tallowick::SQL
