#include "core/AppError.h"
#include "core/RowPredicate.h"

#include <QTest>
#include <string>
#include <vector>

using namespace tallowick;

namespace
{

using Names = std::vector<std::string>;

// The condition for the row, or "refused: " and the message the edit is refused with.
QString outcome(const Names &names, const Row &row, const Names &primary)
{
    std::vector<Field> fields;
    for (const std::string &name : names) {
        Field field;
        field.name = name;
        field.table = "t";
        field.originalName = name;
        fields.push_back(field);
    }
    try {
        return QString::fromStdString(SQL::rowPredicate(fields, row, primary));
    } catch (const AppError &error) {
        return QStringLiteral("refused: ") + QString::fromStdString(error.message());
    }
}

} // namespace

class TestRowPredicate final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowPredicate_data();
    void rowPredicate();
};

void TestRowPredicate::rowPredicate_data()
{
    QTest::addColumn<Names>("fields");
    QTest::addColumn<Row>("row");
    QTest::addColumn<Names>("primary");
    QTest::addColumn<QString>("expected");

    QTest::newRow("id NULL") << Names { "id", "name" } << Row { std::nullopt, "x" } << Names { "id" }
                             << QStringLiteral("`id` <=> NULL");
    QTest::newRow("back-quote in the name, apostrophe in the value")
        << Names { "we`ird" } << Row { "O'Brien" } << Names { "we`ird" }
        << QStringLiteral("`we``ird` <=> CONVERT(X'4f27427269656e' USING utf8mb4)");
    QTest::newRow("composite key in key order, not field order")
        << Names { "tenant", "name", "id" } << Row { "acme", "x", "1" } << Names { "id", "tenant" }
        << QStringLiteral("`id` <=> '1' AND `tenant` <=> 'acme'");
    QTest::newRow("first of two equal names wins")
        << Names { "id", "id" } << Row { "1", "2" } << Names { "id" } << QStringLiteral("`id` <=> '1'");

    QTest::newRow("no key columns") << Names { "id" } << Row { "1" } << Names {}
                                    << QStringLiteral("refused: This table has no primary key. Use SQL to edit it "
                                                      "without risking an ambiguous row match.");
    QTest::newRow("names compare case-sensitively")
        << Names { "id" } << Row { "1" } << Names { "ID" }
        << QStringLiteral("refused: The primary-key column ID is missing from this result.");
    QTest::newRow("key field past the end of the row")
        << Names { "name", "id" } << Row { "x" } << Names { "id" }
        << QStringLiteral("refused: The primary-key column id is missing from this result.");
}

void TestRowPredicate::rowPredicate()
{
    QFETCH(Names, fields);
    QFETCH(Row, row);
    QFETCH(Names, primary);
    QFETCH(QString, expected);
    QCOMPARE(outcome(fields, row, primary), expected);
}

QTEST_GUILESS_MAIN(TestRowPredicate)
#include "TestRowPredicate.moc"
