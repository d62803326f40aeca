#pragma once

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/Checks.h"

#include <QByteArray>
#include <QTest>
#include <iterator>
#include <random>
#include <string>

// Lets QCOMPARE print both sides of a failed cell comparison, with NULL told apart from text.
template <> inline char *QTest::toString<tallowick::Cell>(const tallowick::Cell &cell)
{
    return qstrdup(cell ? ("\"" + *cell + "\"").c_str() : "NULL");
}

namespace tallowick::test
{

// The first value of the first row of a statement that must return one.
inline Cell scalar(MySQLConnection &connection, const std::string &sql)
{
    const QueryResult result = connection.query(sql);
    if (result.rows.empty() || result.rows.front().empty()) {
        throw AppError("No value came back from: " + sql);
    }
    return result.rows.front().front();
}

// A counter of SHOW SESSION STATUS. Reading it is itself one statement ("Questions" counts it).
inline long long sessionStatus(MySQLConnection &connection, const std::string &name)
{
    return std::stoll(scalar(connection,
        "SELECT VARIABLE_VALUE FROM information_schema.SESSION_STATUS"
        " WHERE VARIABLE_NAME = '"
            + name + "'")
                          .value());
}

// X'...': bytes written without relying on any quoting rule under test.
inline std::string hexLiteral(const std::string &bytes)
{
    return "X'" + QByteArray::fromStdString(bytes).toHex().toStdString() + "'";
}

// Text a user might paste, from pieces that break naive quoting under some SQL mode or character
// set: every kind of quote, backslashes, NUL, line breaks, LIKE wildcards, comment and statement
// markers, and characters outside the Basic Multilingual Plane. Always valid UTF-8.
inline std::string awkwardText(std::mt19937 &random, std::size_t maxPieces)
{
    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "`", std::string(1, '\0'), "\n", "\r\n",
        "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word", "\xF0\x9F\xA7\xB9" /* U+1F9F9 */, "\xEF\xBC\x87" /* U+FF07 */ };
    // clang-format on
    std::uniform_int_distribution<std::size_t> count(0, maxPieces);
    std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
    std::string text;
    for (std::size_t n = count(random); n > 0; --n) {
        text += pieces[pick(random)];
    }
    return text;
}

} // namespace tallowick::test
