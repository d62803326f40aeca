#include "support/WidgetDriving.h"
#include "ui/NativeGrid.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLineEdit>
#include <QPalette>
#include <QSignalSpy>
#include <QTimer>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The fields of the sample result; total is an expression, never editable.
enum { idField, emailField, totalField, noteField };

Field column(const std::string &name, bool primary = false, const std::string &table = "orders")
{
    Field field;
    field.name = name;
    field.type = table.empty() ? "8" : "253";
    field.primary = primary;
    field.database = table.empty() ? "" : "shop";
    field.table = table;
    field.originalName = table.empty() ? "" : name;
    return field;
}

// With `count`, the same columns with other rows, as a re-run of the query would bring.
QueryResult sample(int count = -1)
{
    QueryResult result;
    result.fields = { column("id", true), column("email"), column("total", false, ""), column("note") };
    result.rows = { { "1", "ann@example.org", "3", "plain" },
        { "2", std::nullopt, "5", "a,b" },
        { "3", "cy@example.org", std::nullopt, "say \"hi\"" },
        { "4", "dee@example.org", "9", "" } };
    if (count >= 0) {
        result.rows.clear();
        for (int i = 10; i < count + 10; ++i) {
            const std::string n = std::to_string(i);
            result.rows.push_back({ n, "user" + n + "@example.org", n, "note " + n });
        }
    }
    return result;
}

// A shown grid under Qt's model checker that records what it tells the host. Edits read
// "row,field,value" with SQL NULL as <null>.
struct GridFixture {
    NativeGrid grid;
    QAbstractItemModelTester tester { grid.model(), QAbstractItemModelTester::FailureReportingMode::QtTest };
    QStringList edits;
    std::vector<std::int64_t> selections;
    std::vector<std::string> sorts;

    explicit GridFixture(const QueryResult &result = sample(), bool editable = true)
    {
        QObject::connect(&grid, &NativeGrid::cellEdited, &grid, [this](std::int64_t r, std::int64_t f, const Cell &c) {
            edits << QStringLiteral("%1,%2,%3").arg(r).arg(f).arg(c ? QString::fromStdString(*c) : "<null>");
        });
        QObject::connect(&grid, &NativeGrid::rowSelected, &grid, [this](std::int64_t r) { selections.push_back(r); });
        QObject::connect(
            &grid, &NativeGrid::sortRequested, &grid, [this](const std::string &n) { sorts.push_back(n); });
        grid.resize(1000, 400);
        grid.refresh(result, editable, -1);
        grid.show();
        QVERIFY(QTest::qWaitForWindowExposed(&grid));
    }

    QModelIndex index(int row, int field) const { return grid.model()->index(row, field); }
    QHeaderView *header() const { return grid.horizontalHeader(); }
    // Drags a column to the front, as a user reordering the header would.
    void moveToFront(int field) { header()->moveSection(header()->visualIndex(field), 0); }
    void clickRow(int row) { clickCell(grid, index(row, idField)); }
    QLineEdit *editorAt(const QModelIndex &cell) const { return qobject_cast<QLineEdit *>(grid.indexWidget(cell)); }
};

} // namespace

// The result grid as the user meets it: what cells and headers say, editing, menus, copying,
// header clicks, and the host's refreshes that must not undo the user's layout or selection.
class TestNativeGrid final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void headersAndCells()
    {
        // Title and tool tip; a primary key is marked.
        QueryResult named;
        named.fields = { column("id", true), column("größe"), column("COUNT(*)", false, "") };
        named.rows = { { "1", "2", "3" } };
        GridFixture headers(named);
        QStringList shown;
        for (int field = 0; field < 3; ++field) {
            const QAbstractItemModel *model = headers.grid.model();
            shown << model->headerData(field, Qt::Horizontal).toString() + u'|'
                    + model->headerData(field, Qt::Horizontal, Qt::ToolTipRole).toString();
        }
        QCOMPARE(shown,
            (QStringList {
                "\u26BF id|shop.orders.id", "größe|shop.orders.größe", "COUNT(*)|Calculated or metadata column" }));

        // Display, edit text, tool tip and accessible text; NULL is faint, the rest normal text.
        GridFixture fixture;
        const auto roles = [&fixture](int row, int field) {
            const QModelIndex cell = fixture.index(row, field);
            QStringList texts;
            for (const int role : { Qt::DisplayRole, Qt::EditRole, Qt::ToolTipRole, Qt::AccessibleTextRole }) {
                texts << cell.data(role).toString();
            }
            const QColor faint = QGuiApplication::palette().color(QPalette::PlaceholderText);
            return texts << (cell.data(Qt::ForegroundRole).value<QColor>() == faint ? "faint" : "");
        };
        QCOMPARE(roles(0, emailField).join(u'|'), "ann@example.org|ann@example.org|ann@example.org|email, row 1|");
        QCOMPARE(roles(1, emailField).join(u'|'), "NULL|NULL|SQL NULL|email, row 2|faint");
        QCOMPARE(roles(3, noteField).join(u'|'), "|||note, row 4|"); // the empty string is not NULL
    }

    // A new set of columns is sized to its titles and its first rows' values, within bounds: no
    // title or short value is cut, a long text does not take the screen.
    void columnsFitTheirTitlesAndValues()
    {
        const std::string longTitle = "a_column_name_that_is_forty_chars_long_x";
        QueryResult result;
        result.fields = { column("id", true), column("ordered_at"), column(longTitle), column("note") };
        for (int row = 1; row <= 60; ++row) {
            result.rows.push_back({ std::to_string(row), "2025-03-01 11:22:33", "x", std::string(500, 'w') });
        }
        GridFixture fixture(result);
        const auto width = [&fixture](int field) { return fixture.header()->sectionSize(field); };
        for (int field = 0; field < 4; ++field) {
            QVERIFY2(width(field) >= 60 && width(field) <= 360, qPrintable(QString::number(width(field))));
        }
        QVERIFY2(width(0) < width(1), qPrintable(QStringLiteral("%1 %2").arg(width(0)).arg(width(1))));
        const QFontMetrics cells(fixture.grid.font());
        QVERIFY(width(1) > cells.horizontalAdvance(QStringLiteral("2025-03-01 11:22:33")));
        const QFontMetrics titles(fixture.header()->font());
        QVERIFY(width(2) > titles.horizontalAdvance(QString::fromStdString(longTitle)));
        QCOMPARE(width(3), 360);
    }

    // The host names the column the rows are sorted by; the mark follows the field, wherever the
    // user dragged it, and goes for a name the result lacks.
    void sortMarkFollowsTheHost()
    {
        GridFixture fixture;
        QVERIFY(!fixture.header()->isSortIndicatorShown());
        fixture.moveToFront(totalField);
        fixture.grid.showSortOrder("total", true);
        QVERIFY(fixture.header()->isSortIndicatorShown());
        QCOMPARE(fixture.header()->sortIndicatorSection(), int(totalField));
        QCOMPARE(fixture.header()->sortIndicatorOrder(), Qt::DescendingOrder);
        fixture.grid.showSortOrder("email", false);
        QCOMPARE(fixture.header()->sortIndicatorSection(), int(emailField));
        QCOMPARE(fixture.header()->sortIndicatorOrder(), Qt::AscendingOrder);
        fixture.grid.showSortOrder("missing", false);
        QVERIFY(!fixture.header()->isSortIndicatorShown());
    }

    void editingSendsChangedText()
    {
        const struct {
            Cell original;
            QString keys; // typed over the selected text; "\b" erases it
            QString sent; // empty: nothing was sent
        } cases[] = {
            { "abc", "xyz", "3,3,xyz" },
            { "abc", "", "" },
            { "abc", "\b", "3,3," }, // cleared sends the empty string
            { "abc", "NULL", "3,3,NULL" }, // typed NULL is text, not SQL NULL
            { std::nullopt, "NULL", "" }, // a NULL cell retyped as NULL is unchanged
            { std::nullopt, "7", "3,3,7" },
            // Longer than a line edit holds by default; an untouched long value must not come back cut.
            { std::string(40000, 'x'), "", "" },
        };
        for (const auto &test : cases) {
            QueryResult result = sample();
            result.rows[3][noteField] = test.original;
            GridFixture fixture(result);
            // The edited column now shows first on screen; the edit must still name its field.
            fixture.moveToFront(noteField);
            const QModelIndex cell = fixture.index(3, noteField);
            const QString shown = test.original ? QString::fromStdString(*test.original) : QStringLiteral("NULL");
            doubleClickCell(fixture.grid, cell);
            QLineEdit *editor = fixture.editorAt(cell);
            QVERIFY(editor);
            QCOMPARE(editor->text() + u'|' + editor->selectedText(), shown + u'|' + shown); // typing replaces it all
            QTest::keyClicks(editor, test.keys);
            // Hosts refresh on every session change; the same result must not cost the open edit.
            QueryResult same = fixture.grid.result();
            same.message = "4 rows";
            fixture.grid.refresh(same, true, 3);
            QCOMPARE(fixture.editorAt(cell), editor);
            QTest::keyClick(editor, Qt::Key_Return);
            QCoreApplication::processEvents(); // Enter commits through a queued call
            QVERIFY(!fixture.editorAt(cell));
            QCOMPARE(fixture.edits, test.sent.isEmpty() ? QStringList() : QStringList { test.sent });
            // The grid waits for the host's new result instead of showing the edit itself.
            QCOMPARE(cell.data().toString(), shown);
        }
    }

    // Header clicks, right-clicks and double-clicks on a column dragged to the front act on the
    // field under the pointer, not on the one that used to sit there.
    void clicksActOnTheFieldUnderThePointer()
    {
        const struct {
            bool gridEditable;
            int field;
            bool editable;
        } cases[] = { { true, noteField, true }, { true, totalField, false }, { false, noteField, false } };
        for (const auto &test : cases) {
            GridFixture fixture(sample(), test.gridEditable);
            fixture.moveToFront(test.field);
            const QHeaderView *header = fixture.header();
            QTest::mouseClick(
                header->viewport(), Qt::LeftButton, {}, { header->sectionViewportPosition(test.field) + 9, 9 });
            QCOMPARE(fixture.sorts, std::vector<std::string> { fixture.grid.result().fields[test.field].name });
            QCOMPARE(fixture.grid.selectedRow(), -1); // a header click sorts, it does not select
            const QModelIndex cell = fixture.index(2, test.field);
            const QPoint at = fixture.grid.visualRect(cell).center();
            QStringList shown;
            QTimer::singleShot(0, &fixture.grid, [&shown] {
                if (auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget())) {
                    shown = actionTexts(menu->actions());
                    menu->close();
                }
            });
            QContextMenuEvent event(QContextMenuEvent::Mouse, at, fixture.grid.viewport()->mapToGlobal(at));
            QApplication::sendEvent(fixture.grid.viewport(), &event);
            QCOMPARE(shown.join(u'|'),
                test.editable ? "Copy cell|Copy row as CSV|-|Set to NULL" : "Copy cell|Copy row as CSV");
            QCOMPARE(fixture.selections, std::vector<std::int64_t> { 2 }); // the right click selected the row
            doubleClickCell(fixture.grid, cell);
            QCOMPARE(fixture.editorAt(cell) != nullptr, test.editable);
            QVERIFY(cell.flags().testFlag(Qt::ItemIsSelectable)); // read-only text can still be copied
        }
    }

    void menuActions()
    {
        const struct {
            int row, field;
            QString item, clipboard, edit;
        } cases[] = {
            { 0, emailField, "Copy cell", "ann@example.org", "" },
            { 1, idField, "Copy row as CSV", "\"2\",\\N,\"5\",\"a,b\"\r\n", "" },
            { 3, noteField, "Set to NULL", "left over", "3,3,<null>" },
        };
        GridFixture fixture;
        const QueryResult before = fixture.grid.result();
        for (const auto &test : cases) {
            QGuiApplication::clipboard()->setText(QStringLiteral("left over"));
            const std::unique_ptr<QMenu> menu = fixture.grid.contextMenuFor(test.row, test.field);
            QAction *action = actionTitled(menu->actions(), test.item);
            QVERIFY(action);
            action->trigger();
            QCOMPARE(QGuiApplication::clipboard()->text(), test.clipboard);
            QCOMPARE(fixture.edits.join(u';'), test.edit);
        }
        QCOMPARE(fixture.grid.result(), before); // unchanged until the host reloads

        // The result shrinks while a menu is open: the row it was made for is gone.
        const std::unique_ptr<QMenu> menu = fixture.grid.contextMenuFor(3, noteField);
        QVERIFY(menu && !fixture.grid.contextMenuFor(4, noteField));
        fixture.grid.refresh(sample(2), true, -1);
        fixture.edits.clear();
        QGuiApplication::clipboard()->setText(QStringLiteral("kept"));
        for (QAction *action : menu->actions()) {
            action->trigger();
        }
        QVERIFY(fixture.edits.isEmpty());
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("kept"));
    }

    void refreshKeepsTheUsersLayoutAndSelection_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("reloads");
        QTest::newRow("same result") << "none" << false;
        QTest::newRow("same rows, a column now a key") << "key" << false;
        QTest::newRow("same id, a row changed") << "row" << true;
        QTest::newRow("same result, editable flag flipped") << "editable" << true;
        QTest::newRow("new id, same rows") << "id" << true;
        QTest::newRow("other columns: another query") << "columns" << true;
    }

    void refreshKeepsTheUsersLayoutAndSelection()
    {
        QFETCH(QString, change);
        QFETCH(bool, reloads);
        GridFixture fixture;
        fixture.header()->resizeSection(emailField, 222);
        fixture.moveToFront(noteField);
        fixture.clickRow(1);
        QueryResult next = fixture.grid.result();
        next.fields[emailField].primary = change == "key";
        next.rows[0][emailField] = change == "row" ? "changed@example.org" : "ann@example.org";
        next.id = change == "id" ? QUuid::createUuid() : next.id;
        if (change == "columns") { // the same number of columns, under other names
            next.fields
                = { column("sku", true), column("customer_postal_code"), column("qty"), column("q", false, "") };
        }
        QSignalSpy resets(fixture.grid.model(), &QAbstractItemModel::modelReset);
        QSignalSpy layouts(fixture.grid.model(), &QAbstractItemModel::layoutChanged);
        fixture.grid.refresh(next, change != "editable", -1);
        QCOMPARE(resets.count(), reloads ? 1 : 0);
        QCOMPARE(layouts.count(), 0);
        QCOMPARE(fixture.grid.result(), next);
        QCOMPARE(fixture.index(0, emailField).data().toString(), QString::fromStdString(*next.rows[0][emailField]));
        QCOMPARE(fixture.index(0, emailField).flags().testFlag(Qt::ItemIsEditable), change != "editable");
        // Without a reload the header still follows the new field metadata.
        const QString title = fixture.grid.model()->headerData(emailField, Qt::Horizontal).toString();
        QCOMPARE(title, change == "key" ? "\u26BF email" : change == "columns" ? "customer_postal_code" : "email");
        // The user's widths and order stay for the same columns; other columns start afresh.
        GridFixture fresh(next);
        QCOMPARE(fixture.header()->sectionSize(emailField),
            change == "columns" ? fresh.header()->sectionSize(emailField) : 222);
        QCOMPARE(fixture.header()->visualIndex(noteField), change == "columns" ? noteField : 0);
        // The host passed -1, which leaves the user's row alone.
        QCOMPARE(fixture.grid.selectedRow(), change == "columns" ? -1 : 1);
        QCOMPARE(fixture.selections, std::vector<std::int64_t> { 1 });
    }

    // The user's moves are reported; the host's are taken without being echoed back.
    void selectionFollowsUserAndHost()
    {
        GridFixture fixture;
        fixture.clickRow(2);
        fixture.grid.clearSelection();
        QCOMPARE(fixture.selections, (std::vector<std::int64_t> { 2, -1 }));
        fixture.clickRow(0);
        const struct {
            int rowCount, hostRow, expected; // rowCount -1: the same result again
        } steps[] = {
            { -1, 3, 3 }, // the host moves the selection
            { -1, 7, 3 }, // out of range keeps the row
            { 2, -1, -1 }, // the row is gone after a reload
            { 4, 1, 1 },
            { 0, 0, -1 }, // an empty result clears it; row 0 is ignored
        };
        for (const auto &step : steps) {
            const QueryResult same = fixture.grid.result();
            fixture.grid.refresh(step.rowCount < 0 ? same : sample(step.rowCount), true, step.hostRow);
            QCOMPARE(fixture.grid.selectedRow(), step.expected);
        }
        QCOMPARE(fixture.selections.back(), 0);

        // A host that stores the row and refreshes at once with a new result, as the session
        // workspace does: each click is reported once, not bounced back and forth.
        fixture.grid.refresh(sample(), true, -1);
        fixture.selections.clear();
        int refreshes = 0;
        QObject::connect(&fixture.grid, &NativeGrid::rowSelected, &fixture.grid, [&](std::int64_t row) {
            QVERIFY(++refreshes < 10);
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
};

QTEST_MAIN(TestNativeGrid)
#include "TestNativeGrid.moc"
