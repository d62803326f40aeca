#include "ui/DataView.h"

#include "session/ServerSession.h"
#include "ui/CsvImportForm.h"
#include "ui/ManagementForm.h"
#include "ui/NativeGrid.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedLayout>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

QPushButton *toolButton(const QString &text, const QString &help)
{
    auto *button = new QPushButton(text);
    button->setToolTip(help);
    return button;
}

} // namespace

DataView::DataView(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_title(new QLabel)
    , m_filter(new QLineEdit)
    , m_previous(toolButton(QStringLiteral("‹ Previous"), QStringLiteral("Previous page")))
    , m_pageLabel(new QLabel)
    , m_next(toolButton(QStringLiteral("Next ›"), QStringLiteral("Next page")))
    , m_pageSize(new QComboBox)
    , m_refresh(toolButton(QStringLiteral("Refresh"), QStringLiteral("Load this page again")))
    , m_delete(toolButton(QStringLiteral("Delete row…"), QStringLiteral("Delete the selected row")))
    , m_insertRow(toolButton(QStringLiteral("Insert row…"), QStringLiteral("Add a row to this table")))
    , m_importCSV(
          toolButton(QStringLiteral("Import CSV…"), QStringLiteral("Insert the rows of a CSV file into this table")))
    , m_exportCSV(toolButton(QStringLiteral("Export CSV…"), QStringLiteral("Export the rows on screen as CSV")))
    , m_exportDatabase(toolButton(
          QStringLiteral("Export database…"), QStringLiteral("Export this database's tables and views as SQL")))
    , m_grid(new NativeGrid)
    , m_empty(new QLabel(QStringLiteral("Choose a table in the sidebar to browse its rows.")))
{
    QFont titleFont = m_title->font();
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    m_filter->setPlaceholderText(QStringLiteral("Filter rows (any column contains…)"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setMinimumWidth(220);
    for (const int size : { 50, 100, 200, 500, 1000 }) {
        m_pageSize->addItem(QStringLiteral("%1 rows").arg(size), size);
    }
    m_pageSize->setToolTip(QStringLiteral("Rows per page"));
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setStyleSheet(QStringLiteral("color: palette(mid);"));

    auto *bar = new QHBoxLayout;
    bar->setSpacing(8);
    bar->addWidget(m_title);
    bar->addWidget(m_filter, 1);
    bar->addWidget(m_previous);
    bar->addWidget(m_pageLabel);
    bar->addWidget(m_next);
    bar->addWidget(m_pageSize);
    bar->addWidget(m_refresh);

    auto *actions = new QHBoxLayout;
    actions->setSpacing(8);
    auto *hint = new QLabel(QStringLiteral("Double-click a value to edit · right-click for NULL"));
    hint->setStyleSheet(QStringLiteral("color: palette(mid);"));
    actions->addWidget(hint, 1);
    actions->addWidget(m_insertRow);
    actions->addWidget(m_importCSV);
    actions->addWidget(m_delete);
    actions->addWidget(m_exportCSV);
    actions->addWidget(m_exportDatabase);

    auto *content = new QStackedLayout;
    content->addWidget(m_empty);
    content->addWidget(m_grid);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addLayout(bar);
    layout->addLayout(content, 1);
    layout->addLayout(actions);

    QObject::connect(m_previous, &QPushButton::clicked, this, [this] { goToPage(m_session->page() - 1); });
    QObject::connect(m_next, &QPushButton::clicked, this, [this] { goToPage(m_session->page() + 1); });
    QObject::connect(m_refresh, &QPushButton::clicked, this, [this] { m_session->browse(); });
    QObject::connect(m_filter, &QLineEdit::returnPressed, this, &DataView::applyFilter);
    QObject::connect(m_pageSize, &QComboBox::activated, this, [this] {
        m_session->setPageSize(m_pageSize->currentData().toLongLong());
        goToPage(0);
    });
    QObject::connect(m_delete, &QPushButton::clicked, this, [this] { m_session->deleteSelectedRow(); });
    QObject::connect(m_insertRow, &QPushButton::clicked, this, [this] {
        auto *form
            = new ManagementForm(*m_session, m_session->prompts(), ManagementSheet::insertRow, std::nullopt, this);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->open();
    });
    QObject::connect(m_importCSV, &QPushButton::clicked, this, [this] {
        auto *form = new CsvImportForm(*m_session, m_session->prompts(), this);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->open();
    });
    QObject::connect(m_exportCSV, &QPushButton::clicked, this, [this] { m_session->exportCSV(); });
    QObject::connect(m_exportDatabase, &QPushButton::clicked, this, [this] { m_session->backup(); });
    QObject::connect(
        m_grid, &NativeGrid::cellEdited, this, [this](std::int64_t row, std::int64_t column, const Cell &value) {
            m_session->editCell(row, column, value);
        });
    QObject::connect(
        m_grid, &NativeGrid::rowSelected, this, [this](std::int64_t row) { m_session->setSelectedRow(row); });
    QObject::connect(m_grid, &NativeGrid::sortRequested, this, &DataView::sortBy);

    QObject::connect(&session, &ServerSession::tableResultChanged, this, &DataView::refreshGrid);
    QObject::connect(&session, &ServerSession::selectedRowChanged, this, &DataView::refreshGrid);
    QObject::connect(&session, &ServerSession::selectedTableChanged, this, &DataView::refreshControls);
    QObject::connect(&session, &ServerSession::busyChanged, this, &DataView::refreshControls);
    QObject::connect(&session, &ServerSession::pageChanged, this, &DataView::refreshControls);
    QObject::connect(&session, &ServerSession::filterChanged, this, &DataView::refreshControls);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &DataView::refreshControls);
    content->setCurrentWidget(m_grid);
    QObject::connect(&session, &ServerSession::selectedTableChanged, this, [this, content] {
        content->setCurrentWidget(m_session->selectedTable().empty() ? static_cast<QWidget *>(m_empty) : m_grid);
    });
    content->setCurrentWidget(session.selectedTable().empty() ? static_cast<QWidget *>(m_empty) : m_grid);
    refreshGrid();
    refreshControls();
}

void DataView::refreshGrid()
{
    if (!m_session) {
        return;
    }
    m_grid->refresh(m_session->tableResult(), !m_session->profile().readOnly, m_session->selectedRow());
    // The page on screen was read in the session's order, so the mark follows the result.
    m_grid->showSortOrder(m_session->sortColumn(), m_session->sortDescending());
    refreshControls();
}

void DataView::refreshControls()
{
    if (!m_session) {
        return;
    }
    const bool idle = !m_session->busy();
    const bool hasTable = !m_session->selectedTable().empty();
    m_title->setText(hasTable ? QString::fromStdString(m_session->selectedTable()) : QStringLiteral("No table"));
    m_pageLabel->setText(QStringLiteral("Page %1").arg(m_session->page() + 1));
    const auto rows = static_cast<qint64>(m_session->tableResult().rows.size());
    m_previous->setEnabled(idle && hasTable && m_session->page() > 0);
    m_next->setEnabled(idle && hasTable && rows >= m_session->pageSize());
    m_refresh->setEnabled(idle && hasTable);
    m_filter->setEnabled(hasTable);
    m_pageSize->setEnabled(idle && hasTable);
    const int sizeIndex = m_pageSize->findData(m_session->pageSize());
    if (sizeIndex >= 0) {
        m_pageSize->setCurrentIndex(sizeIndex);
    }
    if (!m_filter->hasFocus()) {
        m_filter->setText(QString::fromStdString(m_session->filter()));
    }
    const bool rowChosen = m_session->selectedRow() >= 0 && m_session->selectedRow() < rows;
    const bool writable = !m_session->profile().readOnly;
    m_delete->setEnabled(idle && hasTable && rowChosen && writable);
    m_insertRow->setEnabled(idle && hasTable && writable);
    m_importCSV->setEnabled(idle && hasTable && writable);
    m_exportCSV->setEnabled(hasTable);
    m_exportDatabase->setEnabled(idle && !m_session->database().empty());
}

void DataView::goToPage(qint64 page)
{
    m_session->setPage(std::max<qint64>(page, 0));
    m_session->browse();
}

void DataView::applyFilter()
{
    m_session->setFilter(m_filter->text().toStdString());
    goToPage(0);
}

void DataView::sortBy(const std::string &column)
{
    // A second click on the same column turns the direction around.
    if (m_session->sortColumn() == column) {
        m_session->setSortDescending(!m_session->sortDescending());
    } else {
        m_session->setSortColumn(column);
        m_session->setSortDescending(false);
    }
    goToPage(0);
}

} // namespace tallowick
