#include "builder/BuilderColumn.h"

#include "core/AppError.h"
#include "core/SqlQuoting.h"

#include <algorithm>

namespace tallowick
{

std::string BuilderColumn::expression() const
{
    const std::string reference = SQL::identifier(table) + "." + SQL::identifier(name);
    if (aggregate.empty()) {
        return reference;
    }
    if (std::find(builderAggregates.begin(), builderAggregates.end(), aggregate) == builderAggregates.end()) {
        throw AppError("Unsupported aggregate.");
    }
    return aggregate + "(" + reference + ")";
}

} // namespace tallowick
