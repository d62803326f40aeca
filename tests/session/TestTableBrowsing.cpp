#include "session/TableBrowsing.h"
#include "support/Checks.h"

#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

ColumnInfo column(const std::string &name, const std::string &type, bool primary = false)
{
    return { name, type, false, primary, std::nullopt, "", std::nullopt, "" };
}

PageRequest orderItems(const std::string &filter, qint64 page)
{
    return { .database = "shop",
        .table = "order items",
        .columns = { column("id", "int(11)", true), column("note", "text"), column("img", "blob") },
        .filter = filter,
        .sortColumn = {},
        .sortDescending = false,
        .page = page };
}

} // namespace

class TestTableBrowsing final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageStatements_data();
    void pageStatements();
    void tableListing();
    void inspectionStatements();
};

void TestTableBrowsing::pageStatements_data()
{
    QTest::addColumn<PageRequest>("request");
    QTest::addColumn<QString>("expected");

    PageRequest noKey = orderItems("", 0);
    noKey.columns[0].primary = false;
    PageRequest blobs = orderItems("x", 0);
    blobs.columns = { column("img", "longblob"), column("thumb", "BLOB") };
    // clang-format off
    QTest::newRow("filter skips blobs, orders by key") << orderItems("ab", 2)
        << "SELECT * FROM `shop`.`order items` WHERE CAST(`id` AS CHAR) LIKE '%ab%' OR CAST(`note` AS CHAR) LIKE "
           "'%ab%' ORDER BY `id` LIMIT 200 OFFSET 400";
    QTest::newRow("no key, no order") << noKey << "SELECT * FROM `shop`.`order items` LIMIT 200 OFFSET 0";
    QTest::newRow("filter kept as typed, quotes hex-encoded") << orderItems(" it's_%", 0)
        << "SELECT * FROM `shop`.`order items` WHERE CAST(`id` AS CHAR) LIKE CONVERT(X'2520697427735f2525' USING "
           "utf8mb4) OR CAST(`note` AS CHAR) LIKE CONVERT(X'2520697427735f2525' USING utf8mb4) ORDER BY `id` LIMIT "
           "200 OFFSET 0";
    QTest::newRow("only blob columns: a filter adds no WHERE") << blobs
        << "SELECT * FROM `shop`.`order items` LIMIT 200 OFFSET 0";
    QTest::newRow("offset beyond 64 bits") << orderItems("", std::numeric_limits<std::int64_t>::max() / 100)
        << "That page is beyond the end of any table.";
    // clang-format on
}

void TestTableBrowsing::pageStatements()
{
    QFETCH(PageRequest, request);
    QFETCH(QString, expected);
    QString statement;
    const QString error = errorFrom([&] { statement = QString::fromStdString(pageStatement(request)); });
    QCOMPARE(statement.isEmpty() ? error : statement, expected);
}

void TestTableBrowsing::tableListing()
{
    QueryResult listing;
    listing.rows = {
        { "a10", "BASE TABLE" }, { "A2", "VIEW" }, { std::nullopt, "BASE TABLE" }, { "a1" }, { "B", std::nullopt }, {}
    };
    // File order, as a file manager shows names: case-insensitive, digit runs by value.
    const std::vector<TableInfo> expected {
        { "a1", "BASE TABLE" }, { "A2", "VIEW" }, { "a10", "BASE TABLE" }, { "B", "BASE TABLE" }
    };
    QVERIFY(tableListFrom(listing) == expected);
}

void TestTableBrowsing::inspectionStatements()
{
    QCOMPARE(inspectionStatement(WorkspaceMode::structure, "shop", "o`rders"),
        std::optional<std::string>("SHOW FULL COLUMNS FROM `shop`.`o``rders`"));
    QCOMPARE(inspectionStatement(WorkspaceMode::relations, "sh'op", "orders"),
        std::optional<std::string>(
            "SELECT COLUMN_NAME, CONSTRAINT_NAME, REFERENCED_TABLE_SCHEMA, REFERENCED_TABLE_NAME, "
            "REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = "
            "CONVERT(X'7368276f70' USING utf8mb4) AND TABLE_NAME = 'orders' AND REFERENCED_TABLE_NAME IS NOT NULL"));
    QVERIFY(!inspectionStatement(WorkspaceMode::query, "shop", "orders"));
}

QTEST_GUILESS_MAIN(TestTableBrowsing)
#include "TestTableBrowsing.moc"
