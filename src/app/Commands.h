#pragma once

#include <string>
#include <vector>

namespace tallowick
{

// Whether the arguments start with one of the command-line commands.
bool isCommand(const std::vector<std::string> &arguments);

// Runs the command the arguments name: results on standard output, progress and errors on
// standard error. Returns 0 on success, 1 on a failure, 2 on bad usage.
int runCommandLine(const std::vector<std::string> &arguments, int &argc, char **argv);

} // namespace tallowick
