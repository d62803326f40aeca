#pragma once

#include "client/MySQLConnection.h"
#include "core/AppError.h"
#include "support/Checks.h"

#include <QByteArray>
#include <QString>
#include <QTest>
#include <iterator>
#include <random>
#include <string>

// Lets QCOMPARE print both sides of a failed cell comparison, with NULL told apart from text.
template <> inline char *QTest::toString<tallowick::Cell>(const tallowick::Cell &cell)
{
    if (!cell) {
        return qstrdup("NULL");
    }
    return qstrdup(("\"" + *cell + "\"").c_str());
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
    const QueryResult result = connection.query("SHOW SESSION STATUS LIKE '" + name + "'");
    if (result.rows.size() != 1 || result.rows.front().size() < 2 || !result.rows.front()[1]) {
        throw AppError("No session status named " + name);
    }
    return std::stoll(*result.rows.front()[1]);
}

// What the server's HEX() returns for these bytes.
inline QByteArray upperHex(const std::string &bytes)
{
    return QByteArray::fromStdString(bytes).toHex().toUpper();
}

// Text a user might paste, from pieces that break naive quoting under some SQL mode or character
// set: every kind of quote, backslashes, NUL, line breaks, LIKE wildcards, comment and statement
// markers, and characters outside the Basic Multilingual Plane. Always valid UTF-8.
inline std::string awkwardText(std::mt19937 &random, std::size_t maxPieces)
{
    // clang-format off
    static const std::string pieces[] = { "'", "''", "\\", "\\\\", "\\'", "\"", "`", std::string(1, '\0'), "\n",
        "\r\n", "\r", "%", "_", ";", "-- ", "/*", "a", "Z", "word",
        "\xF0\x9F\xA7\xB9", /* U+1F9F9 */ "\xEF\xBC\x87" /* fullwidth apostrophe */ };
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
