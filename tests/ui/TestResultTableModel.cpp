#include "ui/ResultTableModel.h"

#include <QAbstractItemModelTester>
#include <QColor>
#include <QGuiApplication>
#include <QPalette>
#include <QSignalSpy>
#include <QTest>

using namespace tallowick;

namespace
{

Field tableColumn(const std::string &name, bool primary = false)
{
    Field field;
    field.name = name;
    field.type = "253";
    field.primary = primary;
    field.database = "shop";
    field.table = "orders";
    field.originalName = name;
    return field;
}

Field computedColumn(const std::string &name)
{
    Field field;
    field.name = name;
    field.type = "8";
    return field;
}

// id (key), email, total (an expression), note; the second row has a NULL email.
QueryResult sampleResult()
{
    QueryResult result;
    result.fields = { tableColumn("id", true), tableColumn("email"), computedColumn("total"), tableColumn("note") };
    result.rows = {
        { "1", "ann@example.org", "3", "plain" },
        { "2", std::nullopt, "5", "" },
        { "3", "cy@example.org", std::nullopt, "say \"hi\"" },
    };
    return result;
}

} // namespace

// The table model behind the result grid: what each cell and header says, and which cells may
// be edited. The widget behaviour is in TestNativeGrid.
class TestResultTableModel final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cellRoles_data();
    void cellRoles();
    void headerTexts_data();
    void headerTexts();
    void editableFlags_data();
    void editableFlags();
    void outOfRangeCellsAreEmpty();
    void reloadResetsAndSameRowsDoNot();
    void changedFieldMetadataUpdatesHeaders();
};

void TestResultTableModel::cellRoles_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("display");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<bool>("faint");
    QTest::addColumn<QString>("accessible");
    QTest::newRow("value") << 0 << 1 << "ann@example.org"
                           << "ann@example.org" << false << "email, row 1";
    QTest::newRow("NULL") << 1 << 1 << "NULL"
                          << "SQL NULL" << true << "email, row 2";
    QTest::newRow("empty string is not NULL") << 1 << 3 << ""
                                              << "" << false << "note, row 2";
    QTest::newRow("NULL in a computed column") << 2 << 2 << "NULL"
                                               << "SQL NULL" << true << "total, row 3";
    QTest::newRow("quotes kept") << 2 << 3 << "say \"hi\""
                                 << "say \"hi\"" << false << "note, row 3";
}

void TestResultTableModel::cellRoles()
{
    QFETCH(int, row);
    QFETCH(int, field);
    QFETCH(QString, display);
    QFETCH(QString, toolTip);
    QFETCH(bool, faint);
    QFETCH(QString, accessible);

    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.reload(sampleResult(), true);
    const QModelIndex index = model.index(row, field);
    QCOMPARE(index.data(Qt::DisplayRole).toString(), display);
    QCOMPARE(index.data(Qt::EditRole).toString(), display);
    QCOMPARE(model.cellText(row, field), display);
    QCOMPARE(index.data(Qt::ToolTipRole).toString(), toolTip);
    QCOMPARE(index.data(Qt::AccessibleTextRole).toString(), accessible);
    const QVariant foreground = index.data(Qt::ForegroundRole);
    if (faint) {
        QCOMPARE(foreground.value<QColor>(), QGuiApplication::palette().color(QPalette::PlaceholderText));
    } else {
        QVERIFY(!foreground.isValid()); // the normal text colour
    }
}

void TestResultTableModel::headerTexts_data()
{
    QTest::addColumn<Field>("field");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("toolTip");

    Field createdAt = tableColumn("created_at");
    QTest::newRow("table column") << createdAt << "created_at"
                                  << "shop.orders.created_at";
    QTest::newRow("primary key") << tableColumn("id", true) << "\u26BF id"
                                 << "shop.orders.id";
    Field aliased = tableColumn("placed");
    aliased.originalName = "created_at";
    aliased.sourceAlias = "o";
    QTest::newRow("alias shows the source column") << aliased << "placed"
                                                   << "shop.orders.created_at";
    QTest::newRow("expression") << computedColumn("COUNT(*)") << "COUNT(*)"
                                << "Calculated or metadata column";
    Field binary = tableColumn("photo");
    binary.binary = true;
    QTest::newRow("binary column") << binary << "photo"
                                   << "Calculated or metadata column";
    Field noSource = tableColumn("label");
    noSource.originalName.clear();
    QTest::newRow("no original name") << noSource << "label"
                                      << "Calculated or metadata column";
    Field computedKey = computedColumn("k");
    computedKey.primary = true;
    QTest::newRow("key sign without a source table") << computedKey << "\u26BF k"
                                                     << "Calculated or metadata column";
}

void TestResultTableModel::headerTexts()
{
    QFETCH(Field, field);
    QFETCH(QString, title);
    QFETCH(QString, toolTip);

    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QueryResult result;
    result.fields = { field };
    model.reload(result, true);
    QCOMPARE(model.headerData(0, Qt::Horizontal, Qt::DisplayRole).toString(), title);
    QCOMPARE(model.headerData(0, Qt::Horizontal, Qt::ToolTipRole).toString(), toolTip);
}

void TestResultTableModel::editableFlags_data()
{
    QTest::addColumn<bool>("gridEditable");
    QTest::addColumn<int>("field");
    QTest::addColumn<bool>("editable");
    QTest::newRow("table column, editable grid") << true << 1 << true;
    QTest::newRow("expression, editable grid") << true << 2 << false;
    QTest::newRow("table column, read-only grid") << false << 1 << false;
    QTest::newRow("expression, read-only grid") << false << 2 << false;
}

void TestResultTableModel::editableFlags()
{
    QFETCH(bool, gridEditable);
    QFETCH(int, field);
    QFETCH(bool, editable);

    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.reload(sampleResult(), gridEditable);
    for (int row = 0; row < model.rowCount(); ++row) {
        const Qt::ItemFlags flags = model.index(row, field).flags();
        QCOMPARE(flags.testFlag(Qt::ItemIsEditable), editable);
        QVERIFY(flags.testFlag(Qt::ItemIsSelectable)); // read-only text can still be selected and copied
    }
    QCOMPARE(model.isFieldEditable(field), editable);
}

void TestResultTableModel::outOfRangeCellsAreEmpty()
{
    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.reload(sampleResult(), true);
    QVERIFY(!model.contains(3, 0));
    QVERIFY(!model.contains(0, 4));
    QVERIFY(!model.contains(-1, 0));
    QVERIFY(model.cellText(3, 0).isEmpty());
    QVERIFY(!model.isFieldEditable(4));
    QVERIFY(!model.isFieldEditable(-1));
    QVERIFY(!model.headerData(4, Qt::Horizontal).isValid());
}

void TestResultTableModel::reloadResetsAndSameRowsDoNot()
{
    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    const QueryResult result = sampleResult();
    model.reload(result, true);
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy headers(&model, &QAbstractItemModel::headerDataChanged);
    QueryResult later = result;
    later.elapsed = 0.5;
    model.adoptSameRows(later);
    QCOMPARE(resets.count(), 0);
    QCOMPARE(headers.count(), 0);
    QCOMPARE(model.result().elapsed, 0.5);

    QueryResult fewer = result;
    fewer.rows.pop_back();
    model.reload(fewer, true);
    QCOMPARE(resets.count(), 1);
    QCOMPARE(model.rowCount(), 2);
}

void TestResultTableModel::changedFieldMetadataUpdatesHeaders()
{
    ResultTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    const QueryResult result = sampleResult();
    model.reload(result, true);
    QSignalSpy headers(&model, &QAbstractItemModel::headerDataChanged);
    QueryResult relabelled = result;
    relabelled.fields[1].primary = true;
    model.adoptSameRows(relabelled);
    QCOMPARE(headers.count(), 1);
    QCOMPARE(model.headerData(1, Qt::Horizontal).toString(), QStringLiteral("\u26BF email"));
}

QTEST_MAIN(TestResultTableModel)
#include "TestResultTableModel.moc"
