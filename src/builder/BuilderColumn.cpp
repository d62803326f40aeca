#include "builder/BuilderColumn.h"

#include "core/SqlQuoting.h"

namespace tallowick
{

std::string BuilderColumn::expression() const
{
    const std::string reference = SQL::identifier(table) + "." + SQL::identifier(name);
    if (aggregate.empty()) {
        return reference;
    }
    return aggregate + "(" + reference + ")";
}

} // namespace tallowick
