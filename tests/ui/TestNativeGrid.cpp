#include "support/WidgetDriving.h"
#include "ui/NativeGrid.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QClipboard>
#include <QColor>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPalette>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The columns of the sample result, by field index.
constexpr int idField = 0;
constexpr int emailField = 1;
constexpr int totalField = 2; // an expression, never editable
constexpr int noteField = 3;

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

QueryResult sampleResult()
{
    QueryResult result;
    result.fields = { tableColumn("id", true), tableColumn("email"), computedColumn("total"), tableColumn("note") };
    result.rows = {
        { "1", "ann@example.org", "3", "plain" },
        { "2", std::nullopt, "5", "a,b" },
        { "3", "cy@example.org", std::nullopt, "say \"hi\"" },
        { "4", "dee@example.org", "9", "" },
    };
    return result;
}

// The same columns with other rows, as a re-run of the same query would bring.
QueryResult sampleResultWithRows(std::size_t count)
{
    QueryResult result = sampleResult();
    result.rows.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const std::string n = std::to_string(i + 10);
        result.rows.push_back({ n, "user" + n + "@example.org", n, "note " + n });
    }
    return result;
}

// A grid with a model checker and a record of everything it reported to the host. Edits read
// "row,field,value" with SQL NULL as <null>, so a failure prints them.
struct GridFixture {
    NativeGrid grid;
    QAbstractItemModelTester tester { grid.model(), QAbstractItemModelTester::FailureReportingMode::QtTest };
    QStringList edits;
    std::vector<std::int64_t> selections;
    std::vector<std::string> sorts;

    explicit GridFixture(const QueryResult &result = sampleResult(), bool editable = true)
    {
        QObject::connect(
            &grid, &NativeGrid::cellEdited, &grid, [this](std::int64_t row, std::int64_t column, const Cell &value) {
                edits << QStringLiteral("%1,%2,%3")
                             .arg(row)
                             .arg(column)
                             .arg(value ? QString::fromStdString(*value) : QStringLiteral("<null>"));
            });
        QObject::connect(
            &grid, &NativeGrid::rowSelected, &grid, [this](std::int64_t row) { selections.push_back(row); });
        QObject::connect(
            &grid, &NativeGrid::sortRequested, &grid, [this](const std::string &name) { sorts.push_back(name); });
        grid.resize(1000, 400);
        grid.refresh(result, editable, -1);
    }

    [[nodiscard]] bool show()
    {
        grid.show();
        return QTest::qWaitForWindowExposed(&grid);
    }

    QModelIndex index(int row, int field) const { return grid.model()->index(row, field); }

    // Drags a column to the front, as a user reordering the header would.
    void moveToFront(int field)
    {
        QHeaderView *header = grid.horizontalHeader();
        header->moveSection(header->visualIndex(field), 0);
    }

    void clickRow(int row) { clickCell(grid, index(row, idField)); }

    QLineEdit *editorAt(const QModelIndex &cell) const { return qobject_cast<QLineEdit *>(grid.indexWidget(cell)); }

    bool triggerMenuItem(int row, int field, const QString &text)
    {
        const std::unique_ptr<QMenu> menu = grid.contextMenuFor(row, field);
        QAction *action = menu ? actionTitled(menu->actions(), text) : nullptr;
        if (action) {
            action->trigger();
        }
        return action != nullptr;
    }
};

const QStringList copyItems { QStringLiteral("Copy cell"), QStringLiteral("Copy row as CSV") };
const QStringList editItems {
    QStringLiteral("Copy cell"), QStringLiteral("Copy row as CSV"), QStringLiteral("-"), QStringLiteral("Set to NULL")
};

} // namespace

// The result grid and its model as the user meets them: what cells and headers say, editing,
// menus, copying, header clicks, and the host's refreshes that must not undo the user's column
// layout or selection. Every fixture runs Qt's model tester over the grid's model.
class TestNativeGrid final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnTitlesAndWidths_data();
    void columnTitlesAndWidths();
    void cellRoles_data();
    void cellRoles();
    void rowsHaveTheFixedHeight();
    void editingSendsChangedText_data();
    void editingSendsChangedText();
    void readOnlyCellsOfferNoEdit_data();
    void readOnlyCellsOfferNoEdit();
    void menuActions_data();
    void menuActions();
    void headerClickAfterMovingColumns_data();
    void headerClickAfterMovingColumns();
    void refreshDecidesWhatToReload_data();
    void refreshDecidesWhatToReload();
    void differentColumnsRestoreDefaultLayout();
    void openEditorSurvivesUnchangedRefresh();
    void staleMenuActionsAreIgnored();
    void selectionFollowsHost_data();
    void selectionFollowsHost();
    void userSelectionIsReported();
    void hostEchoingSelectionSettles();
};

void TestNativeGrid::columnTitlesAndWidths_data()
{
    QTest::addColumn<Field>("field");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<int>("width");
    const QString calculated = QStringLiteral("Calculated or metadata column");
    QTest::newRow("key sign not counted") << tableColumn("id", true) << "\u26BF id"
                                          << "shop.orders.id" << 140;
    QTest::newRow("20 characters") << tableColumn("customer_postal_code") << "customer_postal_code"
                                   << "shop.orders.customer_postal_code" << 205;
    const QString forty = QStringLiteral("a_column_name_that_is_forty_chars_long_x");
    QTest::newRow("40 characters, capped")
        << tableColumn(forty.toStdString()) << forty << QStringLiteral("shop.orders.") + forty << 300;
    // 15 characters but 19 bytes: counted as the user sees them.
    QTest::newRow("accented name") << tableColumn("größe_gewicht_ä") << "größe_gewicht_ä"
                                   << "shop.orders.größe_gewicht_ä" << 165;
    Field aliased = tableColumn("placed");
    aliased.originalName = "created_at";
    aliased.sourceAlias = "o";
    QTest::newRow("alias shows the source column") << aliased << "placed"
                                                   << "shop.orders.created_at" << 140;
    QTest::newRow("expression") << computedColumn("COUNT(*)") << "COUNT(*)" << calculated << 140;
}

void TestNativeGrid::columnTitlesAndWidths()
{
    QFETCH(Field, field);
    QFETCH(QString, title);
    QFETCH(QString, toolTip);
    QFETCH(int, width);

    QueryResult result;
    result.fields = { tableColumn("first"), field };
    result.rows = { { "1", "2" } };
    GridFixture fixture(result);
    QCOMPARE(fixture.grid.model()->headerData(1, Qt::Horizontal).toString(), title);
    QCOMPARE(fixture.grid.model()->headerData(1, Qt::Horizontal, Qt::ToolTipRole).toString(), toolTip);
    QCOMPARE(fixture.grid.horizontalHeader()->sectionSize(1), width);
}

void TestNativeGrid::cellRoles_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("display");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<bool>("faint");
    QTest::addColumn<QString>("accessible");
    QTest::newRow("value") << 0 << emailField << "ann@example.org"
                           << "ann@example.org" << false << "email, row 1";
    QTest::newRow("NULL") << 1 << emailField << "NULL"
                          << "SQL NULL" << true << "email, row 2";
    QTest::newRow("empty string is not NULL") << 3 << noteField << ""
                                              << "" << false << "note, row 4";
}

void TestNativeGrid::cellRoles()
{
    QFETCH(int, row);
    QFETCH(int, field);
    QFETCH(QString, display);
    QFETCH(QString, toolTip);
    QFETCH(bool, faint);
    QFETCH(QString, accessible);

    GridFixture fixture;
    const QModelIndex cell = fixture.index(row, field);
    QCOMPARE(cell.data(Qt::DisplayRole).toString(), display);
    QCOMPARE(cell.data(Qt::EditRole).toString(), display);
    QCOMPARE(cell.data(Qt::ToolTipRole).toString(), toolTip);
    QCOMPARE(cell.data(Qt::AccessibleTextRole).toString(), accessible);
    const QVariant foreground = cell.data(Qt::ForegroundRole);
    if (faint) {
        QCOMPARE(foreground.value<QColor>(), QGuiApplication::palette().color(QPalette::PlaceholderText));
    } else {
        QVERIFY(!foreground.isValid()); // the normal text colour
    }
}

void TestNativeGrid::rowsHaveTheFixedHeight()
{
    GridFixture fixture(sampleResultWithRows(50));
    QVERIFY(fixture.show());
    QCOMPARE(fixture.grid.rowHeight(0), 33);
    QCOMPARE(fixture.grid.rowViewportPosition(10) - fixture.grid.rowViewportPosition(0), 330);
}

void TestNativeGrid::editingSendsChangedText_data()
{
    QTest::addColumn<QString>("originalText");
    QTest::addColumn<bool>("originalIsNull");
    QTest::addColumn<bool>("erase");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("sent");
    QTest::addColumn<QString>("expected");

    QTest::newRow("value replaced") << "abc" << false << false << "xyz" << true << "xyz";
    QTest::newRow("left unchanged") << "abc" << false << false << "" << false << "";
    QTest::newRow("cleared sends the empty string") << "abc" << false << true << "" << true << "";
    QTest::newRow("typed NULL is text, not SQL NULL") << "abc" << false << false << "NULL" << true << "NULL";
    QTest::newRow("NULL cell retyped as NULL") << "" << true << false << "NULL" << false << "";
    QTest::newRow("NULL cell given a value") << "" << true << false << "7" << true << "7";
    // Longer than a line edit holds by default; an untouched long value must not come back cut.
    QTest::newRow("40000-character value left unchanged")
        << QString(40000, QLatin1Char('x')) << false << false << "" << false << "";
}

void TestNativeGrid::editingSendsChangedText()
{
    QFETCH(QString, originalText);
    QFETCH(bool, originalIsNull);
    QFETCH(bool, erase);
    QFETCH(QString, typed);
    QFETCH(bool, sent);
    QFETCH(QString, expected);

    QueryResult result = sampleResult();
    const int row = 2;
    result.rows[row][noteField] = originalIsNull ? Cell() : Cell(originalText.toStdString());
    GridFixture fixture(result);
    QVERIFY(fixture.show());
    // The edited column now shows first on screen; the edit must still name its field.
    fixture.moveToFront(noteField);

    const QModelIndex cell = fixture.index(row, noteField);
    doubleClickCell(fixture.grid, cell);
    QLineEdit *editor = fixture.editorAt(cell);
    QVERIFY(editor);
    QCOMPARE(editor->text(), originalIsNull ? QStringLiteral("NULL") : originalText);
    QCOMPARE(editor->selectedText(), editor->text()); // typing replaces the whole value
    if (erase) {
        QTest::keyClick(editor, Qt::Key_Backspace);
    }
    if (!typed.isEmpty()) {
        QTest::keyClicks(editor, typed);
    }
    QTest::keyClick(editor, Qt::Key_Return);
    QCoreApplication::processEvents(); // Enter commits through a queued call
    QVERIFY(!fixture.editorAt(cell));

    const QString edit = QStringLiteral("%1,%2,%3").arg(row).arg(noteField).arg(expected);
    QCOMPARE(fixture.edits, sent ? QStringList { edit } : QStringList());
    // The grid waits for the host's new result instead of showing the edit itself.
    QCOMPARE(fixture.index(row, noteField).data().toString(), originalIsNull ? QStringLiteral("NULL") : originalText);
}

void TestNativeGrid::readOnlyCellsOfferNoEdit_data()
{
    QTest::addColumn<bool>("gridEditable");
    QTest::addColumn<int>("field");
    QTest::addColumn<bool>("editable");
    QTest::newRow("table column in an editable grid") << true << noteField << true;
    QTest::newRow("expression in an editable grid") << true << totalField << false;
    QTest::newRow("table column in a read-only grid") << false << noteField << false;
}

// Double-click and right-click on a column dragged to the front: both must act on the field
// under the pointer, not on the one that used to sit there.
void TestNativeGrid::readOnlyCellsOfferNoEdit()
{
    QFETCH(bool, gridEditable);
    QFETCH(int, field);
    QFETCH(bool, editable);

    GridFixture fixture(sampleResult(), gridEditable);
    QVERIFY(fixture.show());
    fixture.moveToFront(field);
    const QModelIndex cell = fixture.index(2, field);
    const QPoint at = fixture.grid.visualRect(cell).center();
    QCOMPARE(fixture.grid.columnAt(at.x()), field);

    QStringList shown { QStringLiteral("(no menu)") };
    QTimer::singleShot(0, &fixture.grid, [&shown] {
        if (auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget())) {
            shown = actionTexts(menu->actions());
            menu->close();
        }
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, at, fixture.grid.viewport()->mapToGlobal(at));
    QApplication::sendEvent(fixture.grid.viewport(), &event);
    QCOMPARE(shown, editable ? editItems : copyItems);
    QCOMPARE(fixture.grid.selectedRow(), 2); // the right click selected the row
    QCOMPARE(fixture.selections, std::vector<std::int64_t> { 2 });

    doubleClickCell(fixture.grid, cell);
    QCOMPARE(fixture.editorAt(cell) != nullptr, editable);
    QVERIFY(cell.flags().testFlag(Qt::ItemIsSelectable)); // read-only text can still be copied
}

void TestNativeGrid::menuActions_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<QString>("edit");

    QTest::newRow("copy cell") << 0 << emailField << "Copy cell"
                               << "ann@example.org" << QString();
    QTest::newRow("row with comma and NULL") << 1 << idField << "Copy row as CSV"
                                             << "\"2\",\\N,\"5\",\"a,b\"\r\n"
                                             << QString();
    QTest::newRow("row with quote and NULL") << 2 << noteField << "Copy row as CSV"
                                             << "\"3\",\"cy@example.org\",\\N,\"say \"\"hi\"\"\"\r\n"
                                             << QString();
    QTest::newRow("Set to NULL") << 3 << noteField << "Set to NULL"
                                 << "left over"
                                 << "3,3,<null>";
}

void TestNativeGrid::menuActions()
{
    QFETCH(int, row);
    QFETCH(int, field);
    QFETCH(QString, item);
    QFETCH(QString, clipboard);
    QFETCH(QString, edit);

    const QueryResult sample = sampleResult();
    GridFixture fixture(sample);
    QGuiApplication::clipboard()->setText(QStringLiteral("left over"));
    QVERIFY(fixture.triggerMenuItem(row, field, item));
    QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
    QCOMPARE(fixture.edits, edit.isEmpty() ? QStringList() : QStringList { edit });
    QCOMPARE(fixture.grid.result(), sample); // unchanged until the host reloads
}

void TestNativeGrid::headerClickAfterMovingColumns_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("name");
    QTest::newRow("key column") << idField << "id";
    QTest::newRow("expression") << totalField << "total";
}

void TestNativeGrid::headerClickAfterMovingColumns()
{
    QFETCH(int, field);
    QFETCH(QString, name);

    GridFixture fixture;
    QVERIFY(fixture.show());
    // Reverse the order so that no field sits at its own position.
    fixture.moveToFront(emailField);
    fixture.moveToFront(totalField);
    fixture.moveToFront(noteField);
    QHeaderView *header = fixture.grid.horizontalHeader();
    QCOMPARE(header->logicalIndex(3), idField);

    QTest::mouseClick(header->viewport(),
        Qt::LeftButton,
        {},
        QPoint(header->sectionViewportPosition(field) + 20, header->height() / 2));
    QCOMPARE(fixture.sorts, std::vector<std::string> { name.toStdString() });
    QCOMPARE(fixture.grid.selectedRow(), -1); // a header click sorts, it does not select
}

void TestNativeGrid::refreshDecidesWhatToReload_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("reloads");
    QTest::newRow("same result") << "none" << false;
    QTest::newRow("same rows, a column now a key") << "key" << false;
    QTest::newRow("same id, a row changed") << "row" << true;
    QTest::newRow("same result, editable flag flipped") << "editable" << true;
    QTest::newRow("new id, same rows") << "id" << true;
}

void TestNativeGrid::refreshDecidesWhatToReload()
{
    QFETCH(QString, change);
    QFETCH(bool, reloads);

    const QueryResult first = sampleResult();
    GridFixture fixture(first);
    QVERIFY(fixture.show());
    QHeaderView *header = fixture.grid.horizontalHeader();
    header->resizeSection(emailField, 222);
    fixture.moveToFront(noteField);
    fixture.clickRow(1);
    QCOMPARE(fixture.selections, std::vector<std::int64_t> { 1 });

    QueryResult next = first;
    bool editable = true;
    if (change == QLatin1String("key")) {
        next.fields[emailField].primary = true;
    } else if (change == QLatin1String("row")) {
        next.rows[0][emailField] = "changed@example.org";
    } else if (change == QLatin1String("editable")) {
        editable = false;
    } else if (change == QLatin1String("id")) {
        next.id = QUuid::createUuid();
    }

    QSignalSpy resets(fixture.grid.model(), &QAbstractItemModel::modelReset);
    QSignalSpy layouts(fixture.grid.model(), &QAbstractItemModel::layoutChanged);
    fixture.grid.refresh(next, editable, -1);

    QCOMPARE(resets.count(), reloads ? 1 : 0);
    QCOMPARE(layouts.count(), 0);
    QCOMPARE(fixture.grid.result(), next);
    QCOMPARE(fixture.grid.model()->index(0, emailField).data().toString(),
        QString::fromStdString(*next.rows[0][emailField]));
    QCOMPARE(fixture.grid.model()->index(0, emailField).flags().testFlag(Qt::ItemIsEditable), editable);
    // Without a reload the header still follows the new field metadata.
    const QString emailTitle = fixture.grid.model()->headerData(emailField, Qt::Horizontal).toString();
    QCOMPARE(emailTitle, change == QLatin1String("key") ? QStringLiteral("\u26BF email") : QStringLiteral("email"));
    // The user's layout and row survive; the host passed -1, which leaves the selection alone.
    QCOMPARE(header->sectionSize(emailField), 222);
    QCOMPARE(header->visualIndex(noteField), 0);
    QCOMPARE(fixture.grid.selectedRow(), 1);
    QCOMPARE(fixture.selections, std::vector<std::int64_t> { 1 });
}

void TestNativeGrid::differentColumnsRestoreDefaultLayout()
{
    GridFixture fixture;
    QVERIFY(fixture.show());
    QHeaderView *header = fixture.grid.horizontalHeader();
    header->resizeSection(emailField, 222);
    fixture.moveToFront(noteField);

    // Same number of columns, different names: a different query, so nothing carries over.
    QueryResult other;
    other.fields = {
        tableColumn("sku", true), tableColumn("customer_postal_code"), tableColumn("qty"), computedColumn("price * qty")
    };
    other.rows = { { "a", "b", "1", "2" } };
    fixture.grid.refresh(other, true, -1);
    for (int field = 0; field < 4; ++field) {
        QCOMPARE(header->visualIndex(field), field);
    }
    QCOMPARE(header->sectionSize(1), 205);
}

void TestNativeGrid::openEditorSurvivesUnchangedRefresh()
{
    const QueryResult result = sampleResult();
    GridFixture fixture(result);
    QVERIFY(fixture.show());
    const QModelIndex cell = fixture.index(0, emailField);
    doubleClickCell(fixture.grid, cell);
    QLineEdit *editor = fixture.editorAt(cell);
    QVERIFY(editor);
    QTest::keyClicks(editor, QStringLiteral("bo@example.org"));

    // Hosts refresh on every session change; one that brings the same result must not cost
    // the user the edit in progress.
    QueryResult same = result;
    same.message = "4 rows";
    fixture.grid.refresh(same, true, 0);
    QCOMPARE(fixture.editorAt(cell), editor);
    QTest::keyClick(editor, Qt::Key_Return);
    QCoreApplication::processEvents(); // Enter commits through a queued call
    QCOMPARE(fixture.edits, QStringList { QStringLiteral("0,1,bo@example.org") });
}

void TestNativeGrid::staleMenuActionsAreIgnored()
{
    GridFixture fixture;
    const std::unique_ptr<QMenu> menu = fixture.grid.contextMenuFor(3, noteField);
    QVERIFY(menu);
    QVERIFY(!fixture.grid.contextMenuFor(4, noteField));

    // The result shrinks while the menu is open; the row the menu was made for is gone.
    fixture.grid.refresh(sampleResultWithRows(2), true, -1);
    QGuiApplication::clipboard()->setText(QStringLiteral("kept"));
    for (QAction *action : menu->actions()) {
        action->trigger();
    }
    QVERIFY(fixture.edits.isEmpty());
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("kept"));
}

void TestNativeGrid::selectionFollowsHost_data()
{
    // Minus one, with the same or reloaded rows, is in refreshDecidesWhatToReload.
    QTest::addColumn<int>("userRow");
    QTest::addColumn<int>("newRowCount"); // -1: the host hands in the same result again
    QTest::addColumn<int>("hostRow");
    QTest::addColumn<int>("expected");

    QTest::newRow("host moves the selection") << 0 << -1 << 3 << 3;
    QTest::newRow("out of range keeps the user's row") << 1 << -1 << 7 << 1;
    QTest::newRow("user's row gone after reload") << 3 << 2 << -1 << -1;
    QTest::newRow("empty result clears, row 0 ignored") << 1 << 0 << 0 << -1;
}

void TestNativeGrid::selectionFollowsHost()
{
    QFETCH(int, userRow);
    QFETCH(int, newRowCount);
    QFETCH(int, hostRow);
    QFETCH(int, expected);

    GridFixture fixture;
    QVERIFY(fixture.show());
    fixture.clickRow(userRow);
    QCOMPARE(fixture.grid.selectedRow(), userRow);
    const std::size_t reported = fixture.selections.size();

    const QueryResult next
        = newRowCount < 0 ? fixture.grid.result() : sampleResultWithRows(static_cast<std::size_t>(newRowCount));
    fixture.grid.refresh(next, true, hostRow);
    QCOMPARE(fixture.grid.selectedRow(), expected);
    // The host already knows the row it asked for; nothing is echoed back.
    QCOMPARE(fixture.selections.size(), reported);
}

void TestNativeGrid::userSelectionIsReported()
{
    GridFixture fixture;
    QVERIFY(fixture.show());
    fixture.clickRow(2);
    fixture.grid.setFocus();
    QTest::keyClick(&fixture.grid, Qt::Key_Down);
    QTest::keyClick(&fixture.grid, Qt::Key_Up);
    QTest::keyClick(&fixture.grid, Qt::Key_Up);
    QCOMPARE(fixture.selections, (std::vector<std::int64_t> { 2, 3, 2, 1 }));
    fixture.grid.clearSelection();
    QCOMPARE(fixture.selections.back(), -1);
}

void TestNativeGrid::hostEchoingSelectionSettles()
{
    // A host that stores the selected row and refreshes the grid at once with a new result, as
    // the session workspace does. Each user click must be reported once, not bounce back and forth.
    GridFixture fixture;
    QVERIFY(fixture.show());
    int refreshes = 0;
    QObject::connect(&fixture.grid, &NativeGrid::rowSelected, &fixture.grid, [&](std::int64_t row) {
        ++refreshes;
        QVERIFY(refreshes < 10);
        QueryResult next = fixture.grid.result();
        next.id = QUuid::createUuid();
        fixture.grid.refresh(next, true, row);
    });
    fixture.clickRow(1);
    fixture.clickRow(3);
    QCOMPARE(fixture.selections, (std::vector<std::int64_t> { 1, 3 }));
    QCOMPARE(refreshes, 2);
    QCOMPARE(fixture.grid.selectedRow(), 3);
}

QTEST_MAIN(TestNativeGrid)
#include "TestNativeGrid.moc"
