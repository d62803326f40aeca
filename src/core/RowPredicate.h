#pragma once

#include "core/QueryResult.h"

#include <string>
#include <vector>

namespace tallowick::SQL
{

// The WHERE condition (without the word WHERE) that pins exactly the row the user saw: every
// primary-key column, in key order, compared NULL-safely with its fetched value. Key values are
// written through value() and compared with <=>, so the key's index pins the row; only where the
// shown text is not the stored value (binary data, BIT, FLOAT, DOUBLE, JSON) is the column
// compared the way sameShownValue() does.
//
// Throws AppError when the key list is empty, or when any key column is missing from `fields`
// (or lies outside `row`): a composite key is never matched partially and there is no fallback
// to comparing all columns.
std::string rowPredicate(const std::vector<Field> &fields, const Row &row, const std::vector<std::string> &primary);

// A NULL-safe condition that holds when `column` (a quoted name) would now show exactly `shown`,
// the text the grid displayed for a value of `field`. Text is compared byte for byte as the
// server would send it, so a FLOAT read as 1.1 matches its stored value, while a trailing space
// or a change of letter case that the column's collation would ignore does not. Binary values
// are compared as the bytes behind their "0x..." display.
std::string sameShownValue(const std::string &column, const Field &field, const Cell &shown);

} // namespace tallowick::SQL
