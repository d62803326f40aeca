#include "app/UnitChecks.h"

#include "builder/BuilderSpec.h"
#include "core/AppError.h"
#include "core/ColumnInfo.h"
#include "core/ConnectionProfile.h"
#include "core/ConnectionProfileJson.h"
#include "core/SQL.h"
#include "credentials/CredentialMemoryCache.h"

#include <string>
#include <string_view>

namespace tallowick
{

namespace
{

template <typename Action> bool throwsAppError(Action action)
{
    try {
        action();
    } catch (const AppError &) {
        return true;
    }
    return false;
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

std::size_t statementCount(std::string_view script)
{
    return SQL::statements(script).size();
}

Field field(const std::string &name)
{
    Field result;
    result.name = name;
    return result;
}

BuilderSpec ordersSpec()
{
    BuilderSpec spec;
    spec.database = "shop";
    spec.table = "orders";
    return spec;
}

BuilderFilter filter(const std::string &column, const std::string &operation, const std::string &value)
{
    BuilderFilter result;
    result.column = column;
    result.operation = operation;
    result.value = value;
    return result;
}

ColumnInfo column(const std::string &type, const std::optional<std::string> &defaultValue, const std::string &extra)
{
    ColumnInfo result;
    result.name = "created";
    result.type = type;
    result.defaultValue = defaultValue;
    result.extra = extra;
    return result;
}

// A loader that counts how often the cache asks the secret store.
struct CountingLoader {
    std::string answer;
    int calls = 0;

    CredentialMemoryCache::Loader loader()
    {
        return [this] {
            ++calls;
            return answer;
        };
    }
};

std::vector<NamedCheck> quotingChecks()
{
    return {
        { "identifiers escape backticks", [] { return SQL::identifier("my`table") == "`my``table`"; } },
        { "database names are qualified", [] { return SQL::qualified("shop", "order") == "`shop`.`order`"; } },
        { "NULL and empty strings remain distinct",
            [] { return SQL::value(std::nullopt) == "NULL" && SQL::value(std::string()) == "''"; } },
        { "quotes use an unambiguous UTF-8 literal",
            [] {
                const std::string literal = SQL::value("O'Brien");
                return startsWith(literal, "CONVERT(") && contains(literal, "X'4f27427269656e'");
            } },
        { "DDL defaults use a literal accepted by MySQL",
            [] { return SQL::defaultLiteral("O'Brien") == "X'4f27427269656e'"; } },
        { "expression defaults remain editable data columns",
            [] { return !column("timestamp", "CURRENT_TIMESTAMP", "DEFAULT_GENERATED").generated(); } },
        { "computed columns are recognized separately from defaults",
            [] { return column("int", std::nullopt, "VIRTUAL GENERATED").generated(); } },
        { "backslashes are never interpreted as SQL escapes",
            [] {
                const std::string literal = SQL::value("C:\\new");
                return startsWith(literal, "CONVERT(X'") && contains(literal, "433a5c6e6577");
            } },
    };
}

std::vector<NamedCheck> scriptChecks()
{
    return {
        { "script splitting respects quoted semicolons",
            [] { return statementCount("SELECT ';' AS x; SELECT 2;") == 2; } },
        { "script splitting respects identifiers and comments",
            [] { return statementCount("SELECT `a;b` FROM `t`; -- ; comment\nSELECT 3;") == 2; } },
        { "SQL import supports DELIMITER and routines",
            [] {
                return statementCount(
                           "DELIMITER $$\nCREATE PROCEDURE p() BEGIN SELECT 1; SELECT 2; END$$\nDELIMITER ;\nSELECT 3;")
                    == 2;
            } },
        { "doubled SQL quotes do not split statements",
            [] { return statementCount("SELECT 'can''t; break';SELECT 1;") == 2; } },
        { "trailing script comments do not become empty queries",
            [] { return statementCount("SELECT 1;\n-- Export complete.\n") == 1; } },
        { "versioned executable MySQL comments are preserved",
            [] { return statementCount("/*!40101 SET NAMES utf8mb4 */;") == 1; } },
        { "unterminated SQL is rejected", [] { return throwsAppError([] { SQL::statements("SELECT 'oops"); }); } },
        { "write review skips leading comments correctly",
            [] {
                return !SQL::requiresReview("-- read\nSELECT 1") && SQL::requiresReview("/* note */ DROP TABLE t");
            } },
    };
}

std::vector<NamedCheck> csvChecks()
{
    return {
        { "CSV handles embedded commas and newlines",
            [] {
                QueryResult result;
                result.fields = { field("name"), field("notes") };
                result.rows = { { "Ada", "one, two\nthree" } };
                const std::vector<std::vector<std::string>> expected { { "name", "notes" },
                    { "Ada", "one, two\nthree" } };
                return SQL::parseCSV(SQL::csv(result)) == expected;
            } },
        { "CSV preserves NULL markers and quotes",
            [] {
                QueryResult result;
                result.fields = { field("a"), field("b") };
                result.rows = { { std::nullopt, "say \"hi\"" } };
                return SQL::csv(result) == "\"a\",\"b\"\r\n\\N,\"say \"\"hi\"\"\"\r\n";
            } },
        { "CSV reads CRLF files",
            [] {
                const std::vector<std::vector<std::string>> expected { { "a", "b" }, { "1", "2" } };
                return SQL::parseCSV("a,b\r\n1,2") == expected;
            } },
        { "CSV keeps trailing empty fields",
            [] {
                const auto rows = SQL::parseCSV("a,b\n1,");
                return rows.size() == 2 && rows[1] == std::vector<std::string> { "1", "" };
            } },
        { "invalid quoted CSV is rejected", [] { return throwsAppError([] { SQL::parseCSV("a,\"b\nc"); }); } },
    };
}

std::vector<NamedCheck> rowPredicateChecks()
{
    return {
        { "row edits require a primary key",
            [] { return throwsAppError([] { SQL::rowPredicate({ field("id") }, { "1" }, {}); }); } },
        { "composite primary keys cannot be partially missing",
            [] { return throwsAppError([] {
                     SQL::rowPredicate({ field("id") }, { "1" }, { "id", "tenant" });
                 }); } },
        { "row predicates identify the original primary-key value",
            [] {
                const std::string condition = SQL::rowPredicate({ field("id") }, { "8" }, { "id" });
                return contains(condition, "`id` <=>") && contains(condition, " '8'");
            } },
    };
}

std::vector<NamedCheck> builderChecks()
{
    return {
        { "builder defaults to all base-table columns",
            [] { return contains(ordersSpec().build(), "SELECT `orders`.*\nFROM `shop`.`orders`"); } },
        { "builder generates qualified joins",
            [] {
                BuilderSpec spec = ordersSpec();
                BuilderJoin join;
                join.table = "customers";
                join.left = "orders.customer_id";
                join.right = "customers.id";
                spec.joins = { join };
                const std::string sql = spec.build();
                return contains(sql, "LEFT JOIN `shop`.`customers`")
                    && contains(sql, "`orders`.`customer_id` = `customers`.`id`");
            } },
        { "builder generates filters and sorting",
            [] {
                BuilderSpec spec = ordersSpec();
                spec.filters = { filter("customers.name", "LIKE", "A%") };
                spec.orderBy = "orders.id";
                spec.descending = true;
                const std::string sql = spec.build();
                return contains(sql, "`customers`.`name` LIKE 'A%'") && contains(sql, "ORDER BY `orders`.`id` DESC");
            } },
        { "builder rejects SQL in numeric filter values",
            [] {
                BuilderSpec spec = ordersSpec();
                spec.filters = { filter("orders.total", ">", "0 OR 1=1") };
                spec.filters[0].numeric = true;
                return throwsAppError([&spec] { spec.build(); });
            } },
        { "builder supports NULL filters",
            [] {
                BuilderSpec spec = ordersSpec();
                spec.filters = { filter("orders.note", "IS NULL", "ignored") };
                return contains(spec.build(), "`orders`.`note` IS NULL");
            } },
        { "builder supports aggregate queries",
            [] {
                BuilderSpec spec = ordersSpec();
                spec.columns = { BuilderColumn { "orders", "total", "SUM" } };
                spec.groupBy = { "orders.customer_id" };
                const std::string sql = spec.build();
                return contains(sql, "SUM(`orders`.`total`)") && contains(sql, "GROUP BY `orders`.`customer_id`");
            } },
        { "builder validates row limits",
            [] {
                BuilderSpec spec = ordersSpec();
                spec.limit = 0;
                return throwsAppError([&spec] { spec.build(); });
            } },
    };
}

std::vector<NamedCheck> profileChecks()
{
    return {
        { "connection profiles validate port numbers",
            [] {
                ConnectionProfile profile;
                profile.name = "Server";
                profile.host = "127.0.0.1";
                profile.user = "tester";
                profile.validate();
                profile.port = 70000;
                return throwsAppError([&profile] { profile.validate(); });
            } },
        { "connection files contain no password field",
            [] {
                ConnectionProfile profile;
                profile.name = "Example";
                profile.host = "localhost";
                return !encodeProfile(profile).contains("password");
            } },
    };
}

std::vector<NamedCheck> credentialChecks()
{
    return {
        { "a successful credential lookup is reused for the session",
            [] {
                CredentialMemoryCache cache;
                CountingLoader store { "fixture-secret" };
                const QUuid id = QUuid::createUuid();
                const std::string first = cache.value(id, store.loader());
                const std::string second = cache.value(id, store.loader());
                return store.calls == 1 && first == "fixture-secret" && second == "fixture-secret";
            } },
        { "saving a credential updates its cached value",
            [] {
                CredentialMemoryCache cache;
                CountingLoader store { "stale-secret" };
                const QUuid id = QUuid::createUuid();
                cache.value(id, store.loader());
                cache.set("updated-secret", id);
                return cache.value(id, store.loader()) == "updated-secret" && store.calls == 1;
            } },
        { "credential removal invalidates the cache",
            [] {
                CredentialMemoryCache cache;
                const QUuid id = QUuid::createUuid();
                cache.set("old-secret", id);
                cache.remove(id);
                CountingLoader store { "fresh-secret" };
                return cache.value(id, store.loader()) == "fresh-secret" && store.calls == 1;
            } },
        { "cancelled credential access propagates an error",
            [] {
                CredentialMemoryCache cache;
                return throwsAppError([&cache] {
                    cache.value(QUuid::createUuid(), []() -> std::string { throw AppError("cancelled"); });
                });
            } },
        { "a denied lookup is retried rather than cached as an empty password",
            [] {
                CredentialMemoryCache cache;
                const QUuid id = QUuid::createUuid();
                const bool denied
                    = throwsAppError([&] { cache.value(id, []() -> std::string { throw AppError("denied"); }); });
                CountingLoader store { "restored-specimen" };
                return denied && cache.value(id, store.loader()) == "restored-specimen" && store.calls == 1;
            } },
        { "connections without a stored password avoid repeated Keychain lookups",
            [] {
                CredentialMemoryCache cache;
                CountingLoader store { "" };
                const QUuid id = QUuid::createUuid();
                const std::string first = cache.value(id, store.loader());
                const std::string second = cache.value(id, store.loader());
                return store.calls == 1 && first.empty() && second.empty();
            } },
    };
}

} // namespace

std::vector<NamedCheck> unitChecks()
{
    std::vector<NamedCheck> checks;
    for (auto group : { quotingChecks(),
             scriptChecks(),
             csvChecks(),
             rowPredicateChecks(),
             builderChecks(),
             profileChecks(),
             credentialChecks() }) {
        checks.insert(checks.end(), group.begin(), group.end());
    }
    return checks;
}

void runUnitChecks(std::ostream &out)
{
    const std::vector<NamedCheck> checks = unitChecks();
    runChecks(checks, out);
    out << checks.size() << " unit checks passed.\n" << std::flush;
}

} // namespace tallowick
