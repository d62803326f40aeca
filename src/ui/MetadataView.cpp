#include "ui/MetadataView.h"

#include "session/ServerSession.h"
#include "ui/ManagementForm.h"
#include "ui/NativeGrid.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

MetadataView::MetadataView(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_title(new QLabel)
    , m_createDatabase(new QPushButton(QStringLiteral("New database…")))
    , m_createTable(new QPushButton(QStringLiteral("New table…")))
    , m_addColumn(new QPushButton(QStringLiteral("Add column…")))
    , m_editColumn(new QPushButton(QStringLiteral("Edit column…")))
    , m_createIndex(new QPushButton(QStringLiteral("New index…")))
    , m_showCreate(new QPushButton(QStringLiteral("Show CREATE")))
    , m_grid(new NativeGrid)
{
    m_editColumn->setToolTip(QStringLiteral("Change the column selected in the structure list"));
    m_showCreate->setToolTip(QStringLiteral("Open the table's CREATE statement in a new query tab"));
    QFont titleFont = m_title->font();
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    auto *bar = new QHBoxLayout;
    bar->setSpacing(8);
    bar->addWidget(m_title, 1);
    for (QPushButton *button :
        { m_createDatabase, m_createTable, m_addColumn, m_editColumn, m_createIndex, m_showCreate }) {
        bar->addWidget(button);
    }
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addLayout(bar);
    layout->addWidget(m_grid, 1);

    QObject::connect(
        m_createDatabase, &QPushButton::clicked, this, [this] { openForm(ManagementSheet::createDatabase); });
    QObject::connect(m_createTable, &QPushButton::clicked, this, [this] { openForm(ManagementSheet::createTable); });
    QObject::connect(m_addColumn, &QPushButton::clicked, this, [this] { openForm(ManagementSheet::addColumn); });
    QObject::connect(m_createIndex, &QPushButton::clicked, this, [this] { openForm(ManagementSheet::addIndex); });
    QObject::connect(m_editColumn, &QPushButton::clicked, this, &MetadataView::editSelectedColumn);
    QObject::connect(m_showCreate, &QPushButton::clicked, this, [this] { m_session->showCreate(); });
    QObject::connect(m_grid, &NativeGrid::rowSelected, this, [this](std::int64_t row) {
        m_selectedRow = row;
        refresh();
    });
    QObject::connect(&session, &ServerSession::metadataChanged, this, [this] {
        m_selectedRow = -1;
        refresh();
    });
    QObject::connect(&session, &ServerSession::modeChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::selectedTableChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &MetadataView::refresh);
    refresh();
}

void MetadataView::openForm(ManagementSheet kind)
{
    auto *form = new ManagementForm(*m_session, m_session->prompts(), kind, std::nullopt, this);
    form->setAttribute(Qt::WA_DeleteOnClose);
    form->open();
}

void MetadataView::editSelectedColumn()
{
    // The structure list's first column is the column name; its definition comes from the
    // session's column list of the same table.
    const QueryResult &listing = m_session->metadata();
    if (m_selectedRow < 0 || static_cast<std::size_t>(m_selectedRow) >= listing.rows.size()
        || listing.rows[static_cast<std::size_t>(m_selectedRow)].empty()) {
        return;
    }
    const std::string name = listing.rows[static_cast<std::size_t>(m_selectedRow)].front().value_or("");
    const ColumnList &columns = m_session->columns();
    const auto column = std::find_if(
        columns.begin(), columns.end(), [&name](const ColumnInfo &candidate) { return candidate.name == name; });
    if (column == columns.end()) {
        return;
    }
    auto *form = new ManagementForm(*m_session, m_session->prompts(), ManagementSheet::modifyColumn, *column, this);
    form->setAttribute(Qt::WA_DeleteOnClose);
    form->open();
}

void MetadataView::refresh()
{
    if (!m_session) {
        return;
    }
    const QString table = QString::fromStdString(m_session->selectedTable());
    const WorkspaceMode mode = m_session->mode();
    const std::string_view modeTitle = title(mode);
    m_title->setText(table.isEmpty() ? QStringLiteral("Choose a table in the sidebar")
                                     : QString::fromLatin1(modeTitle.data(), static_cast<qsizetype>(modeTitle.size()))
                + QStringLiteral(" of ") + table);
    const bool idle = !m_session->busy();
    const bool writable = !m_session->profile().readOnly;
    const bool hasDatabase = !m_session->database().empty();
    const bool hasTable = !table.isEmpty();
    m_createDatabase->setEnabled(idle && writable);
    m_createTable->setEnabled(idle && writable && hasDatabase);
    m_addColumn->setEnabled(idle && writable && hasTable);
    m_createIndex->setEnabled(idle && writable && hasTable);
    m_editColumn->setEnabled(idle && writable && hasTable && mode == WorkspaceMode::structure && m_selectedRow >= 0);
    m_showCreate->setEnabled(idle && hasTable);
    m_grid->refresh(m_session->metadata(), false, m_selectedRow);
}

} // namespace tallowick
