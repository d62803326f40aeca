#include "client/ClientThreadScope.h"
#include "core/SqlQuoting.h"
#include "support/SessionHarness.h"
#include "support/WidgetDriving.h"
#include "ui/CsvImportForm.h"
#include "ui/DataView.h"
#include "ui/ManagementForm.h"
#include "ui/MetadataView.h"
#include "ui/NativeGrid.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

namespace
{

constexpr int nameField = 1; // items: id, name, note

} // namespace

// The table browser driven like a user: real widgets, a real session, the disposable server.
class TestDataView final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pagesThroughTheTable();
    void filterNarrowsTheRows();
    void headerClicksSortAndReverse();
    void doubleClickEditSavesAndReloads();
    void setToNullFromTheMenu();
    void deleteAsksAndRemovesTheRow();
    void closingWithAnOpenEditorSendsNothing();
    void formsOpenFromTheToolbars();

private:
    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<DataView> m_view;
    ClientThreadScope m_clientThread;
};

void TestDataView::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE items (id INT PRIMARY KEY, name VARCHAR(50), note TEXT NULL)");
    m_scratch->run("INSERT INTO items SELECT seq, CONCAT('item ', seq), IF(seq % 10 = 0, 'tenth', NULL) "
                   "FROM seq_1_to_450");
    m_session = m_harness->session(m_harness->profile());
    m_view = std::make_unique<DataView>(*m_session);
    m_view->resize(1100, 600);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
    QVERIFY(connectAndSettle(*m_session));
    m_session->selectTable("items", m_scratch->name());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_view->grid()->result().columnNames(), (std::vector<std::string> { "id", "name", "note" }));
}

void TestDataView::cleanup()
{
    if (m_session) {
        settle(*m_session);
    }
    m_view.reset();
    m_session.reset();
    m_scratch.reset();
    m_harness.reset();
}

void TestDataView::pagesThroughTheTable()
{
    QPushButton *previous = titled<QPushButton>(*m_view, QStringLiteral("‹ Previous"));
    QPushButton *next = titled<QPushButton>(*m_view, QStringLiteral("Next ›"));
    QVERIFY(previous && next);
    QCOMPARE(m_view->grid()->model()->rowCount(), 200);
    QVERIFY(!previous->isEnabled());
    QVERIFY(next->isEnabled());
    QTest::mouseClick(next, Qt::LeftButton);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_view->grid()->result().rows.front().front(), Cell("201"));
    QTest::mouseClick(next, Qt::LeftButton);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_view->grid()->model()->rowCount(), 50);
    QVERIFY(!next->isEnabled()); // a short page is the last one
    QVERIFY(previous->isEnabled());

    auto *sizes = m_view->findChild<QComboBox *>();
    QVERIFY(sizes);
    sizes->setCurrentIndex(sizes->findData(500));
    Q_EMIT sizes->activated(sizes->currentIndex());
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->page(), qint64(0));
    QCOMPARE(m_view->grid()->model()->rowCount(), 450);
}

void TestDataView::filterNarrowsTheRows()
{
    auto *filter = m_view->findChild<QLineEdit *>();
    QVERIFY(filter);
    filter->setFocus();
    QTest::keyClicks(filter, "tenth");
    QTest::keyClick(filter, Qt::Key_Return);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->filter(), std::string("tenth"));
    QCOMPARE(m_view->grid()->model()->rowCount(), 45);
    QVERIFY(m_session->status().starts_with("45 rows · page 1 · "));
}

void TestDataView::headerClicksSortAndReverse()
{
    QHeaderView *header = m_view->grid()->horizontalHeader();
    const QPoint onName(header->sectionViewportPosition(nameField) + 20, 10);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, onName);
    QVERIFY(settle(*m_session));
    QCOMPARE(m_session->sortColumn(), std::string("name"));
    QVERIFY(!m_session->sortDescending());
    QCOMPARE(m_view->grid()->result().rows.front()[nameField], Cell("item 1"));
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, onName);
    QVERIFY(settle(*m_session));
    QVERIFY(m_session->sortDescending());
    QCOMPARE(m_view->grid()->result().rows.front()[nameField], Cell("item 99"));
}

void TestDataView::doubleClickEditSavesAndReloads()
{
    NativeGrid *grid = m_view->grid();
    const QModelIndex cell = grid->model()->index(2, nameField);
    doubleClickCell(*grid, cell);
    auto *editor = qobject_cast<QLineEdit *>(grid->indexWidget(cell));
    QVERIFY(editor);
    QSignalSpy edits(grid, &NativeGrid::cellEdited);
    QTest::keyClicks(editor, "renamed 'three'");
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(edits.count(), 1);
    QVERIFY(settle(*m_session));
    QVERIFY2(!m_session->error(), m_session->error().value_or("").c_str());
    QCOMPARE(m_scratch->run("SELECT name FROM items WHERE id = 3").rows.at(0).at(0), Cell("renamed 'three'"));
    // The page was read again, so the grid shows what the server holds.
    QCOMPARE(grid->result().rows[2][nameField], Cell("renamed 'three'"));
}

void TestDataView::setToNullFromTheMenu()
{
    NativeGrid *grid = m_view->grid();
    const std::unique_ptr<QMenu> menu = grid->contextMenuFor(4, nameField);
    QVERIFY(menu);
    QAction *setNull = actionTitled(menu->actions(), QStringLiteral("Set to NULL"));
    QVERIFY(setNull);
    setNull->trigger();
    QVERIFY(settle(*m_session));
    QCOMPARE(m_scratch->run("SELECT name FROM items WHERE id = 5").rows.at(0).at(0), Cell());
    QCOMPARE(grid->model()->index(4, nameField).data().toString(), QStringLiteral("NULL"));
}

void TestDataView::deleteAsksAndRemovesTheRow()
{
    QPushButton *remove = titled<QPushButton>(*m_view, QStringLiteral("Delete row…"));
    QVERIFY(remove);
    QVERIFY(!remove->isEnabled());
    NativeGrid *grid = m_view->grid();
    clickCell(*grid, grid->model()->index(1, 0));
    QCOMPARE(m_session->selectedRow(), qint64(1));
    QVERIFY(remove->isEnabled());
    m_harness->prompts.confirmations = { true };
    QTest::mouseClick(remove, Qt::LeftButton);
    QCOMPARE(m_harness->prompts.asked.back().text, std::string("Delete this row?"));
    QVERIFY(settle(*m_session));
    QCOMPARE(m_scratch->run("SELECT COUNT(*) FROM items WHERE id = 2").rows.at(0).at(0), Cell("0"));
    QCOMPARE(grid->result().rows[1].front(), Cell("3"));
}

void TestDataView::closingWithAnOpenEditorSendsNothing()
{
    NativeGrid *grid = m_view->grid();
    const QModelIndex cell = grid->model()->index(0, nameField);
    doubleClickCell(*grid, cell);
    auto *editor = qobject_cast<QLineEdit *>(grid->indexWidget(cell));
    QVERIFY(editor);
    QTest::keyClicks(editor, "abandoned");
    m_view.reset();
    QCoreApplication::processEvents();
    QVERIFY(!m_session->busy());
    QCOMPARE(m_scratch->run("SELECT name FROM items WHERE id = 1").rows.at(0).at(0), Cell("item 1"));
}

void TestDataView::formsOpenFromTheToolbars()
{
    QTest::mouseClick(titled<QPushButton>(*m_view, QStringLiteral("Insert row…")), Qt::LeftButton);
    auto *insert = m_view->findChild<ManagementForm *>();
    QVERIFY(insert && insert->isVisible() && insert->kind() == ManagementSheet::insertRow);
    insert->reject();
    QTest::mouseClick(titled<QPushButton>(*m_view, QStringLiteral("Import CSV…")), Qt::LeftButton);
    auto *import = m_view->findChild<CsvImportForm *>();
    QVERIFY(import && import->isVisible());
    import->reject();

    // The structure list's selected row picks the column to edit.
    MetadataView structure(*m_session);
    structure.show();
    m_session->inspect(WorkspaceMode::structure);
    QVERIFY(settle(*m_session));
    QVERIFY(!structure.editColumnButton()->isEnabled());
    clickCell(*structure.grid(), structure.grid()->model()->index(1, 0));
    QVERIFY(structure.editColumnButton()->isEnabled());
    QTest::mouseClick(structure.editColumnButton(), Qt::LeftButton);
    auto *edit = structure.findChild<ManagementForm *>();
    QVERIFY(edit);
    QCOMPARE(edit->kind(), ManagementSheet::modifyColumn);
    QVERIFY2(edit->previewText().contains(QStringLiteral("CHANGE COLUMN `name`")), qPrintable(edit->previewText()));
    edit->reject();
}

QTEST_MAIN(TestDataView)
#include "TestDataView.moc"
