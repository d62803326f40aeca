#pragma once

#include "builder/BuilderSpec.h"

#include <QUuid>
#include <string>
#include <vector>

namespace tallowick
{

// The rules of editing a builder query, whatever form shows it. Each edit leaves a query that
// refers only to tables it still reads from.

// The source table, then each joined table, once each.
std::vector<std::string> sourceTables(const BuilderSpec &spec);

// Picks the source table. Picking the current one again keeps everything shaped so far; another
// table starts a new query in the same database.
void chooseSourceTable(BuilderSpec &spec, const std::string &table);

// Selects `column` (with its aggregate) or clears it. Selected columns keep the order of
// `listed`, the table.column references as the form lists them.
void setColumnSelected(
    BuilderSpec &spec, const BuilderColumn &column, bool selected, const std::vector<std::string> &listed);

// Points a join at another table, or removes it; either way every column, filter, grouping,
// sort and join condition that named a table no longer read from is dropped.
void setJoinTable(BuilderSpec &spec, const QUuid &join, const std::string &table);
void removeJoin(BuilderSpec &spec, const QUuid &join);

// Takes a join's kind and condition from `edited`, the join with the same id; its table changes
// only through setJoinTable.
void updateJoinCondition(BuilderSpec &spec, const BuilderJoin &edited);
// Replaces the filter with the same id.
void updateFilter(BuilderSpec &spec, const BuilderFilter &edited);
void removeFilter(BuilderSpec &spec, const QUuid &filter);
// Adds `reference` (table.column) to GROUP BY, at the end, or takes it out.
void setGrouped(BuilderSpec &spec, const std::string &reference, bool grouped);

} // namespace tallowick
