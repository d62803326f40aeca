#include "core/RowPredicate.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <QByteArray>
#include <algorithm>
#include <cctype>

namespace tallowick::SQL
{

namespace
{

// Wire types whose text is not the stored value: FLOAT and DOUBLE are shown rounded, JSON is
// shown normalised, and BIT arrives as raw bytes.
constexpr const char *floatType = "4";
constexpr const char *doubleType = "5";
constexpr const char *bitType = "16";
constexpr const char *jsonType = "245";

bool shownDiffersFromStored(const Field &field)
{
    return field.type == floatType || field.type == doubleType || field.type == jsonType;
}

// The bytes behind a binary cell's "0x" + hexadecimal display; no value for any other text.
std::optional<std::string> displayedBytes(const std::string &shown)
{
    if (shown.size() < 2 || shown.compare(0, 2, "0x") != 0 || shown.size() % 2 != 0) {
        return std::nullopt;
    }
    const QByteArray digits = QByteArray::fromRawData(shown.data() + 2, static_cast<qsizetype>(shown.size() - 2));
    if (!std::all_of(
            digits.begin(), digits.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); })) {
        return std::nullopt;
    }
    return QByteArray::fromHex(digits).toStdString();
}

std::string sameBytes(const std::string &column, const Field &field, const std::string &bytes)
{
    // A BIT column compared with a hexadecimal literal is compared as a number; its bytes are not.
    std::string condition = field.type == bitType ? "CAST(" + column + " AS BINARY)" : column;
    condition += " <=> ";
    appendHexLiteral(condition, bytes);
    return condition;
}

std::string sameText(const std::string &column, const std::string &shown)
{
    return "CAST(CONVERT(" + column + " USING utf8mb4) AS BINARY) <=> CAST(" + value(shown) + " AS BINARY)";
}

std::string keyMatch(const std::string &column, const Field &field, const Cell &shown)
{
    if (shown && (field.binary || shownDiffersFromStored(field))) {
        return sameShownValue(column, field, shown);
    }
    return column + " <=> " + value(shown);
}

} // namespace

std::string sameShownValue(const std::string &column, const Field &field, const Cell &shown)
{
    if (!shown) {
        return column + " <=> NULL";
    }
    if (field.binary) {
        if (const std::optional<std::string> bytes = displayedBytes(*shown)) {
            return sameBytes(column, field, *bytes);
        }
    }
    return sameText(column, *shown);
}

std::string rowPredicate(const std::vector<Field> &fields, const Row &row, const std::vector<std::string> &primary)
{
    if (primary.empty()) {
        throw AppError("This table has no primary key. Use SQL to edit it without risking an ambiguous row match.");
    }
    std::string condition;
    for (const std::string &key : primary) {
        const auto field = std::find_if(
            fields.begin(), fields.end(), [&key](const Field &candidate) { return candidate.name == key; });
        const auto position = static_cast<std::size_t>(field - fields.begin());
        if (field == fields.end() || position >= row.size()) {
            throw AppError("The primary-key column " + key + " is missing from this result.");
        }
        if (!condition.empty()) {
            condition += " AND ";
        }
        condition += keyMatch(identifier(key), *field, row[position]);
    }
    return condition;
}

} // namespace tallowick::SQL
