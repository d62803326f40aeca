#include "ui/ResultFilter.h"

#include <QString>
#include <QUuid>

namespace tallowick
{

QueryResult rowsContaining(const QueryResult &result, const std::string &needle)
{
    if (needle.empty()) {
        return result;
    }
    const QString wanted = QString::fromStdString(needle);
    QueryResult filtered = result;
    filtered.rows.clear();
    for (const Row &row : result.rows) {
        for (const Cell &cell : row) {
            if (cell && QString::fromStdString(*cell).contains(wanted, Qt::CaseInsensitive)) {
                filtered.rows.push_back(row);
                break;
            }
        }
    }
    // A narrowed list is a different result for the grid, which skips reloads of the same id.
    filtered.id = QUuid::createUuid();
    return filtered;
}

} // namespace tallowick
