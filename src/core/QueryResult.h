#pragma once

#include "core/Field.h"
#include "core/RowList.h"

#include <QUuid>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tallowick
{

// The outcome of one statement. Every row has exactly one cell per field, in field order.
struct QueryResult {
    QUuid id = QUuid::createUuid();
    std::vector<Field> fields;
    RowList rows;
    std::uint64_t affected = 0; // rows changed by a write; 0 for a statement that returns rows
    double elapsed = 0; // seconds
    bool truncated = false; // more rows existed than were kept
    std::string message;
    std::string statement;

    std::vector<std::string> columnNames() const
    {
        std::vector<std::string> names;
        names.reserve(fields.size());
        for (const Field &field : fields) {
            names.push_back(field.name);
        }
        return names;
    }

    bool operator==(const QueryResult &) const = default;
};

} // namespace tallowick
