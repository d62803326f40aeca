#include "app/CommandLine.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tallowick
{

namespace
{

struct CommandShape {
    std::string_view name;
    std::string_view usage;
    std::string_view summary;
    bool needsDatabase;
    bool needsOutput;
    bool takesFile;
    bool takesSource = false; // --table or --query
    bool needsTable = false;
};

constexpr std::array<CommandShape, 4> commands { {
    { "run-file",
        "tallowick run-file --connection NAME [--database DB] [--password-stdin] FILE",
        "Runs a SQL file of any size, statement by statement, stopping at the first failure.",
        false,
        false,
        true },
    { "export",
        "tallowick export --connection NAME --database DB --output FILE [--verify] [--password-stdin]",
        "Writes the database's tables and views to FILE as a SQL script; --verify then replays it into a "
        "scratch\n  database and compares every table.",
        true,
        true,
        false },
    { "export-csv",
        "tallowick export-csv --connection NAME [--database DB] (--table TABLE | --query SQL) --output FILE "
        "[--password-stdin]",
        "Writes every row of a table, or of a query's result, to FILE as CSV.",
        false,
        true,
        false,
        true },
    { "import-csv",
        "tallowick import-csv --connection NAME --database DB --table TABLE [--password-stdin] FILE",
        "Adds every row of a CSV file whose first line names the columns to TABLE, in one transaction:\n"
        "  all rows or none. \\N reads as NULL.",
        true,
        false,
        true,
        false,
        true },
} };

const CommandShape *findCommand(std::string_view name)
{
    const auto found = std::find_if(
        commands.begin(), commands.end(), [name](const CommandShape &shape) { return shape.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

} // namespace

std::optional<CommandRequest> parseCommand(const std::vector<std::string> &arguments)
{
    if (arguments.size() < 2) {
        return std::nullopt;
    }
    const CommandShape *shape = findCommand(arguments[1]);
    if (!shape) {
        return std::nullopt;
    }
    CommandRequest request;
    request.command = arguments[1];
    const auto valueOf = [&arguments](std::size_t &i) -> std::string {
        if (i + 1 >= arguments.size() || arguments[i + 1].empty()) {
            throw UsageError(arguments[i] + " needs a value.");
        }
        return arguments[++i];
    };
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        const std::string &argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            request.help = true;
        } else if (argument == "--connection") {
            request.connection = valueOf(i);
        } else if (argument == "--database") {
            request.database = valueOf(i);
        } else if (argument == "--output" && shape->needsOutput) {
            request.output = valueOf(i);
        } else if (argument == "--table" && (shape->takesSource || shape->needsTable)) {
            request.table = valueOf(i);
        } else if (argument == "--query" && shape->takesSource) {
            request.query = valueOf(i);
        } else if (argument == "--verify" && shape->name == "export") {
            request.verify = true;
        } else if (argument == "--password-stdin") {
            request.passwordStdin = true;
        } else if (argument == "--accept-new-host-key") {
            request.acceptNewHostKey = true;
        } else if (argument.starts_with("-") && argument != "-") {
            throw UsageError("Unknown option " + argument + ".");
        } else if (shape->takesFile && request.file.empty()) {
            request.file = argument;
        } else {
            throw UsageError("Unexpected argument " + argument + ".");
        }
    }
    if (request.help) {
        return request;
    }
    if (request.connection.empty()) {
        throw UsageError("Name the saved connection with --connection NAME.");
    }
    if (shape->needsDatabase && request.database.empty()) {
        throw UsageError("Name the database with --database DB.");
    }
    if (shape->needsOutput && request.output.empty()) {
        throw UsageError("Name the file to write with --output FILE.");
    }
    if (shape->takesSource && request.table.empty() == request.query.empty()) {
        throw UsageError("Name either a table with --table TABLE or a query with --query SQL.");
    }
    if (shape->takesSource && !request.table.empty() && request.database.empty()) {
        throw UsageError("Name the table's database with --database DB.");
    }
    if (shape->needsTable && request.table.empty()) {
        throw UsageError("Name the table with --table TABLE.");
    }
    if (shape->takesFile && request.file.empty()) {
        throw UsageError(shape->needsTable ? "Name the CSV file to import." : "Name the SQL file to run.");
    }
    return request;
}

std::string commandUsage(const std::string &command)
{
    std::string text;
    for (const CommandShape &shape : commands) {
        if (command.empty() || shape.name == command) {
            text += "usage: " + std::string(shape.usage) + "\n  " + std::string(shape.summary) + "\n";
        }
    }
    if (command.empty() || findCommand(command)) {
        text += "The connection is a saved connection's name; its password comes from the keyring, or with\n"
                "--password-stdin from the first line of standard input. Progress goes to standard error.\n"
                "A connection through an SSH tunnel refuses an SSH host whose key is not in ~/.ssh/known_hosts;\n"
                "--accept-new-host-key trusts and adds it (a changed key is always refused).\n";
    }
    return text;
}

} // namespace tallowick
