#include "management/ManagementSQL.h"

#include "core/AppError.h"
#include "core/AsciiText.h"
#include "core/SqlQuoting.h"
#include "core/Utf8Text.h"

#include <algorithm>
#include <array>
#include <regex>
#include <set>

namespace tallowick
{

namespace
{

const std::string simpleTypeMessage
    = "Enter a simple SQL type such as VARCHAR(255), DECIMAL(10,2), or BIGINT UNSIGNED. "
      "Use the SQL editor for complex types.";

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

bool isCurrentTimestamp(std::string_view value)
{
    const std::string word = asciiUpper(value);
    return word == "CURRENT_TIMESTAMP" || word == "CURRENT_TIMESTAMP()";
}

bool isSimpleType(const std::string &type)
{
    static const std::regex pattern(R"(^[A-Z]+(?:\([0-9]+(?:,[0-9]+)?\))?(?: UNSIGNED)?$)");
    return std::regex_match(type, pattern);
}

bool takesCollation(std::string_view type)
{
    const auto end = std::find_if(type.begin(), type.end(), [](char c) { return c < 'A' || c > 'Z'; });
    const std::string_view word(type.begin(), end);
    static constexpr std::array<std::string_view, 6> textTypes {
        "CHAR", "VARCHAR", "TEXT", "LONGTEXT", "MEDIUMTEXT", "TINYTEXT"
    };
    return std::find(textTypes.begin(), textTypes.end(), word) != textTypes.end();
}

// The character set goes into CREATE DATABASE unquoted, so only a plain name may pass.
bool isCharsetName(std::string_view charset)
{
    return !charset.empty() && std::all_of(charset.begin(), charset.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    });
}

std::string joined(const std::vector<std::string> &parts, std::string_view separator)
{
    std::string text;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) {
            text += separator;
        }
        text += parts[i];
    }
    return text;
}

const ColumnDraft &onlyRow(const ManagementDraft &draft)
{
    static const ColumnDraft unnamed;
    return draft.columns.empty() ? unnamed : draft.columns.front();
}

std::string createDatabase(const ManagementDraft &draft)
{
    if (draft.name.empty()) {
        throw AppError("Enter a database name.");
    }
    if (!isCharsetName(draft.charset)) {
        throw AppError("Choose a character set.");
    }
    return "CREATE DATABASE " + SQL::identifier(draft.name) + " CHARACTER SET " + draft.charset + ";";
}

std::string createTable(const ManagementDraft &draft, const ManagementContext &context)
{
    if (draft.name.empty()) {
        throw AppError("Enter a table name.");
    }
    std::vector<std::string> items;
    std::vector<std::string> primary;
    std::set<std::string> seen;
    for (const ColumnDraft &row : draft.columns) {
        items.push_back(columnDefinition(row));
        // The server compares column names without regard to case.
        if (!seen.insert(asciiLower(row.name)).second) {
            throw AppError("Column names must be unique.");
        }
        if (row.primary) {
            primary.push_back(SQL::identifier(row.name));
        }
    }
    if (!primary.empty()) {
        items.push_back("PRIMARY KEY (" + joined(primary, ", ") + ")");
    }
    return "CREATE TABLE " + SQL::qualified(context.database, draft.name) + " (\n  " + joined(items, ",\n  ")
        + "\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;";
}

std::string modifyColumn(const ManagementDraft &draft, const ManagementContext &context)
{
    if (!draft.column) {
        throw AppError("Choose a column to edit.");
    }
    const ColumnInfo &column = *draft.column;
    if (column.generated()) {
        throw AppError("Use the SQL editor to modify generated columns.");
    }
    if (contains(asciiUpper(column.extra), "DEFAULT_GENERATED")
        && !(column.defaultValue && isCurrentTimestamp(*column.defaultValue))) {
        throw AppError("Use the SQL editor to preserve this column's expression default.");
    }
    return "ALTER TABLE " + SQL::qualified(context.database, context.table) + "\nCHANGE COLUMN "
        + SQL::identifier(column.name) + " " + columnDefinition(onlyRow(draft), column) + ";";
}

std::string addIndex(const ManagementDraft &draft, const ManagementContext &context)
{
    std::vector<std::string> names;
    for (const ColumnInfo &column : context.columns) {
        if (draft.selected.contains(column.name)) {
            names.push_back(SQL::identifier(column.name));
        }
    }
    if (draft.name.empty() || names.empty()) {
        throw AppError("Name the index and choose at least one column.");
    }
    return std::string("CREATE ") + (draft.unique ? "UNIQUE " : "") + "INDEX " + SQL::identifier(draft.name) + " ON "
        + SQL::qualified(context.database, context.table) + " (" + joined(names, ", ") + ");";
}

// A column without a mode sends its typed text when it has some and is left to the server
// otherwise, so nothing is written that the user did not type.
std::string_view modeOf(const ManagementDraft &draft, const std::string &column)
{
    if (const auto mode = draft.valueModes.find(column); mode != draft.valueModes.end()) {
        return mode->second;
    }
    return draft.values.contains(column) ? insertModeValue : insertModeDefault;
}

std::string insertRow(const ManagementDraft &draft, const ManagementContext &context)
{
    std::vector<std::string> names;
    std::vector<std::string> values;
    for (const ColumnInfo &column : context.columns) {
        const std::string_view mode = modeOf(draft, column.name);
        if (mode == insertModeDefault) {
            continue;
        }
        names.push_back(SQL::identifier(column.name));
        if (mode == insertModeNull) {
            values.push_back(SQL::value(std::nullopt));
        } else {
            const auto typed = draft.values.find(column.name);
            values.push_back(SQL::value(typed == draft.values.end() ? std::string() : typed->second));
        }
    }
    return "INSERT INTO " + SQL::qualified(context.database, context.table) + " (" + joined(names, ", ") + ")\nVALUES ("
        + joined(values, ", ") + ");";
}

std::string createUser(const ManagementDraft &draft)
{
    if (draft.name.empty() || draft.host.empty() || draft.password.empty()) {
        throw AppError("Enter the username, client host, and password.");
    }
    return "CREATE USER " + SQL::value(draft.name) + "@" + SQL::value(draft.host) + " IDENTIFIED BY "
        + SQL::value(draft.password) + ";";
}

std::string target(const std::string &profileName, const std::string &host)
{
    if (profileName.empty()) {
        return host;
    }
    return host.empty() ? profileName : profileName + " (" + host + ")";
}

} // namespace

std::string columnDefinition(const ColumnDraft &draft, const std::optional<ColumnInfo> &existing)
{
    if (draft.name.empty()) {
        throw AppError("Every column needs a name.");
    }
    const std::string type = asciiUpper(trimWhitespace(draft.type));
    if (!isSimpleType(type)) {
        throw AppError(simpleTypeMessage);
    }
    std::string text = SQL::identifier(draft.name) + " " + type;
    if (existing && existing->collation && takesCollation(type)) {
        text += " COLLATE " + SQL::identifier(*existing->collation);
    }
    text += draft.nullable && !draft.primary ? " NULL" : " NOT NULL";
    if (!draft.defaultValue.empty()) {
        text += " DEFAULT "
            + (isCurrentTimestamp(draft.defaultValue) ? std::string("CURRENT_TIMESTAMP")
                                                      : SQL::defaultLiteral(draft.defaultValue));
    } else if (existing && existing->defaultValue && existing->defaultValue->empty()) {
        // An empty field means "no default", which cannot tell an existing DEFAULT '' apart;
        // keeping it is the safe reading, as dropping it breaks inserts that leave the column out.
        text += " DEFAULT " + SQL::defaultLiteral("");
    }
    if (draft.autoIncrement) {
        text += " AUTO_INCREMENT";
    }
    if (existing) {
        if (contains(asciiLower(existing->extra), "on update current_timestamp")) {
            text += " ON UPDATE CURRENT_TIMESTAMP";
        }
        if (!existing->comment.empty()) {
            // COMMENT takes only a quoted string; the hexadecimal form the quoting layer uses for
            // apostrophes, backslashes and line breaks is a syntax error there, and doubling
            // quotes by hand would bypass that layer.
            const std::string comment = SQL::defaultLiteral(existing->comment);
            if (comment.front() != '\'') {
                throw AppError("Use the SQL editor to modify a column whose comment holds quotes, backslashes, or "
                               "line breaks.");
            }
            text += " COMMENT " + comment;
        }
    }
    return text;
}

std::string generatedSQL(const ManagementDraft &draft, const ManagementContext &context)
{
    switch (draft.kind) {
    case ManagementSheet::createDatabase:
        return createDatabase(draft);
    case ManagementSheet::createTable:
        return createTable(draft, context);
    case ManagementSheet::addColumn:
        return "ALTER TABLE " + SQL::qualified(context.database, context.table) + "\nADD COLUMN "
            + columnDefinition(onlyRow(draft)) + ";";
    case ManagementSheet::modifyColumn:
        return modifyColumn(draft, context);
    case ManagementSheet::addIndex:
        return addIndex(draft, context);
    case ManagementSheet::insertRow:
        return insertRow(draft, context);
    case ManagementSheet::createUser:
        return createUser(draft);
    case ManagementSheet::importCSV:
        break;
    }
    throw AppError("A CSV import runs as several statements; it has no single statement to review.");
}

ColumnDraft draftFromColumn(const ColumnInfo &column)
{
    ColumnDraft draft;
    draft.name = column.name;
    draft.type = asciiUpper(column.type);
    draft.nullable = column.nullable;
    draft.primary = column.primary;
    draft.autoIncrement = contains(asciiLower(column.extra), "auto_increment");
    draft.defaultValue = column.defaultValue.value_or("");
    return draft;
}

std::string formTitle(ManagementSheet kind)
{
    switch (kind) {
    case ManagementSheet::createDatabase:
        return "Create database";
    case ManagementSheet::createTable:
        return "Create table";
    case ManagementSheet::addColumn:
        return "Add column";
    case ManagementSheet::modifyColumn:
        return "Edit column";
    case ManagementSheet::addIndex:
        return "Create index";
    case ManagementSheet::insertRow:
        return "Insert row";
    case ManagementSheet::createUser:
        return "Create MySQL user";
    case ManagementSheet::importCSV:
        return "Import CSV";
    }
    return {};
}

const std::vector<std::string> &typeSuggestions()
{
    static const std::vector<std::string> types {
        "INT",
        "INT UNSIGNED",
        "BIGINT",
        "BIGINT UNSIGNED",
        "TINYINT(1)",
        "SMALLINT",
        "DECIMAL(10,2)",
        "DOUBLE",
        "FLOAT",
        "VARCHAR(255)",
        "VARCHAR(50)",
        "CHAR(36)",
        "TEXT",
        "MEDIUMTEXT",
        "LONGTEXT",
        "DATE",
        "DATETIME",
        "TIMESTAMP",
        "TIME",
        "YEAR",
        "JSON",
        "BLOB",
        "LONGBLOB",
        "VARBINARY(255)",
        "BINARY(16)",
    };
    return types;
}

const std::vector<std::string> &characterSets()
{
    static const std::vector<std::string> charsets {
        "utf8mb4",
        "utf8mb3",
        "latin1",
        "ascii",
        "binary",
        "utf16",
        "utf32",
        "cp1250",
        "cp1251",
        "latin2",
        "sjis",
        "gbk",
        "big5",
    };
    return charsets;
}

std::string reviewTitle(ManagementSheet kind)
{
    return "Apply " + formTitle(kind);
}

std::string reviewDetail(
    const std::string &profileName, const std::string &host, const std::string &database, const std::string &table)
{
    std::string detail = "Target: " + target(profileName, host);
    if (!database.empty()) {
        detail += ", database " + database;
    }
    if (!table.empty()) {
        detail += ", table " + table;
    }
    return detail + ". Schema changes can commit immediately.";
}

std::string reviewDetail(ManagementSheet kind, const ConnectionProfile &profile, const ManagementContext &context)
{
    switch (kind) {
    case ManagementSheet::createDatabase:
    case ManagementSheet::createUser:
        return reviewDetail(profile.name, profile.host, {}, {});
    case ManagementSheet::createTable:
        return reviewDetail(profile.name, profile.host, context.database, {});
    case ManagementSheet::addColumn:
    case ManagementSheet::modifyColumn:
    case ManagementSheet::addIndex:
    case ManagementSheet::insertRow:
    case ManagementSheet::importCSV:
        break;
    }
    return reviewDetail(profile.name, profile.host, context.database, context.table);
}

void checkUserFields(const ManagementDraft &draft)
{
    if (draft.name.empty() || draft.host.empty() || draft.password.empty()) {
        throw AppError("Enter a username, client host, and password.");
    }
}

std::string createUserDetail(const ManagementDraft &draft, const ConnectionProfile &profile)
{
    return "The account " + draft.name + "@" + draft.host + " is created on " + target(profile.name, profile.host)
        + ", initially without privileges.";
}

} // namespace tallowick
