#include "core/WorkspaceMode.h"

namespace tallowick
{

std::string_view title(WorkspaceMode mode)
{
    switch (mode) {
    case WorkspaceMode::data:
        return "Data";
    case WorkspaceMode::structure:
        return "Structure";
    case WorkspaceMode::indexes:
        return "Indexes";
    case WorkspaceMode::relations:
        return "Relations";
    case WorkspaceMode::query:
        return "SQL editor";
    case WorkspaceMode::builder:
        return "Query builder";
    case WorkspaceMode::server:
        return "Server";
    case WorkspaceMode::users:
        return "Users";
    case WorkspaceMode::history:
        return "History";
    }
    return {};
}

} // namespace tallowick
