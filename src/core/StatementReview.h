#pragma once

#include <string>
#include <string_view>

namespace tallowick::SQL
{

// True when the text holds nothing but white space, "--" and "#" line comments and block
// comments other than versioned ones ("/*!"). Gives the same answers as the regular expression
//   \A(?:\s+|--[^\n]*(?:\n|$)|#[^\n]*(?:\n|$)|/\*(?!\!)[\s\S]*?\*/)*\z
// with Unicode white space, including "--" without a following blank and a block comment that
// may run on to a later "*/" when that is what lets the whole text match. Linear in the text.
bool commentOnly(std::string_view text);

// The statement's first word in upper case after leading white space and comments, or an empty
// string (also when a block comment is never closed).
std::string leadingKeyword(std::string_view statement);

// False only for plain reads: SELECT, SHOW, DESCRIBE, DESC and EXPLAIN. Everything else,
// including an empty keyword, WITH, USE, SET and CALL, is reviewed before it runs.
bool requiresReview(std::string_view statement);

} // namespace tallowick::SQL
