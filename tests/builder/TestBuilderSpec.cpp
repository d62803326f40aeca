#include "builder/BuilderEdits.h"
#include "builder/BuilderSpec.h"
#include "core/AppError.h"
#include "support/Checks.h"

#include <QTest>
#include <string>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

BuilderSpec orders()
{
    BuilderSpec query;
    query.database = "shop";
    query.table = "orders";
    return query;
}

BuilderFilter filter(
    const std::string &column, const std::string &operation, const std::string &value, bool numeric = false)
{
    BuilderFilter result;
    result.column = column;
    result.operation = operation;
    result.value = value;
    result.numeric = numeric;
    return result;
}

BuilderJoin join(const std::string &kind, const std::string &table, const std::string &left, const std::string &right)
{
    BuilderJoin result;
    result.kind = kind;
    result.table = table;
    result.left = left;
    result.right = right;
    return result;
}

} // namespace

class TestBuilderSpec final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnReferences();
    void build_data();
    void build();
    void refuses_data();
    void refuses();
    void finiteNumberText();
    void edits();
};

// A reference is split at its first dot only; empty pieces are dropped and do not use up the
// split. A selected column quotes table and name apart, so a dot inside either stays in the name.
void TestBuilderSpec::columnReferences()
{
    const std::pair<const char *, QByteArray> references[] = { { "id", "`id`" },
        { "shop.orders.id", "`shop`.`orders.id`" },
        { "or`ders.i`d", "`or``ders`.`i``d`" },
        { ".a.b", "`a`.`b`" },
        { "a..b", "`a`.`.b`" },
        { "a.", "`a`" },
        { ".", "" } };
    for (const auto &[reference, expected] : references) {
        QCOMPARE(QByteArray::fromStdString(BuilderSpec::column(reference)), expected);
    }
    const BuilderColumn dotted { "a.b", "c", "" };
    const BuilderColumn quoted { "t`", "`c", "COUNT" };
    QCOMPARE(QByteArray::fromStdString(dotted.expression()), QByteArray("`a.b`.`c`"));
    QCOMPARE(QByteArray::fromStdString(quoted.expression()), QByteArray("COUNT(`t```.```c`)"));
}

void TestBuilderSpec::build_data()
{
    QTest::addColumn<BuilderSpec>("query");
    QTest::addColumn<QByteArray>("expected");

    BuilderSpec quoted;
    quoted.database = "sh`op";
    quoted.table = "or`ders";
    QTest::newRow("back-quotes in database and table")
        << quoted << QByteArray("SELECT `or``ders`.*\nFROM `sh``op`.`or``ders`\nLIMIT 500;");

    // Names are back-quoted, text is quoted, a number goes in as typed.
    BuilderSpec full = orders();
    full.distinct = true;
    full.columns = { { "orders", "customer_id", "" }, { "orders", "total", "SUM" } };
    full.joins = { join("INNER JOIN", "customers", "orders.customer_id", "customers.id"),
        join("RIGHT JOIN", "regions", "customers.region_id", "regions.id") };
    full.filters = { filter("customers.name", "LIKE", "A%"),
        filter("orders.total", ">=", "-10.50", true),
        filter("customers.name", "NOT LIKE", "%x"),
        filter("orders.note", "!=", ""),
        filter("customers.name", "=", "O'Brien"),
        filter("orders.total", "IS NOT NULL", "not a number", true) };
    full.groupBy = { "orders.customer_id", "customers.name" };
    full.orderBy = "orders.id";
    full.descending = true;
    full.limit = 100000;
    QTest::newRow("every clause") << full
                                  << QByteArray("SELECT DISTINCT `orders`.`customer_id`,\n"
                                                "       SUM(`orders`.`total`)\n"
                                                "FROM `shop`.`orders`\n"
                                                "INNER JOIN `shop`.`customers`\n"
                                                "  ON `orders`.`customer_id` = `customers`.`id`\n"
                                                "RIGHT JOIN `shop`.`regions`\n"
                                                "  ON `customers`.`region_id` = `regions`.`id`\n"
                                                "WHERE `customers`.`name` LIKE 'A%'\n"
                                                "  AND `orders`.`total` >= -10.50\n"
                                                "  AND `customers`.`name` NOT LIKE '%x'\n"
                                                "  AND `orders`.`note` != ''\n"
                                                "  AND `customers`.`name` = CONVERT(X'4f27427269656e' USING utf8mb4)\n"
                                                "  AND `orders`.`total` IS NOT NULL\n"
                                                "GROUP BY `orders`.`customer_id`, `customers`.`name`\n"
                                                "ORDER BY `orders`.`id` DESC\n"
                                                "LIMIT 100000;");

    BuilderSpec either = orders();
    either.matchAll = false;
    either.filters = { filter("orders.status", "=", "open"), filter("orders.note", "IS NULL", "ignored") };
    either.orderBy = "id";
    either.limit = 1;
    QTest::newRow("OR between filters, ascending, limit 1")
        << either
        << QByteArray("SELECT `orders`.*\nFROM `shop`.`orders`\n"
                      "WHERE `orders`.`status` = 'open'\n  OR `orders`.`note` IS NULL\n"
                      "ORDER BY `id` ASC\nLIMIT 1;");
}

void TestBuilderSpec::build()
{
    QFETCH(BuilderSpec, query);
    QFETCH(QByteArray, expected);
    QCOMPARE(QByteArray::fromStdString(query.build()), expected);
}

void TestBuilderSpec::refuses_data()
{
    QTest::addColumn<BuilderSpec>("query");
    QTest::addColumn<QString>("message");

    const QString incompleteJoin = QStringLiteral("Complete the table and both columns for each join.");
    const QString joinKind = QStringLiteral("Unsupported join type.");
    const auto withJoins = [](std::vector<BuilderJoin> joins) {
        BuilderSpec query = orders();
        query.joins = std::move(joins);
        return query;
    };

    BuilderSpec noBase = orders();
    noBase.table.clear();
    noBase.limit = 0;
    QTest::newRow("no base table (before the limit)") << noBase << QStringLiteral("Choose a table to build a query.");

    QTest::newRow("join without table") << withJoins({ join("LEFT JOIN", "", "orders.customer_id", "customers.id") })
                                        << incompleteJoin;
    QTest::newRow("join without left column")
        << withJoins({ join("LEFT JOIN", "customers", "", "customers.id") }) << incompleteJoin;
    QTest::newRow("join without right column")
        << withJoins({ join("LEFT JOIN", "customers", "orders.customer_id", "") }) << incompleteJoin;
    QTest::newRow("left join in lower case")
        << withJoins({ join("left join", "customers", "orders.customer_id", "customers.id") }) << joinKind;
    QTest::newRow("first bad join wins") << withJoins(
        { join("FULL JOIN", "customers", "orders.customer_id", "customers.id"), join("LEFT JOIN", "", "", "") })
                                         << joinKind;

    for (const char *operation : { "like", "IS  NULL", "" }) {
        BuilderSpec bad = orders();
        bad.filters = { filter("orders.id", operation, "1") };
        QTest::addRow("operator \"%s\"", operation) << bad << QStringLiteral("Unsupported filter operator.");
    }

    // The aggregate goes into the statement as it is, so only the listed names pass.
    for (const char *aggregate : { "sum", "SLEEP", "COUNT(*)" }) {
        BuilderSpec bad = orders();
        bad.columns = { { "orders", "total", aggregate } };
        QTest::addRow("aggregate \"%s\"", aggregate) << bad << QStringLiteral("Unsupported aggregate.");
    }

    BuilderSpec tooMany = orders();
    tooMany.limit = 100001;
    QTest::newRow("limit 100001") << tooMany << QStringLiteral("The row limit must be between 1 and 100,000.");

    // The first failure in statement order is the one reported.
    BuilderSpec everything = withJoins({ join("LEFT JOIN", "customers", "", "") });
    everything.filters = { filter("orders.id", "~", "1") };
    everything.limit = 0;
    QTest::newRow("join before filter before limit") << everything << incompleteJoin;
    BuilderSpec filterThenLimit = orders();
    filterThenLimit.filters = { filter("orders.total", ">", "x", true), filter("orders.id", "~", "1") };
    filterThenLimit.limit = 0;
    QTest::newRow("filters in order, before limit")
        << filterThenLimit << QStringLiteral("Enter a valid number for orders.total.");
}

void TestBuilderSpec::refuses()
{
    QFETCH(BuilderSpec, query);
    QFETCH(QString, message);
    QCOMPARE(errorFrom([&] { query.build(); }), message);
}

// The value goes into the SQL as typed, so it must be a whole finite number and nothing else;
// blanks around it are not ignored.
void TestBuilderSpec::finiteNumberText()
{
    for (const char *text : { "-3.5", "+7", ".5", "5.", "1E-3", "0x1A", "1e-400" }) {
        QVERIFY2(isFiniteNumberText(text), text);
    }
    for (const char *text :
        { "NaN", "-Infinity", "INF", "1e400", "1,5", "abc", "1e", "0x", "", " 1", "\t1", "1 ", "\u00a01" }) {
        QVERIFY2(!isFiniteNumberText(text), text);
    }
}

// Each edit leaves a query that names only tables it still reads from.
void TestBuilderSpec::edits()
{
    BuilderSpec shaped = orders();
    shaped.columns = { { "orders", "id", "" }, { "customers", "name", "" }, { "orders_archive", "id", "" } };
    BuilderJoin customers = join("LEFT JOIN", "customers", "orders.customer_id", "customers.id");
    BuilderJoin archive = join("INNER JOIN", "orders_archive", "orders.id", "orders_archive.id");
    shaped.joins = { customers, archive };
    shaped.filters = { filter("customers.name", "=", "x"), filter("orders.id", ">", "1", true), filter("", "=", "") };
    shaped.groupBy = { "customers.name", "orders.id" };
    shaped.orderBy = "customers.name";

    // Applies `edit` to `start`, and `expect` to a copy of it, and compares.
    const auto check = [](const char *name, const BuilderSpec &start, auto edit, auto expect) {
        BuilderSpec edited = start;
        BuilderSpec expected = start;
        edit(edited);
        expect(expected);
        QVERIFY2(edited == expected, name);
    };
    const std::vector<std::string> listed { "orders.id", "orders.total", "customers.name", "orders_archive.id" };
    // Without the customers join: every reference to customers goes, and only those.
    const auto withoutCustomers = [&](BuilderSpec &spec) {
        spec.columns = { { "orders", "id", "" }, { "orders_archive", "id", "" } };
        spec.filters.erase(spec.filters.begin());
        spec.groupBy = { "orders.id" };
        spec.orderBy.clear();
    };

    check(
        "the same source table keeps the query",
        shaped,
        [](BuilderSpec &spec) { chooseSourceTable(spec, "orders"); },
        [](BuilderSpec &) {});
    check(
        "another source table starts over",
        shaped,
        [](BuilderSpec &spec) { chooseSourceTable(spec, "customers"); },
        [](BuilderSpec &spec) {
            spec = orders();
            spec.table = "customers";
        });
    check(
        "selected columns take their listed place, a new aggregate replaces one in place, cleared ones go",
        shaped,
        [&](BuilderSpec &spec) {
            setColumnSelected(spec, { "orders", "total", "SUM" }, true, listed);
            setColumnSelected(spec, { "orders", "id", "COUNT" }, true, listed);
            setColumnSelected(spec, { "customers", "name", "" }, false, listed);
        },
        [](BuilderSpec &spec) {
            spec.columns
                = { { "orders", "id", "COUNT" }, { "orders", "total", "SUM" }, { "orders_archive", "id", "" } };
        });
    check(
        "a removed join takes its references along",
        shaped,
        [&](BuilderSpec &spec) { removeJoin(spec, customers.id); },
        [&](BuilderSpec &spec) {
            withoutCustomers(spec);
            spec.joins = { archive };
        });
    check(
        "a join pointed elsewhere drops the old table's references",
        shaped,
        [&](BuilderSpec &spec) { setJoinTable(spec, customers.id, "regions"); },
        [&](BuilderSpec &spec) {
            withoutCustomers(spec);
            spec.joins[0].table = "regions";
            spec.joins[0].right.clear();
        });
    BuilderSpec twice = shaped;
    twice.joins.push_back(join("RIGHT JOIN", "customers", "orders.customer_id", "customers.id"));
    check(
        "a table still joined keeps its references",
        twice,
        [&](BuilderSpec &spec) { removeJoin(spec, customers.id); },
        [](BuilderSpec &spec) { spec.joins.erase(spec.joins.begin()); });
    BuilderJoin reworded = join("INNER JOIN", "regions", "orders.region_id", "customers.region_id");
    reworded.id = customers.id;
    check(
        "an edited join takes kind and condition but keeps its table",
        shaped,
        [&](BuilderSpec &spec) { updateJoinCondition(spec, reworded); },
        [](BuilderSpec &spec) {
            spec.joins[0].kind = "INNER JOIN";
            spec.joins[0].left = "orders.region_id";
            spec.joins[0].right = "customers.region_id";
        });
    BuilderFilter narrowed = filter("orders.total", "<", "9");
    narrowed.id = shaped.filters[1].id;
    check(
        "an edited filter replaces only its own",
        shaped,
        [&](BuilderSpec &spec) { updateFilter(spec, narrowed); },
        [&](BuilderSpec &spec) { spec.filters[1] = narrowed; });
    check(
        "a removed filter goes",
        shaped,
        [&](BuilderSpec &spec) { removeFilter(spec, shaped.filters[0].id); },
        [](BuilderSpec &spec) { spec.filters.erase(spec.filters.begin()); });
    check(
        "grouping is added at the end and taken out",
        shaped,
        [](BuilderSpec &spec) {
            setGrouped(spec, "orders.total", true);
            setGrouped(spec, "customers.name", false);
        },
        [](BuilderSpec &spec) {
            spec.groupBy = { "orders.id", "orders.total" };
        });
    QCOMPARE(sourceTables(twice), (std::vector<std::string> { "orders", "customers", "orders_archive" }));
}

QTEST_GUILESS_MAIN(TestBuilderSpec)
#include "TestBuilderSpec.moc"
