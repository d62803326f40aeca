#include "core/RowPredicate.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <algorithm>

namespace tallowick::SQL
{

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
        condition += identifier(key) + " <=> " + value(row[position]);
    }
    return condition;
}

} // namespace tallowick::SQL
