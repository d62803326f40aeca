#include "core/AppError.h"
#include "core/RowPredicate.h"

#include <QTest>
#include <string>
#include <vector>

using namespace tallowick;

namespace
{

using Names = std::vector<std::string>;

std::vector<Field> fieldsNamed(const Names &names)
{
    std::vector<Field> fields;
    for (const std::string &name : names) {
        Field field;
        field.name = name;
        field.table = "t";
        field.originalName = name;
        fields.push_back(field);
    }
    return fields;
}

} // namespace

class TestRowPredicate final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void condition_data();
    void condition();
    void refuses_data();
    void refuses();
};

void TestRowPredicate::condition_data()
{
    QTest::addColumn<Names>("fields");
    QTest::addColumn<Row>("row");
    QTest::addColumn<Names>("primary");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("id 8") << Names { "id" } << Row { "8" } << Names { "id" } << QByteArray("`id` <=> '8'");
    QTest::newRow("id NULL") << Names { "id", "name" } << Row { std::nullopt, "x" } << Names { "id" }
                             << QByteArray("`id` <=> NULL");
    QTest::newRow("id empty text is not NULL")
        << Names { "id" } << Row { "" } << Names { "id" } << QByteArray("`id` <=> ''");
    QTest::newRow("key value O'Brien") << Names { "name" } << Row { "O'Brien" } << Names { "name" }
                                       << QByteArray("`name` <=> CONVERT(X'4f27427269656e' USING utf8mb4)");
    QTest::newRow("key column found after other columns")
        << Names { "name", "note", "id" } << Row { "a", std::nullopt, "3" } << Names { "id" }
        << QByteArray("`id` <=> '3'");
    QTest::newRow("composite key in key order, not field order")
        << Names { "tenant", "name", "id" } << Row { "acme", "x", "1" } << Names { "id", "tenant" }
        << QByteArray("`id` <=> '1' AND `tenant` <=> 'acme'");
    QTest::newRow("key name with a back-quote")
        << Names { "we`ird" } << Row { "x" } << Names { "we`ird" } << QByteArray("`we``ird` <=> 'x'");
    QTest::newRow("first of two equal names wins")
        << Names { "id", "id" } << Row { "1", "2" } << Names { "id" } << QByteArray("`id` <=> '1'");
}

void TestRowPredicate::condition()
{
    QFETCH(Names, fields);
    QFETCH(Row, row);
    QFETCH(Names, primary);
    QFETCH(QByteArray, expected);
    QCOMPARE(QByteArray::fromStdString(SQL::rowPredicate(fieldsNamed(fields), row, primary)), expected);
}

void TestRowPredicate::refuses_data()
{
    QTest::addColumn<Names>("fields");
    QTest::addColumn<Row>("row");
    QTest::addColumn<Names>("primary");
    QTest::addColumn<QString>("message");

    const QString noKey
        = QStringLiteral("This table has no primary key. Use SQL to edit it without risking an ambiguous row match.");
    QTest::newRow("no key columns") << Names { "id" } << Row { "1" } << Names {} << noKey;
    QTest::newRow("no key columns and no fields") << Names {} << Row {} << Names {} << noKey;
    QTest::newRow("tenant missing from key id, tenant")
        << Names { "id", "name" } << Row { "1", "x" } << Names { "id", "tenant" }
        << QStringLiteral("The primary-key column tenant is missing from this result.");
    QTest::newRow("names compare case-sensitively")
        << Names { "id" } << Row { "1" } << Names { "ID" }
        << QStringLiteral("The primary-key column ID is missing from this result.");
    QTest::newRow("key field past the end of the row")
        << Names { "name", "id" } << Row { "x" } << Names { "id" }
        << QStringLiteral("The primary-key column id is missing from this result.");
    QTest::newRow("name inserted without quotes")
        << Names { "id" } << Row { "1" } << Names { "order id" }
        << QStringLiteral("The primary-key column order id is missing from this result.");
}

void TestRowPredicate::refuses()
{
    QFETCH(Names, fields);
    QFETCH(Row, row);
    QFETCH(Names, primary);
    QFETCH(QString, message);
    try {
        const std::string condition = SQL::rowPredicate(fieldsNamed(fields), row, primary);
        QFAIL(qPrintable(QStringLiteral("no error; got ") + QString::fromStdString(condition)));
    } catch (const AppError &error) {
        QCOMPARE(QString::fromStdString(error.message()), message);
    }
}

QTEST_GUILESS_MAIN(TestRowPredicate)
#include "TestRowPredicate.moc"
