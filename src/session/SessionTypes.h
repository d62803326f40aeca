#pragma once

#include "builder/BuilderSpec.h"
#include "core/ColumnInfo.h"
#include "core/QueryLog.h"
#include "core/QueryResult.h"
#include "core/QueryTab.h"
#include "core/TableInfo.h"
#include "core/WorkspaceMode.h"

#include <QMetaType>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tallowick
{

using StringList = std::vector<std::string>;
using OptionalText = std::optional<std::string>;
using TableLists = std::map<std::string, std::vector<TableInfo>>; // database name -> its tables
using ColumnList = std::vector<ColumnInfo>;
using ColumnLists = std::map<std::string, ColumnList>; // table name -> its columns
using QueryTabs = std::vector<QueryTab>;

} // namespace tallowick

Q_DECLARE_METATYPE(tallowick::QueryResult)
Q_DECLARE_METATYPE(tallowick::QueryLog)
Q_DECLARE_METATYPE(tallowick::BuilderSpec)
Q_DECLARE_METATYPE(tallowick::WorkspaceMode)
