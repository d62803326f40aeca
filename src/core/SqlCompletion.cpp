#include "core/SqlCompletion.h"

#include "core/AsciiText.h"

#include <algorithm>
#include <array>
#include <set>

namespace tallowick
{

namespace
{

constexpr std::array<std::string_view, 78> keywords { "ADD",
    "ALL",
    "ALTER",
    "AND",
    "AS",
    "ASC",
    "BETWEEN",
    "BY",
    "CASE",
    "COLUMN",
    "COMMIT",
    "CONSTRAINT",
    "CREATE",
    "CROSS",
    "DATABASE",
    "DEFAULT",
    "DELETE",
    "DESC",
    "DESCRIBE",
    "DISTINCT",
    "DROP",
    "DUPLICATE",
    "ELSE",
    "END",
    "EXISTS",
    "EXPLAIN",
    "FOREIGN",
    "FROM",
    "FULL",
    "GROUP",
    "HAVING",
    "IF",
    "IGNORE",
    "IN",
    "INDEX",
    "INNER",
    "INSERT",
    "INTERVAL",
    "INTO",
    "IS",
    "JOIN",
    "KEY",
    "LEFT",
    "LIKE",
    "LIMIT",
    "NATURAL",
    "NOT",
    "NULL",
    "OFFSET",
    "ON",
    "OR",
    "ORDER",
    "OUTER",
    "PRIMARY",
    "REFERENCES",
    "REGEXP",
    "RENAME",
    "REPLACE",
    "RIGHT",
    "ROLLBACK",
    "SELECT",
    "SET",
    "SHOW",
    "START",
    "TABLE",
    "TABLES",
    "THEN",
    "TRANSACTION",
    "TRUNCATE",
    "UNION",
    "UNIQUE",
    "UPDATE",
    "USE",
    "USING",
    "VALUES",
    "VIEW",
    "WHEN",
    "WHERE" };

constexpr std::array<std::string_view, 56> functions { "ABS",
    "AVG",
    "CAST",
    "CEIL",
    "CHAR_LENGTH",
    "COALESCE",
    "CONCAT",
    "CONCAT_WS",
    "CONVERT",
    "COUNT",
    "CURDATE",
    "CURRENT_DATE",
    "CURRENT_TIMESTAMP",
    "DATE",
    "DATE_ADD",
    "DATE_FORMAT",
    "DATE_SUB",
    "DATEDIFF",
    "DAY",
    "FLOOR",
    "FORMAT",
    "FROM_UNIXTIME",
    "GREATEST",
    "GROUP_CONCAT",
    "HOUR",
    "IFNULL",
    "INSTR",
    "JSON_EXTRACT",
    "JSON_OBJECT",
    "JSON_UNQUOTE",
    "LAST_INSERT_ID",
    "LEAST",
    "LENGTH",
    "LOCATE",
    "LOWER",
    "LPAD",
    "LTRIM",
    "MAX",
    "MIN",
    "MONTH",
    "NOW",
    "NULLIF",
    "REPLACE",
    "ROUND",
    "ROW_NUMBER",
    "RPAD",
    "RTRIM",
    "SUBSTRING",
    "SUM",
    "TIMESTAMPDIFF",
    "TRIM",
    "UNIX_TIMESTAMP",
    "UPPER",
    "UUID",
    "WEEK",
    "YEAR" };

// Words after which a table name comes.
constexpr std::array<std::string_view, 7> tableKeywords {
    "FROM", "JOIN", "INTO", "UPDATE", "TABLE", "DESCRIBE", "STRAIGHT_JOIN"
};

// Words that end a table reference, so they are never taken for its alias.
constexpr std::array<std::string_view, 22> clauseWords { "ON",
    "USING",
    "WHERE",
    "GROUP",
    "ORDER",
    "HAVING",
    "LIMIT",
    "JOIN",
    "LEFT",
    "RIGHT",
    "INNER",
    "OUTER",
    "CROSS",
    "NATURAL",
    "STRAIGHT_JOIN",
    "SET",
    "VALUES",
    "UNION",
    "WINDOW",
    "FOR",
    "LOCK",
    "PARTITION" };

template <std::size_t N> bool isOneOf(const std::string &upperWord, const std::array<std::string_view, N> &words)
{
    return std::find(words.begin(), words.end(), upperWord) != words.end();
}

struct Token {
    enum Kind { word, quotedName, dot, comma, open, close, other } kind;
    std::string text; // a quoted name without its back-quotes
};

// The statement holding `cursor`, as tokens up to the cursor (the word being typed excluded) and
// the tokens of the whole statement (for the tables it names).
struct StatementTokens {
    std::vector<Token> beforeCursor;
    std::vector<Token> all;
};

StatementTokens tokenize(std::string_view text, std::size_t cursor, std::size_t partialStart)
{
    StatementTokens result;
    bool pastCursor = false;
    std::size_t i = 0;
    const auto push = [&](Token token, std::size_t start) {
        if (start >= cursor) {
            pastCursor = true;
        }
        if (!pastCursor && start < partialStart) {
            result.beforeCursor.push_back(token);
        }
        result.all.push_back(std::move(token));
    };
    while (i < text.size()) {
        const char c = text[i];
        const std::size_t start = i;
        if (c == ';') {
            if (i >= cursor) {
                break; // the statement holding the cursor ends here
            }
            result.beforeCursor.clear();
            result.all.clear();
            ++i;
        } else if (c == '\'' || c == '"') {
            ++i;
            while (i < text.size() && text[i] != c) {
                i += text[i] == '\\' ? 2 : 1;
            }
            ++i;
            push({ Token::other, {} }, start);
        } else if (c == '`') {
            std::string name;
            ++i;
            while (i < text.size()) {
                if (text[i] == '`' && i + 1 < text.size() && text[i + 1] == '`') {
                    name += '`';
                    i += 2;
                } else if (text[i] == '`') {
                    ++i;
                    break;
                } else {
                    name += text[i++];
                }
            }
            push({ Token::quotedName, name }, start);
        } else if (c == '#' || (c == '-' && text.substr(i, 3) == "-- ")) {
            while (i < text.size() && text[i] != '\n') {
                ++i;
            }
        } else if (c == '/' && text.substr(i, 2) == "/*") {
            const std::size_t end = text.find("*/", i + 2);
            i = end == std::string_view::npos ? text.size() : end + 2;
        } else if (isSqlNameByte(c)) {
            while (i < text.size() && isSqlNameByte(text[i])) {
                ++i;
            }
            push({ Token::word, std::string(text.substr(start, i - start)) }, start);
        } else {
            ++i;
            const Token::Kind kind = c == '.' ? Token::dot
                : c == ','                    ? Token::comma
                : c == '('                    ? Token::open
                : c == ')'                    ? Token::close
                                              : Token::other;
            if (kind != Token::other || (c != ' ' && c != '\t' && c != '\n' && c != '\r')) {
                push({ kind, {} }, start);
            }
        }
    }
    return result;
}

bool isName(const Token &token)
{
    return token.kind == Token::word || token.kind == Token::quotedName;
}

struct TableReference {
    std::string database; // empty: the current one
    std::string table;
    std::string alias;
};

// The tables a statement names after FROM, JOIN, INTO and UPDATE (with comma lists), each with
// its alias.
std::vector<TableReference> referencedTables(const std::vector<Token> &tokens)
{
    std::vector<TableReference> tables;
    bool inTableList = false;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const Token &token = tokens[i];
        const std::string word = token.kind == Token::word ? asciiUpper(token.text) : std::string();
        const bool startsList = isOneOf(word, tableKeywords);
        if (!startsList && !(inTableList && token.kind == Token::comma)) {
            if (token.kind == Token::word && isOneOf(word, clauseWords)) {
                inTableList = false;
            }
            continue;
        }
        inTableList = word == "FROM" || word == "UPDATE" || (inTableList && token.kind == Token::comma);
        std::size_t next = i + 1;
        if (next >= tokens.size() || !isName(tokens[next])) {
            continue;
        }
        TableReference reference;
        reference.table = tokens[next].text;
        if (next + 2 < tokens.size() && tokens[next + 1].kind == Token::dot && isName(tokens[next + 2])) {
            reference.database = reference.table;
            reference.table = tokens[next + 2].text;
            next += 2;
        }
        std::size_t aliasAt = next + 1;
        if (aliasAt < tokens.size() && tokens[aliasAt].kind == Token::word
            && asciiUpper(tokens[aliasAt].text) == "AS") {
            ++aliasAt;
        }
        if (aliasAt < tokens.size() && isName(tokens[aliasAt])
            && !(tokens[aliasAt].kind == Token::word
                && (isOneOf(asciiUpper(tokens[aliasAt].text), clauseWords)
                    || isOneOf(asciiUpper(tokens[aliasAt].text), keywords)))) {
            reference.alias = tokens[aliasAt].text;
        }
        tables.push_back(std::move(reference));
    }
    return tables;
}

// Whether the word before the cursor asks for a table: a table keyword, or a comma inside a FROM
// list.
bool wantsTable(const std::vector<Token> &before)
{
    if (before.empty()) {
        return false;
    }
    const Token &last = before.back();
    if (last.kind == Token::word) {
        return isOneOf(asciiUpper(last.text), tableKeywords);
    }
    if (last.kind != Token::comma) {
        return false;
    }
    for (auto token = before.rbegin(); token != before.rend(); ++token) {
        if (token->kind != Token::word) {
            if (token->kind == Token::open || token->kind == Token::close) {
                return false;
            }
            continue;
        }
        const std::string word = asciiUpper(token->text);
        if (word == "FROM") {
            return true;
        }
        if (isOneOf(word, clauseWords) || word == "SELECT") {
            return false;
        }
    }
    return false;
}

const std::map<std::string, std::vector<std::string>> *databaseColumns(
    const SchemaCatalog &catalog, const std::string &database)
{
    const auto found = catalog.columns.find(database);
    return found == catalog.columns.end() ? nullptr : &found->second;
}

// A table's columns, its name matched as the server does on Linux for table names: exactly,
// or else ignoring case.
const std::vector<std::string> *tableColumns(
    const SchemaCatalog &catalog, const std::string &database, const std::string &table)
{
    const auto *columns = databaseColumns(catalog, database);
    if (!columns) {
        return nullptr;
    }
    if (const auto exact = columns->find(table); exact != columns->end()) {
        return &exact->second;
    }
    for (const auto &[name, list] : *columns) {
        if (equalIgnoringAsciiCase(name, table)) {
            return &list;
        }
    }
    return nullptr;
}

class Collector
{
public:
    explicit Collector(CompletionList &list)
        : m_list(list)
    {
    }

    void add(const std::string &text, CompletionKind kind)
    {
        if (startsWithIgnoringAsciiCase(text, m_list.partial) && m_seen.insert(asciiUpper(text)).second) {
            m_list.items.push_back({ text, kind });
        }
    }

    template <std::size_t N> void addWords(const std::array<std::string_view, N> &words, CompletionKind kind)
    {
        for (const std::string_view word : words) {
            add(std::string(word), kind);
        }
    }

    void needDatabase(const SchemaCatalog &catalog, const std::string &database)
    {
        if (!database.empty() && !databaseColumns(catalog, database)
            && std::find(m_list.missingDatabases.begin(), m_list.missingDatabases.end(), database)
                == m_list.missingDatabases.end()) {
            m_list.missingDatabases.push_back(database);
        }
    }

private:
    CompletionList &m_list;
    std::set<std::string> m_seen;
};

void addTables(Collector &collector, const SchemaCatalog &catalog, const std::string &database)
{
    collector.needDatabase(catalog, database);
    if (const auto found = catalog.tables.find(database); found != catalog.tables.end()) {
        for (const TableInfo &table : found->second) {
            collector.add(table.name, table.kind == "VIEW" ? CompletionKind::view : CompletionKind::table);
        }
    }
}

} // namespace

CompletionList completeAt(
    const SchemaCatalog &catalog, const std::string &currentDatabase, std::string_view text, std::size_t cursor)
{
    cursor = std::min(cursor, text.size());
    std::size_t partialStart = cursor;
    while (partialStart > 0 && isSqlNameByte(text[partialStart - 1])) {
        --partialStart;
    }
    CompletionList list;
    list.partial = std::string(text.substr(partialStart, cursor - partialStart));
    Collector collector(list);
    const StatementTokens tokens = tokenize(text, cursor, partialStart);
    const std::vector<Token> &before = tokens.beforeCursor;
    const std::vector<TableReference> tables = referencedTables(tokens.all);

    // "qualifier." or "db.table." right before the word.
    if (before.size() >= 2 && before.back().kind == Token::dot && isName(before[before.size() - 2])) {
        list.namesOnly = true;
        const std::string &qualifier = before[before.size() - 2].text;
        const bool twoParts
            = before.size() >= 4 && before[before.size() - 3].kind == Token::dot && isName(before[before.size() - 4]);
        if (twoParts) {
            const std::string &database = before[before.size() - 4].text;
            collector.needDatabase(catalog, database);
            if (const auto *columns = tableColumns(catalog, database, qualifier)) {
                for (const std::string &column : *columns) {
                    collector.add(column, CompletionKind::column);
                }
            }
            return list;
        }
        const bool afterTableKeyword = before.size() >= 3 && before[before.size() - 3].kind == Token::word
            && isOneOf(asciiUpper(before[before.size() - 3].text), tableKeywords);
        for (const TableReference &table : tables) {
            if (!afterTableKeyword
                && (equalIgnoringAsciiCase(table.alias, qualifier)
                    || (table.alias.empty() && table.table == qualifier))) {
                const std::string database = table.database.empty() ? currentDatabase : table.database;
                collector.needDatabase(catalog, database);
                if (const auto *columns = tableColumns(catalog, database, table.table)) {
                    for (const std::string &column : *columns) {
                        collector.add(column, CompletionKind::column);
                    }
                }
                return list;
            }
        }
        const bool isDatabase = std::any_of(catalog.databases.begin(),
            catalog.databases.end(),
            [&qualifier](const std::string &name) { return name == qualifier; });
        if (isDatabase) {
            addTables(collector, catalog, qualifier);
        } else if (const auto *columns = tableColumns(catalog, currentDatabase, qualifier)) {
            for (const std::string &column : *columns) {
                collector.add(column, CompletionKind::column);
            }
        }
        return list;
    }

    if (wantsTable(before)) {
        list.namesOnly = true;
        addTables(collector, catalog, currentDatabase);
        for (const std::string &database : catalog.databases) {
            collector.add(database, CompletionKind::database);
        }
        return list;
    }

    for (const TableReference &table : tables) {
        const std::string database = table.database.empty() ? currentDatabase : table.database;
        collector.needDatabase(catalog, database);
        if (const auto *columns = tableColumns(catalog, database, table.table)) {
            for (const std::string &column : *columns) {
                collector.add(column, CompletionKind::column);
            }
        }
    }
    collector.addWords(keywords, CompletionKind::keyword);
    collector.addWords(functions, CompletionKind::function);
    return list;
}

} // namespace tallowick
