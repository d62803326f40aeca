#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallowick::SQL
{

// Splits a script into the statements a MySQL command-line client would send, in order.
// Quotes (' " `), comments and client-side DELIMITER lines are honoured; each statement is
// trimmed, keeps its own comments, lacks its delimiter and is never empty or comment-only.
//
// The text is read as UTF-8 bytes in which a CR LF pair is one character that is not a line
// feed: a line comment runs on to the next bare LF, and after CR LF line ends a DELIMITER line is
// only recognised as the very first line. One linear pass; memory proportional to the input.
//
// Throws AppError when a quote or block comment is still open at the end, or when a DELIMITER
// line names no delimiter. Nothing is returned in either case.
std::vector<std::string> statements(std::string_view script);

} // namespace tallowick::SQL
