#include "builder/BuilderEdits.h"

#include <algorithm>

namespace tallowick
{

namespace
{

bool contains(const std::vector<std::string> &values, const std::string &value)
{
    return std::find(values.begin(), values.end(), value) != values.end();
}

// The form has no control left to show or undo a reference to a table the query no longer reads
// from, and the statement would fail on the server, so such references go.
void dropStaleReferences(BuilderSpec &spec)
{
    const std::vector<std::string> tables = sourceTables(spec);
    const auto known = [&tables](const std::string &reference) {
        return std::any_of(tables.begin(), tables.end(), [&reference](const std::string &table) {
            return reference.starts_with(table + ".");
        });
    };
    std::erase_if(spec.columns, [&tables](const BuilderColumn &column) { return !contains(tables, column.table); });
    std::erase_if(spec.groupBy, [&known](const std::string &reference) { return !known(reference); });
    std::erase_if(spec.filters,
        [&known](const BuilderFilter &filter) { return !filter.column.empty() && !known(filter.column); });
    if (!spec.orderBy.empty() && !known(spec.orderBy)) {
        spec.orderBy.clear();
    }
    for (BuilderJoin &join : spec.joins) {
        for (std::string *side : { &join.left, &join.right }) {
            if (!side->empty() && !known(*side)) {
                side->clear();
            }
        }
    }
}

} // namespace

std::vector<std::string> sourceTables(const BuilderSpec &spec)
{
    std::vector<std::string> sources;
    if (!spec.table.empty()) {
        sources.push_back(spec.table);
    }
    for (const BuilderJoin &join : spec.joins) {
        if (!join.table.empty() && !contains(sources, join.table)) {
            sources.push_back(join.table);
        }
    }
    return sources;
}

void chooseSourceTable(BuilderSpec &spec, const std::string &table)
{
    if (spec.table == table) {
        return;
    }
    BuilderSpec fresh;
    fresh.database = spec.database;
    fresh.table = table;
    spec = fresh;
}

void setColumnSelected(
    BuilderSpec &spec, const BuilderColumn &column, bool selected, const std::vector<std::string> &listed)
{
    std::erase_if(spec.columns, [&column](const BuilderColumn &candidate) { return candidate.id() == column.id(); });
    if (selected) {
        spec.columns.push_back(column);
    }
    const auto position = [&listed](const BuilderColumn &candidate) {
        return std::find(listed.begin(), listed.end(), candidate.id()) - listed.begin();
    };
    std::stable_sort(spec.columns.begin(),
        spec.columns.end(),
        [&position](const BuilderColumn &a, const BuilderColumn &b) { return position(a) < position(b); });
}

void setJoinTable(BuilderSpec &spec, const QUuid &join, const std::string &table)
{
    for (BuilderJoin &candidate : spec.joins) {
        if (candidate.id == join) {
            candidate.table = table;
        }
    }
    dropStaleReferences(spec);
}

void removeJoin(BuilderSpec &spec, const QUuid &join)
{
    std::erase_if(spec.joins, [&join](const BuilderJoin &candidate) { return candidate.id == join; });
    dropStaleReferences(spec);
}

void updateJoinCondition(BuilderSpec &spec, const BuilderJoin &edited)
{
    for (BuilderJoin &join : spec.joins) {
        if (join.id == edited.id) {
            join.kind = edited.kind;
            join.left = edited.left;
            join.right = edited.right;
        }
    }
}

void updateFilter(BuilderSpec &spec, const BuilderFilter &edited)
{
    std::replace_if(
        spec.filters.begin(),
        spec.filters.end(),
        [&edited](const BuilderFilter &f) { return f.id == edited.id; },
        edited);
}

void removeFilter(BuilderSpec &spec, const QUuid &filter)
{
    std::erase_if(spec.filters, [&filter](const BuilderFilter &candidate) { return candidate.id == filter; });
}

void setGrouped(BuilderSpec &spec, const std::string &reference, bool grouped)
{
    std::erase(spec.groupBy, reference);
    if (grouped) {
        spec.groupBy.push_back(reference);
    }
}

} // namespace tallowick
