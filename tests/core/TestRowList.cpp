#include "core/QueryResult.h"

#include <QTest>

using namespace tallowick;

// Results are copied freely (session, tabs, grid, exports); a copy must never see another
// copy's change, and reading must never pay for a copy.
class TestRowList final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void copiesAreIndependentOnceChanged();
    void equalityAndEmptyLists();
};

void TestRowList::copiesAreIndependentOnceChanged()
{
    QueryResult original;
    original.rows = { { "1", "Ada" }, { "2", std::nullopt } };
    QueryResult copy = original;
    QCOMPARE(&copy.rows.front(), &original.rows.front()); // shared until changed
    copy.rows[1][1] = "Grace";
    QCOMPARE(original.rows[1][1], Cell());
    QCOMPARE(copy.rows[1][1], Cell("Grace"));

    // Every kind of change detaches.
    const RowList source { { "a" }, { "b" } };
    RowList pushed = source;
    pushed.push_back({ "c" });
    RowList cleared = source;
    cleared.clear();
    RowList viaAt = source;
    viaAt.at(0)[0] = "changed";
    QCOMPARE(source.size(), std::size_t(2));
    QCOMPARE(source[0][0], Cell("a"));
    QCOMPARE(pushed.size(), std::size_t(3));
    QVERIFY(cleared.empty());
    QCOMPARE(viaAt[0][0], Cell("changed"));
}

void TestRowList::equalityAndEmptyLists()
{
    const RowList a { { "1", std::nullopt } };
    const RowList b { { "1", std::nullopt } };
    const RowList c { { "1", std::string() } };
    QVERIFY(a == b);
    QVERIFY(!(a == c)); // NULL is not the empty string
    QVERIFY(RowList() == RowList(std::vector<Row>()));

    QVERIFY_THROWS_EXCEPTION(std::out_of_range, RowList().at(0));
}

QTEST_GUILESS_MAIN(TestRowList)
#include "TestRowList.moc"
