#include "core/AppError.h"
#include "session/TableBrowsing.h"

#include <QTest>

using namespace tallowick;

namespace
{

ColumnInfo column(const std::string &name, const std::string &type, bool primary = false)
{
    ColumnInfo info;
    info.name = name;
    info.type = type;
    info.primary = primary;
    return info;
}

PageRequest orderItems()
{
    PageRequest request;
    request.database = "shop";
    request.table = "order items";
    request.columns = { column("id", "int(11)", true), column("note", "text"), column("img", "blob") };
    return request;
}

} // namespace

class TestTableBrowsing final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageStatements_data();
    void pageStatements();
    void hugePageIsRefused();
    void tableListing();
    void inspectionStatements();
};

void TestTableBrowsing::pageStatements_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<QString>("sortColumn");
    QTest::addColumn<bool>("descending");
    QTest::addColumn<qint64>("page");
    QTest::addColumn<bool>("withKey");
    QTest::addColumn<QString>("expected");

    const QString none;
    // clang-format off
    QTest::newRow("filter skips blobs, orders by key") << "ab" << none << false << qint64(2) << true
        << "SELECT * FROM `shop`.`order items` WHERE CAST(`id` AS CHAR) LIKE '%ab%' OR CAST(`note` AS CHAR) LIKE "
           "'%ab%' ORDER BY `id` LIMIT 200 OFFSET 400";
    QTest::newRow("no key, no order") << none << none << false << qint64(0) << false
                                      << "SELECT * FROM `shop`.`order items` LIMIT 200 OFFSET 0";
    QTest::newRow("sort descending") << none << "note" << true << qint64(1) << true
                                     << "SELECT * FROM `shop`.`order items` ORDER BY `note` DESC LIMIT 200 OFFSET 200";
    QTest::newRow("sort ascending") << none << "img" << false << qint64(0) << true
                                    << "SELECT * FROM `shop`.`order items` ORDER BY `img` ASC LIMIT 200 OFFSET 0";
    QTest::newRow("filter kept as typed, quotes hex-encoded") << " it's_%" << none << false << qint64(0) << true
        << "SELECT * FROM `shop`.`order items` WHERE CAST(`id` AS CHAR) LIKE CONVERT(X'2520697427735f2525' USING "
           "utf8mb4) OR CAST(`note` AS CHAR) LIKE CONVERT(X'2520697427735f2525' USING utf8mb4) ORDER BY `id` LIMIT "
           "200 OFFSET 0";
    // clang-format on
}

void TestTableBrowsing::pageStatements()
{
    QFETCH(QString, filter);
    QFETCH(QString, sortColumn);
    QFETCH(bool, descending);
    QFETCH(qint64, page);
    QFETCH(bool, withKey);
    QFETCH(QString, expected);
    PageRequest request = orderItems();
    request.columns[0].primary = withKey;
    request.filter = filter.toStdString();
    request.sortColumn = sortColumn.toStdString();
    request.sortDescending = descending;
    request.page = page;
    QCOMPARE(QString::fromStdString(pageStatement(request)), expected);
}

void TestTableBrowsing::hugePageIsRefused()
{
    PageRequest request = orderItems();
    request.page = std::numeric_limits<std::int64_t>::max() / 100;
    QVERIFY_THROWS_EXCEPTION(AppError, pageStatement(request));

    // Only blob columns: a filter adds no WHERE clause at all.
    PageRequest blobs = orderItems();
    blobs.columns = { column("img", "longblob"), column("thumb", "BLOB") };
    blobs.filter = "x";
    QCOMPARE(pageStatement(blobs), std::string("SELECT * FROM `shop`.`order items` LIMIT 200 OFFSET 0"));
}

void TestTableBrowsing::tableListing()
{
    QueryResult listing;
    listing.rows = {
        { "a10", "BASE TABLE" },
        { "A2", "VIEW" },
        { std::nullopt, "BASE TABLE" },
        { "a1" },
        { "B", std::nullopt },
        {},
    };
    const std::vector<TableInfo> tables = tableListFrom(listing);
    // File order, as a file manager shows names: case-insensitive, digit runs by value.
    const std::vector<TableInfo> expected {
        { "a1", "BASE TABLE" },
        { "A2", "VIEW" },
        { "a10", "BASE TABLE" },
        { "B", "BASE TABLE" },
    };
    QVERIFY(tables == expected);
}

void TestTableBrowsing::inspectionStatements()
{
    QCOMPARE(inspectionStatement(WorkspaceMode::structure, "shop", "o`rders"),
        std::optional<std::string>("SHOW FULL COLUMNS FROM `shop`.`o``rders`"));
    QCOMPARE(inspectionStatement(WorkspaceMode::indexes, "shop", "orders"),
        std::optional<std::string>("SHOW INDEX FROM `shop`.`orders`"));
    QCOMPARE(inspectionStatement(WorkspaceMode::relations, "sh'op", "orders"),
        std::optional<std::string>(
            "SELECT COLUMN_NAME, CONSTRAINT_NAME, REFERENCED_TABLE_SCHEMA, REFERENCED_TABLE_NAME, "
            "REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = "
            "CONVERT(X'7368276f70' USING utf8mb4) AND TABLE_NAME = 'orders' AND REFERENCED_TABLE_NAME IS NOT NULL"));
    QVERIFY(!inspectionStatement(WorkspaceMode::query, "shop", "orders"));
    QVERIFY(!inspectionStatement(WorkspaceMode::server, "shop", "orders"));
}

QTEST_GUILESS_MAIN(TestTableBrowsing)
#include "TestTableBrowsing.moc"
