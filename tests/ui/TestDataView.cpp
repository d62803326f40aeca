#include "client/ClientThreadScope.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/DataView.h"
#include "ui/ManagementForm.h"
#include "ui/MetadataView.h"
#include "ui/NativeGrid.h"

#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

// The table browser driven like a user: real widgets, a real session on a scratch table of 450
// items, every tenth with a note, the disposable server.
struct Browser {
    ClientThreadScope clientThread; // the scratch database is set up from this thread
    SessionHarness harness;
    ScratchDatabase scratch { harness.server };
    std::unique_ptr<ServerSession> session = harness.session(harness.profile());
    std::unique_ptr<DataView> view = std::make_unique<DataView>(*session);

    ~Browser() { settle(*session); }

    bool open()
    {
        scratch.run("CREATE TABLE items (id INT PRIMARY KEY, name VARCHAR(50), note TEXT NULL)");
        scratch.run("INSERT INTO items SELECT seq, CONCAT('item ', seq), IF(seq % 10 = 0, 'tenth', NULL) "
                    "FROM seq_1_to_450");
        view->resize(1100, 600);
        view->show();
        if (!QTest::qWaitForWindowExposed(view.get()) || !connectAndSettle(*session)) {
            return false;
        }
        session->selectTable("items", scratch.name());
        return settle(*session);
    }

    QPushButton *button(const QString &text) const { return titled<QPushButton>(*view, text); }
    bool click(const QString &text)
    {
        QTest::mouseClick(button(text), Qt::LeftButton);
        return settle(*session);
    }
    // Double-clicks a cell of the name column, which opens its editor.
    QLineEdit *editName(int row) const
    {
        const QModelIndex cell = view->grid()->model()->index(row, 1);
        doubleClickCell(*view->grid(), cell);
        return qobject_cast<QLineEdit *>(view->grid()->indexWidget(cell));
    }
    Cell stored(int id) { return scratch.run("SELECT name FROM items WHERE id = " + std::to_string(id)).rows[0][0]; }
};

} // namespace

class TestDataView final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pagesFiltersAndSorts();
    void editsAndDeletesRows();
    void closingWithAnOpenEditorSendsNothing();
    void structureListPicksTheColumnToEdit();
};

void TestDataView::pagesFiltersAndSorts()
{
    Browser b;
    QVERIFY(b.open());
    QVERIFY(!b.button(QStringLiteral("‹ Previous"))->isEnabled() && b.button(QStringLiteral("Next ›"))->isEnabled());
    QVERIFY(b.click(QStringLiteral("Next ›")) && b.click(QStringLiteral("Next ›")));
    QCOMPARE(b.session->page(), qint64(2));
    QCOMPARE(b.view->grid()->model()->rowCount(), 50);
    // A short page is the last one.
    QVERIFY(b.button(QStringLiteral("‹ Previous"))->isEnabled() && !b.button(QStringLiteral("Next ›"))->isEnabled());
    // Another page size, a filter and a sort each start again at the first page.
    QVERIFY(choose(b.view->findChild<QComboBox *>(), QStringLiteral("500 rows")));
    QVERIFY(settle(*b.session));
    QCOMPARE(b.session->pageSize(), qint64(500));
    QCOMPARE(b.session->page(), qint64(0));
    b.session->setPage(1);
    auto *filter = b.view->findChild<QLineEdit *>();
    filter->setFocus();
    QTest::keyClicks(filter, "tenth");
    QTest::keyClick(filter, Qt::Key_Return);
    QVERIFY(settle(*b.session));
    QCOMPARE(b.session->filter(), std::string("tenth"));
    QCOMPARE(b.session->page(), qint64(0));
    // A header click sorts by that column; a second click on it turns the direction around.
    QHeaderView *header = b.view->grid()->horizontalHeader();
    for (const bool descending : { false, true }) {
        b.session->setPage(1);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, QPoint(header->sectionViewportPosition(1) + 20, 10));
        QVERIFY(settle(*b.session));
        QCOMPARE(b.session->sortColumn(), std::string("name"));
        QCOMPARE(b.session->sortDescending(), descending);
        QCOMPARE(b.session->page(), qint64(0));
    }
}

void TestDataView::editsAndDeletesRows()
{
    Browser b;
    QVERIFY(b.open());
    QLineEdit *editor = b.editName(2);
    QVERIFY(editor);
    QTest::keyClicks(editor, "renamed");
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(b.stored(3), Cell("renamed"));
    QVERIFY(settle(*b.session));
    QCOMPARE(b.view->grid()->result().rows[2][1], Cell("renamed")); // the page was read again

    QVERIFY(!b.button(QStringLiteral("Delete row…"))->isEnabled());
    clickCell(*b.view->grid(), b.view->grid()->model()->index(1, 0));
    QCOMPARE(b.session->selectedRow(), qint64(1));
    QVERIFY(b.click(QStringLiteral("Delete row…"))); // declined: the session's question was asked
    QCOMPARE(b.harness.prompts.asked.back().text, std::string("Delete this row?"));
}

void TestDataView::closingWithAnOpenEditorSendsNothing()
{
    Browser b;
    QVERIFY(b.open());
    QTest::keyClicks(b.editName(0), "abandoned");
    b.view.reset();
    QCoreApplication::processEvents();
    QVERIFY(!b.session->busy());
    QCOMPARE(b.stored(1), Cell("item 1"));
}

void TestDataView::structureListPicksTheColumnToEdit()
{
    Browser b;
    QVERIFY(b.open());
    MetadataView structure(*b.session);
    structure.show();
    b.session->inspect(WorkspaceMode::structure);
    QVERIFY(settle(*b.session));
    QVERIFY(!structure.editColumnButton()->isEnabled());
    clickCell(*structure.grid(), structure.grid()->model()->index(1, 0));
    QTest::mouseClick(structure.editColumnButton(), Qt::LeftButton);
    auto *edit = structure.findChild<ManagementForm *>();
    QVERIFY(edit && edit->kind() == ManagementSheet::modifyColumn);
    QVERIFY2(edit->previewText().contains(QStringLiteral("CHANGE COLUMN `name`")), qPrintable(edit->previewText()));
}

QTEST_MAIN(TestDataView)
#include "TestDataView.moc"
