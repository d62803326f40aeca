#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tallowick
{

// One command of the command line, for scripts and cron jobs:
//   tallowick run-file --connection NAME [--database DB] [--password-stdin] FILE
//   tallowick export --connection NAME --database DB --output FILE [--verify] [--password-stdin]
//   tallowick export-csv --connection NAME [--database DB] (--table TABLE | --query SQL)
//                        --output FILE [--password-stdin]
//   tallowick import-csv --connection NAME --database DB --table TABLE [--password-stdin] FILE
// Each also takes --accept-new-host-key for a connection through an SSH tunnel.
struct CommandRequest {
    std::string command;
    std::string connection;
    std::string database;
    std::string output;
    std::string file;
    std::string table;
    std::string query;
    bool passwordStdin = false;
    bool acceptNewHostKey = false; // trust an SSH host not in known_hosts yet
    bool verify = false;
    bool help = false;

    bool operator==(const CommandRequest &) const = default;
};

// Wrong arguments; what() says what is wrong, for standard error before the usage line.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The request when the first argument after the program names a command; nothing otherwise,
// so the program's other modes are chosen as before. Throws UsageError for a malformed command.
std::optional<CommandRequest> parseCommand(const std::vector<std::string> &arguments);

// How to call `command`, or every command when it is empty.
std::string commandUsage(const std::string &command);

} // namespace tallowick
