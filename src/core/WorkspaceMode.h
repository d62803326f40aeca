#pragma once

#include <array>
#include <string_view>

namespace tallowick
{

// The views of a session workspace, in the order the mode buttons show them.
enum class WorkspaceMode { data, structure, indexes, relations, query, builder, server, users, history };

inline constexpr std::array<WorkspaceMode, 9> allWorkspaceModes {
    WorkspaceMode::data,
    WorkspaceMode::structure,
    WorkspaceMode::indexes,
    WorkspaceMode::relations,
    WorkspaceMode::query,
    WorkspaceMode::builder,
    WorkspaceMode::server,
    WorkspaceMode::users,
    WorkspaceMode::history,
};

// The raw value, which is also the title shown on the mode button.
std::string_view title(WorkspaceMode mode);

} // namespace tallowick
