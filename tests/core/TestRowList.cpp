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
};

void TestRowList::copiesAreIndependentOnceChanged()
{
    const RowList source { { "1", "Ada" }, { "2", std::nullopt } };
    RowList viaIndex = source;
    QCOMPARE(&std::as_const(viaIndex).front(), &source.front()); // shared until changed
    viaIndex[1][1] = "Grace";
    RowList viaAt = source;
    viaAt.at(0)[0] = "changed";
    RowList pushed = source;
    pushed.push_back({ "3" });
    RowList cleared = source;
    cleared.clear();
    QVERIFY(source == RowList({ { "1", "Ada" }, { "2", std::nullopt } }));
    QCOMPARE(viaIndex[1][1], Cell("Grace"));
    QCOMPARE(viaAt[0][0], Cell("changed"));
    QCOMPARE(pushed.size(), std::size_t(3));
    QVERIFY(cleared.empty());
    // Equal lists compare by content; NULL is not the empty string.
    QVERIFY(!(source == RowList({ { "1", "Ada" }, { "2", std::string() } })));
    QVERIFY(RowList() == RowList(std::vector<Row>()));
}

QTEST_GUILESS_MAIN(TestRowList)
#include "TestRowList.moc"
