#include "ui/NativeGrid.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace tallowick;

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
        { "4", "dee@example.org", "9", "abc" },
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

struct Edit {
    std::int64_t row;
    std::int64_t column;
    Cell value;
    bool operator==(const Edit &) const = default;
};

// Failure messages list the edits the grid sent.
char *toString(const std::vector<Edit> &edits)
{
    std::string text = "[";
    for (const Edit &edit : edits) {
        text += " (" + std::to_string(edit.row) + ", " + std::to_string(edit.column) + ", "
            + (edit.value ? "\"" + *edit.value + "\"" : std::string("NULL")) + ")";
    }
    text += " ]";
    return qstrdup(text.c_str());
}

// A grid with a model checker and a record of everything it reported to the host.
struct GridFixture {
    NativeGrid grid;
    QAbstractItemModelTester tester { grid.model(), QAbstractItemModelTester::FailureReportingMode::QtTest };
    std::vector<Edit> edits;
    std::vector<std::int64_t> selections;
    std::vector<std::string> sorts;

    explicit GridFixture(const QueryResult &result = sampleResult(), bool editable = true)
    {
        QObject::connect(
            &grid, &NativeGrid::cellEdited, &grid, [this](std::int64_t row, std::int64_t column, const Cell &value) {
                edits.push_back({ row, column, value });
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

    void clickRow(int row)
    {
        QTest::mouseClick(grid.viewport(), Qt::LeftButton, {}, grid.visualRect(index(row, idField)).center());
    }

    void doubleClick(const QModelIndex &cell)
    {
        const QPoint at = grid.visualRect(cell).center();
        QTest::mouseClick(grid.viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(grid.viewport(), Qt::LeftButton, {}, at);
    }

    QLineEdit *editorAt(const QModelIndex &cell) const { return qobject_cast<QLineEdit *>(grid.indexWidget(cell)); }

    QStringList menuTexts(int row, int field)
    {
        QStringList texts;
        const std::unique_ptr<QMenu> menu = grid.contextMenuFor(row, field);
        if (menu) {
            for (const QAction *action : menu->actions()) {
                texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
            }
        }
        return texts;
    }

    bool triggerMenuItem(int row, int field, const QString &text)
    {
        const std::unique_ptr<QMenu> menu = grid.contextMenuFor(row, field);
        if (!menu) {
            return false;
        }
        for (QAction *action : menu->actions()) {
            if (action->text() == text) {
                action->trigger();
                return true;
            }
        }
        return false;
    }
};

const QStringList copyItems { QStringLiteral("Copy cell"), QStringLiteral("Copy row as CSV") };
const QStringList editItems {
    QStringLiteral("Copy cell"), QStringLiteral("Copy row as CSV"), QStringLiteral("-"), QStringLiteral("Set to NULL")
};

} // namespace

// The result grid as the user meets it: editing, menus, copying, header clicks, and the host's
// refreshes that must not undo the user's column layout or selection.
class TestNativeGrid final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnTitlesAndWidths_data();
    void columnTitlesAndWidths();
    void rowsHaveTheFixedHeight();
    void editingSendsChangedText_data();
    void editingSendsChangedText();
    void readOnlyCellsOfferNoEdit_data();
    void readOnlyCellsOfferNoEdit();
    void setToNullSendsNull();
    void copying_data();
    void copying();
    void rightClickSelectsRowAndActsOnFieldUnderPointer_data();
    void rightClickSelectsRowAndActsOnFieldUnderPointer();
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
    void hostEchoingSelectionSettles_data();
    void hostEchoingSelectionSettles();
};

void TestNativeGrid::columnTitlesAndWidths_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("primary");
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("width");
    QTest::newRow("id, raised to the floor") << "id" << false << "id" << 140;
    QTest::newRow("key sign not counted") << "id" << true << "\u26BF id" << 140;
    QTest::newRow("12 characters, just above the floor") << "shipping_fee" << false << "shipping_fee" << 141;
    QTest::newRow("20 characters") << "customer_postal_code" << false << "customer_postal_code" << 205;
    QTest::newRow("31 characters, just below the cap")
        << QString(31, QLatin1Char('c')) << false << QString(31, QLatin1Char('c')) << 293;
    QTest::newRow("40 characters, capped")
        << "a_column_name_that_is_forty_chars_long_x" << false << "a_column_name_that_is_forty_chars_long_x" << 300;
    // 15 characters but 19 bytes: counted as the user sees them.
    QTest::newRow("accented name") << "größe_gewicht_ä" << false << "größe_gewicht_ä" << 165;
}

void TestNativeGrid::columnTitlesAndWidths()
{
    QFETCH(QString, name);
    QFETCH(bool, primary);
    QFETCH(QString, title);
    QFETCH(int, width);

    QueryResult result;
    result.fields = { tableColumn("first"), tableColumn(name.toStdString(), primary) };
    result.rows = { { "1", "2" } };
    GridFixture fixture(result);
    QCOMPARE(fixture.grid.model()->headerData(1, Qt::Horizontal).toString(), title);
    QCOMPARE(fixture.grid.horizontalHeader()->sectionSize(1), width);
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
    QTest::newRow("NULL cell left unchanged") << "" << true << false << "" << false << "";
    QTest::newRow("NULL cell retyped as NULL") << "" << true << false << "NULL" << false << "";
    QTest::newRow("NULL cell given a value") << "" << true << false << "7" << true << "7";
    QTest::newRow("empty value left unchanged") << "" << false << false << "" << false << "";
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
    QCOMPARE(fixture.grid.horizontalHeader()->visualIndex(noteField), 0);

    const QModelIndex cell = fixture.index(row, noteField);
    fixture.doubleClick(cell);
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

    const std::vector<Edit> none;
    const std::vector<Edit> one { { row, noteField, Cell(expected.toStdString()) } };
    QCOMPARE(fixture.edits, sent ? one : none);
    // The grid waits for the host's new result instead of showing the edit itself.
    QCOMPARE(fixture.index(row, noteField).data().toString(), originalIsNull ? QStringLiteral("NULL") : originalText);
}

void TestNativeGrid::readOnlyCellsOfferNoEdit_data()
{
    QTest::addColumn<bool>("gridEditable");
    QTest::addColumn<int>("field");
    QTest::addColumn<bool>("editable");
    QTest::newRow("table column in an editable grid") << true << emailField << true;
    QTest::newRow("expression in an editable grid") << true << totalField << false;
    QTest::newRow("table column in a read-only grid") << false << emailField << false;
}

void TestNativeGrid::readOnlyCellsOfferNoEdit()
{
    QFETCH(bool, gridEditable);
    QFETCH(int, field);
    QFETCH(bool, editable);

    GridFixture fixture(sampleResult(), gridEditable);
    QVERIFY(fixture.show());
    fixture.moveToFront(field);
    const QModelIndex cell = fixture.index(0, field);
    fixture.doubleClick(cell);
    QCOMPARE(fixture.editorAt(cell) != nullptr, editable);
    QCOMPARE(fixture.menuTexts(0, field), editable ? editItems : copyItems);
}

void TestNativeGrid::setToNullSendsNull()
{
    GridFixture fixture;
    QVERIFY(fixture.triggerMenuItem(3, noteField, QStringLiteral("Set to NULL")));
    const std::vector<Edit> expected { { 3, noteField, std::nullopt } };
    QCOMPARE(fixture.edits, expected);
    QCOMPARE(fixture.grid.result().rows[3][noteField], Cell("abc")); // unchanged until the host reloads
}

void TestNativeGrid::copying_data()
{
    QTest::addColumn<QueryResult>("result");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("clipboard");

    const QueryResult sample = sampleResult();
    QTest::newRow("cell") << sample << 0 << emailField << "Copy cell"
                          << "ann@example.org";
    QTest::newRow("NULL cell") << sample << 1 << emailField << "Copy cell"
                               << "NULL";
    QTest::newRow("cell of an expression") << sample << 1 << totalField << "Copy cell"
                                           << "5";
    QTest::newRow("row with comma and NULL") << sample << 1 << idField << "Copy row as CSV"
                                             << "\"2\",\\N,\"5\",\"a,b\"\r\n";
    QTest::newRow("row with quote and NULL") << sample << 2 << noteField << "Copy row as CSV"
                                             << "\"3\",\"cy@example.org\",\\N,\"say \"\"hi\"\"\"\r\n";
    QueryResult oddNames;
    oddNames.fields = { computedColumn("a\r\nb"), computedColumn("c") };
    oddNames.rows = { { "x", "" } };
    QTest::newRow("column name holding a line break") << oddNames << 0 << 1 << "Copy row as CSV"
                                                      << "\"x\",\"\"\r\n";
    QueryResult multiLine;
    multiLine.fields = { tableColumn("text") };
    multiLine.rows = { { "one, two\r\nthree" } };
    QTest::newRow("value holding a line break") << multiLine << 0 << 0 << "Copy row as CSV"
                                                << "\"one, two\r\nthree\"\r\n";
}

void TestNativeGrid::copying()
{
    QFETCH(QueryResult, result);
    QFETCH(int, row);
    QFETCH(int, field);
    QFETCH(QString, item);
    QFETCH(QString, clipboard);

    GridFixture fixture(result);
    QGuiApplication::clipboard()->setText(QStringLiteral("left over"));
    QVERIFY(fixture.triggerMenuItem(row, field, item));
    QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
}

void TestNativeGrid::rightClickSelectsRowAndActsOnFieldUnderPointer_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<QStringList>("items");
    QTest::newRow("expression moved to the front") << totalField << copyItems;
    QTest::newRow("table column moved to the front") << noteField << editItems;
}

void TestNativeGrid::rightClickSelectsRowAndActsOnFieldUnderPointer()
{
    QFETCH(int, field);
    QFETCH(QStringList, items);

    GridFixture fixture;
    QVERIFY(fixture.show());
    fixture.moveToFront(field);
    const QPoint at = fixture.grid.visualRect(fixture.index(2, field)).center();
    QCOMPARE(fixture.grid.columnAt(at.x()), field);

    QStringList shown;
    bool menuSeen = false;
    QTimer::singleShot(0, &fixture.grid, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (!menu) {
            return;
        }
        menuSeen = true;
        for (const QAction *action : menu->actions()) {
            shown << (action->isSeparator() ? QStringLiteral("-") : action->text());
        }
        menu->close();
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, at, fixture.grid.viewport()->mapToGlobal(at));
    QApplication::sendEvent(fixture.grid.viewport(), &event);

    QVERIFY(menuSeen);
    QCOMPARE(shown, items);
    QCOMPARE(fixture.grid.selectedRow(), 2);
    QCOMPARE(fixture.selections, std::vector<std::int64_t> { 2 });
}

void TestNativeGrid::headerClickAfterMovingColumns_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("name");
    QTest::newRow("key column") << idField << "id";
    QTest::newRow("expression") << totalField << "total";
    QTest::newRow("last column") << noteField << "note";
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
    QCOMPARE(header->logicalIndex(0), noteField);
    QCOMPARE(header->logicalIndex(3), idField);

    QTest::mouseClick(header->viewport(),
        Qt::LeftButton,
        {},
        QPoint(header->sectionViewportPosition(field) + 20, header->height() / 2));
    QCOMPARE(fixture.sorts, std::vector<std::string> { name.toStdString() });
    QVERIFY(!header->isSortIndicatorShown());
    QCOMPARE(fixture.grid.selectedRow(), -1); // a header click sorts, it does not select
}

void TestNativeGrid::refreshDecidesWhatToReload_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("reloads");
    QTest::newRow("same result") << "none" << false;
    QTest::newRow("same result, new statistics") << "elapsed" << false;
    QTest::newRow("same id, a row changed") << "row" << true;
    QTest::newRow("same result, editable flag flipped") << "editable" << true;
    QTest::newRow("new id, same rows") << "id" << true;
    QTest::newRow("same columns, fewer rows") << "fewer" << true;
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
    if (change == QLatin1String("elapsed")) {
        next.elapsed = 2.5;
    } else if (change == QLatin1String("row")) {
        next.rows[0][emailField] = "changed@example.org";
    } else if (change == QLatin1String("editable")) {
        editable = false;
    } else if (change == QLatin1String("id")) {
        next.id = QUuid::createUuid();
    } else if (change == QLatin1String("fewer")) {
        next = sampleResultWithRows(3);
    }

    QSignalSpy resets(fixture.grid.model(), &QAbstractItemModel::modelReset);
    QSignalSpy layouts(fixture.grid.model(), &QAbstractItemModel::layoutChanged);
    QSignalSpy removed(fixture.grid.model(), &QAbstractItemModel::rowsRemoved);
    fixture.grid.refresh(next, editable, -1);

    QCOMPARE(resets.count(), reloads ? 1 : 0);
    QCOMPARE(layouts.count(), 0);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(fixture.grid.result(), next);
    QCOMPARE(fixture.grid.model()->index(0, emailField).data().toString(),
        QString::fromStdString(*next.rows[0][emailField]));
    QCOMPARE(fixture.grid.model()->index(0, emailField).flags().testFlag(Qt::ItemIsEditable), editable);
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
    QCOMPARE(header->sectionSize(0), 140);

    // Back to the first query's columns after a user change: the layout is rebuilt again.
    header->resizeSection(1, 260);
    fixture.grid.refresh(sampleResult(), true, -1);
    QCOMPARE(header->count(), 4);
    QCOMPARE(header->sectionSize(emailField), 140);
    QCOMPARE(header->visualIndex(noteField), noteField);

    QueryResult wider = sampleResult();
    wider.fields.push_back(tableColumn("extra"));
    for (std::size_t row = 0; row < wider.rows.size(); ++row) {
        wider.rows[row].push_back("e");
    }
    header->resizeSection(emailField, 250);
    fixture.moveToFront(totalField);
    fixture.grid.refresh(wider, true, -1);
    QCOMPARE(header->count(), 5);
    QCOMPARE(header->sectionSize(emailField), 140);
    QCOMPARE(header->visualIndex(totalField), totalField);
    QCOMPARE(header->minimumSectionSize(), 85);
}

void TestNativeGrid::openEditorSurvivesUnchangedRefresh()
{
    const QueryResult result = sampleResult();
    GridFixture fixture(result);
    QVERIFY(fixture.show());
    const QModelIndex cell = fixture.index(0, emailField);
    fixture.doubleClick(cell);
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
    QVERIFY(!fixture.editorAt(cell));
    const std::vector<Edit> expected { { 0, emailField, "bo@example.org" } };
    QCOMPARE(fixture.edits, expected);
}

void TestNativeGrid::staleMenuActionsAreIgnored()
{
    GridFixture fixture;
    const std::unique_ptr<QMenu> menu = fixture.grid.contextMenuFor(3, noteField);
    QVERIFY(menu);
    QVERIFY(!fixture.grid.contextMenuFor(4, noteField));
    QVERIFY(!fixture.grid.contextMenuFor(0, 4));
    QVERIFY(!fixture.grid.contextMenuFor(-1, 0));

    // The result shrinks while the menu is open; the row the menu was made for is gone.
    fixture.grid.refresh(sampleResultWithRows(2), true, -1);
    QGuiApplication::clipboard()->setText(QStringLiteral("kept"));
    for (QAction *action : menu->actions()) {
        action->trigger();
    }
    QVERIFY(fixture.edits.empty());
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("kept"));
}

void TestNativeGrid::selectionFollowsHost_data()
{
    QTest::addColumn<int>("userRow");
    QTest::addColumn<int>("newRowCount"); // -1: the host hands in the same result again
    QTest::addColumn<int>("hostRow");
    QTest::addColumn<int>("expected");

    QTest::newRow("host selects a row") << -1 << -1 << 2 << 2;
    QTest::newRow("host moves the selection") << 0 << -1 << 3 << 3;
    QTest::newRow("out of range keeps the user's row") << 1 << -1 << 7 << 1;
    QTest::newRow("minus one keeps the user's row") << 1 << -1 << -1 << 1;
    QTest::newRow("reloaded rows keep the user's row") << 1 << 6 << -1 << 1;
    QTest::newRow("host selects in reloaded rows") << 1 << 6 << 5 << 5;
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
    if (userRow >= 0) {
        fixture.clickRow(userRow);
    }
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

void TestNativeGrid::hostEchoingSelectionSettles_data()
{
    QTest::addColumn<bool>("freshResult");
    QTest::newRow("host hands back the same result") << false;
    QTest::newRow("host hands in a new result each time") << true;
}

void TestNativeGrid::hostEchoingSelectionSettles()
{
    QFETCH(bool, freshResult);

    // A host that stores the selected row and refreshes the grid at once, as the session
    // workspace does. Each user click must be reported once, not bounce back and forth.
    GridFixture fixture;
    QVERIFY(fixture.show());
    int refreshes = 0;
    QObject::connect(&fixture.grid, &NativeGrid::rowSelected, &fixture.grid, [&](std::int64_t row) {
        ++refreshes;
        QVERIFY(refreshes < 10);
        QueryResult next = fixture.grid.result();
        if (freshResult) {
            next.id = QUuid::createUuid();
        }
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
