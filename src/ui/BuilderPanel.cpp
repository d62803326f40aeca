#include "ui/BuilderPanel.h"

#include "builder/BuilderEdits.h"
#include "core/AppError.h"
#include "session/ServerSession.h"
#include "ui/BuilderColumnRow.h"
#include "ui/BuilderFilterRow.h"
#include "ui/BuilderJoinRow.h"
#include "ui/FindBar.h"
#include "ui/FormParts.h"
#include "ui/SQLEditor.h"
#include "ui/Symbols.h"
#include "ui/Theme.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

namespace
{

// A titled block of the form; its body layout is returned through `body`.
QFrame *section(const QString &title, QVBoxLayout *&body)
{
    auto *frame = new QFrame;
    frame->setObjectName(QStringLiteral("builderSection"));
    followTheme(frame, [frame] {
        frame->setStyleSheet(
            QStringLiteral("#builderSection { background: %1; border: 1px solid %2; border-radius: 10px; }")
                .arg(themeColors().base.name(), themeColors().border.name()));
    });
    body = new QVBoxLayout(frame);
    body->setContentsMargins(14, 12, 14, 12);
    body->setSpacing(8);
    auto *heading = new QLabel(title);
    QFont bold = heading->font();
    bold.setWeight(QFont::DemiBold);
    heading->setFont(bold);
    body->addWidget(heading);
    return frame;
}

void clear(QVBoxLayout *layout)
{
    while (QLayoutItem *item = layout->takeAt(0)) {
        if (QWidget *widget = item->widget()) {
            widget->deleteLater();
        }
        delete item;
    }
}

} // namespace

BuilderPanel::BuilderPanel(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_table(new QComboBox)
    , m_distinct(new QCheckBox(QStringLiteral("Distinct rows")))
    , m_sourceHint(captionLabel(QStringLiteral("Choose a database in the sidebar first.")))
    , m_sourceRow(new QWidget)
    , m_addJoin(new QPushButton(symbolIcon(Symbol::plus), QStringLiteral("Add join")))
    , m_match(new QComboBox)
    , m_addFilter(new QPushButton(symbolIcon(Symbol::plus), QStringLiteral("Add filter")))
    , m_sortColumn(new QComboBox)
    , m_direction(new QComboBox)
    , m_limit(new QSpinBox)
    , m_preview(new SQLEditor(true))
    , m_copy(new QPushButton(symbolIcon(Symbol::copy), QStringLiteral("Copy generated SQL")))
    , m_open(new QPushButton(symbolIcon(Symbol::editor), QStringLiteral("Open in SQL editor")))
{
    auto *title = new QLabel(QStringLiteral("Query builder"));
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setWeight(QFont::Bold);
    title->setFont(titleFont);

    auto *form = new QWidget;
    auto *formLayout = new QVBoxLayout(form);
    formLayout->setContentsMargins(0, 0, 8, 0);
    formLayout->setSpacing(12);
    formLayout->addWidget(title);
    formLayout->addWidget(captionLabel(QStringLiteral("Shape a query visually. Keep full control of the SQL.")));

    QVBoxLayout *source = nullptr;
    formLayout->addWidget(section(QStringLiteral("Source"), source));
    auto *sourceRow = new QHBoxLayout(m_sourceRow);
    sourceRow->setContentsMargins(0, 0, 0, 0);
    sourceRow->addWidget(new QLabel(QStringLiteral("Table")));
    sourceRow->addWidget(m_table, 1);
    sourceRow->addWidget(m_distinct);
    source->addWidget(m_sourceRow);
    source->addWidget(m_sourceHint);

    QVBoxLayout *columns = nullptr;
    formLayout->addWidget(section(QStringLiteral("Columns"), columns));
    m_columnsLayout = new QVBoxLayout;
    columns->addLayout(m_columnsLayout);
    columns->addWidget(captionLabel(QStringLiteral("No selection means all columns from the source table.")));

    QVBoxLayout *joins = nullptr;
    formLayout->addWidget(section(QStringLiteral("Joins"), joins));
    m_joinsLayout = new QVBoxLayout;
    joins->addLayout(m_joinsLayout);
    joins->addWidget(m_addJoin, 0, Qt::AlignLeft);
    joins->addWidget(captionLabel(QStringLiteral("Connect related tables with LEFT, INNER, or RIGHT joins.")));

    QVBoxLayout *filters = nullptr;
    formLayout->addWidget(section(QStringLiteral("Filters"), filters));
    m_match->addItem(QStringLiteral("Match all"), true);
    m_match->addItem(QStringLiteral("Match any"), false);
    auto *matchRow = new QHBoxLayout;
    matchRow->addWidget(new QLabel(QStringLiteral("Match")));
    matchRow->addWidget(m_match);
    matchRow->addStretch(1);
    filters->addLayout(matchRow);
    m_filtersLayout = new QVBoxLayout;
    filters->addLayout(m_filtersLayout);
    filters->addWidget(m_addFilter, 0, Qt::AlignLeft);
    filters->addWidget(captionLabel(QStringLiteral("Add conditions to narrow down the rows you need.")));

    QVBoxLayout *group = nullptr;
    formLayout->addWidget(section(QStringLiteral("Group by"), group));
    m_groupLayout = new QVBoxLayout;
    group->addLayout(m_groupLayout);
    group->addWidget(captionLabel(QStringLiteral("Choose an aggregate on a column to add grouping.")));

    QVBoxLayout *sort = nullptr;
    formLayout->addWidget(section(QStringLiteral("Sort & limit"), sort));
    m_direction->addItem(QStringLiteral("Ascending"), false);
    m_direction->addItem(QStringLiteral("Descending"), true);
    m_limit->setRange(0, 1'000'000);
    m_limit->setAccessibleName(QStringLiteral("Maximum rows"));
    m_limit->setToolTip(QStringLiteral("Maximum rows"));
    auto *sortGrid = new QGridLayout;
    sortGrid->addWidget(new QLabel(QStringLiteral("Sort by")), 0, 0);
    sortGrid->addWidget(m_sortColumn, 0, 1);
    sortGrid->addWidget(new QLabel(QStringLiteral("Direction")), 1, 0);
    sortGrid->addWidget(m_direction, 1, 1);
    sortGrid->addWidget(new QLabel(QStringLiteral("Limit")), 2, 0);
    sortGrid->addWidget(m_limit, 2, 1);
    sortGrid->setColumnStretch(1, 1);
    sort->addLayout(sortGrid);
    formLayout->addStretch(1);

    auto *scroll = new QScrollArea;
    scroll->setWidget(form);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setMinimumWidth(460);

    auto *previewTitle = new QLabel(QStringLiteral("SQL preview"));
    previewTitle->setFont(titleFont);
    auto *noteSymbol = new QLabel;
    showSymbol(noteSymbol, Symbol::pencil, 16);
    auto *noteText = new QLabel(QStringLiteral("Editable results"));
    QFont bold = noteText->font();
    bold.setWeight(QFont::DemiBold);
    noteText->setFont(bold);
    auto *noteTitle = new QHBoxLayout;
    noteTitle->setSpacing(6);
    noteTitle->addWidget(noteSymbol);
    noteTitle->addWidget(noteText);
    noteTitle->addStretch(1);
    auto *actions = new QHBoxLayout;
    actions->addWidget(m_copy);
    actions->addWidget(m_open);
    actions->addStretch(1);
    auto *side = new QWidget;
    auto *sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(8, 0, 0, 0);
    sideLayout->addWidget(previewTitle);
    sideLayout->addWidget(m_preview, 1);
    sideLayout->addWidget(new FindBar(*m_preview));
    sideLayout->addLayout(noteTitle);
    sideLayout->addWidget(captionLabel(QStringLiteral(
        "Include every primary-key column for each table you want to edit. Open in the SQL editor, run it, then "
        "double-click source values in the result grid. Calculated columns stay read-only.")));
    sideLayout->addLayout(actions);

    auto *split = new QSplitter(Qt::Horizontal);
    split->addWidget(scroll);
    split->addWidget(side);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({ 640, 420 });
    split->setChildrenCollapsible(false);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 10, 14, 10);
    layout->addWidget(split);

    QObject::connect(m_table, &QComboBox::activated, this, [this] { chooseSource(m_table->currentData().toString()); });
    QObject::connect(m_distinct, &QCheckBox::toggled, this, [this](bool on) {
        change([on](BuilderSpec &spec) { spec.distinct = on; });
    });
    QObject::connect(m_addJoin, &QPushButton::clicked, this, [this] {
        change([](BuilderSpec &spec) { spec.joins.push_back(BuilderJoin {}); });
    });
    QObject::connect(m_addFilter, &QPushButton::clicked, this, [this] {
        change([this](BuilderSpec &spec) {
            BuilderFilter filter;
            const QStringList references = columnReferences();
            filter.column = references.isEmpty() ? std::string() : references.front().toStdString();
            spec.filters.push_back(filter);
        });
    });
    QObject::connect(m_match, &QComboBox::activated, this, [this] {
        change([this](BuilderSpec &spec) { spec.matchAll = m_match->currentData().toBool(); });
    });
    QObject::connect(m_sortColumn, &QComboBox::activated, this, [this] {
        change([this](BuilderSpec &spec) { spec.orderBy = m_sortColumn->currentData().toString().toStdString(); });
    });
    QObject::connect(m_direction, &QComboBox::activated, this, [this] {
        change([this](BuilderSpec &spec) { spec.descending = m_direction->currentData().toBool(); });
    });
    QObject::connect(m_limit, &QSpinBox::valueChanged, this, [this](int value) {
        change([value](BuilderSpec &spec) { spec.limit = value; });
    });
    QObject::connect(m_copy, &QPushButton::clicked, this, [this] {
        QGuiApplication::clipboard()->clear();
        QGuiApplication::clipboard()->setText(text(m_builtSQL));
    });
    QObject::connect(m_open, &QPushButton::clicked, this, [this] {
        m_session->newTab(m_builtSQL, std::string("Query builder"));
        m_session->setMode(WorkspaceMode::query);
    });

    QObject::connect(&session, &ServerSession::builderChanged, this, &BuilderPanel::refresh);
    QObject::connect(&session, &ServerSession::builderColumnsChanged, this, &BuilderPanel::refresh);
    QObject::connect(&session, &ServerSession::tablesChanged, this, &BuilderPanel::refresh);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &BuilderPanel::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, [this] {
        refreshPreview();
        if (!m_pendingColumns.empty() && !m_session->busy()) {
            // Queued: a finished job's own follow-up work goes first.
            QMetaObject::invokeMethod(this, &BuilderPanel::loadPendingColumns, Qt::QueuedConnection);
        }
    });
    refresh();
}

QStringList BuilderPanel::tableNames() const
{
    QStringList names;
    if (const auto found = m_session->tables().find(m_session->database()); found != m_session->tables().end()) {
        for (const TableInfo &table : found->second) {
            names << text(table.name);
        }
    }
    return names;
}

QStringList BuilderPanel::columnReferences() const
{
    QStringList references;
    for (const std::string &table : sourceTables(m_session->builder())) {
        if (const auto columns = m_session->builderColumns().find(table);
            columns != m_session->builderColumns().end()) {
            for (const ColumnInfo &column : columns->second) {
                references << text(table + "." + column.name);
            }
        }
    }
    return references;
}

QString BuilderPanel::structureKey() const
{
    const BuilderSpec &spec = m_session->builder();
    QStringList parts { text(m_session->database()), text(spec.table) };
    parts << tableNames().join(u',') << columnReferences().join(u',');
    for (const BuilderJoin &join : spec.joins) {
        parts << text(join.id.toString().toStdString() + join.table);
    }
    for (const BuilderFilter &filter : spec.filters) {
        parts << filter.id.toString();
    }
    return parts.join(u'|');
}

void BuilderPanel::change(const std::function<void(BuilderSpec &)> &edit)
{
    if (m_rebuilding || !m_session) {
        return;
    }
    BuilderSpec spec = m_session->builder();
    edit(spec);
    m_session->setBuilder(spec);
}

void BuilderPanel::chooseSource(const QString &table)
{
    const std::string name = table.toStdString();
    if (m_session->builder().table == name) {
        // The same table picked again keeps the query shaped so far; only missing columns load.
        requestColumns(name);
        return;
    }
    change([&name](BuilderSpec &spec) { chooseSourceTable(spec, name); });
    requestColumns(name);
}

void BuilderPanel::requestColumns(const std::string &table)
{
    if (table.empty() || m_session->builderColumns().count(table) > 0) {
        return;
    }
    if (m_session->busy()) {
        // The session drops requests while it works; this one is made again once it is idle.
        if (std::find(m_pendingColumns.begin(), m_pendingColumns.end(), table) == m_pendingColumns.end()) {
            m_pendingColumns.push_back(table);
        }
        return;
    }
    m_session->loadBuilderColumns(table);
}

void BuilderPanel::loadPendingColumns()
{
    if (!m_session || m_session->busy()) {
        return; // the next idle moment tries again
    }
    const std::vector<std::string> used = sourceTables(m_session->builder());
    while (!m_pendingColumns.empty()) {
        // Each held request is made once more at most, so a failing load cannot repeat forever.
        const std::string table = m_pendingColumns.front();
        m_pendingColumns.erase(m_pendingColumns.begin());
        if (std::find(used.begin(), used.end(), table) != used.end() && m_session->builderColumns().count(table) == 0) {
            m_session->loadBuilderColumns(table);
            return;
        }
    }
}

void BuilderPanel::refresh()
{
    if (!m_session) {
        return;
    }
    const QString key = structureKey();
    if (key != m_structure) {
        m_structure = key;
        rebuildForm();
    }
    refreshPreview();
}

void BuilderPanel::rebuildForm()
{
    m_rebuilding = true;
    const BuilderSpec &spec = m_session->builder();
    const bool hasDatabase = !m_session->database().empty();
    const QStringList references = columnReferences();

    m_table->clear();
    m_table->addItem(QStringLiteral("Choose a table…"), QString());
    for (const QString &name : tableNames()) {
        m_table->addItem(name, name);
    }
    m_table->setCurrentIndex(std::max(0, m_table->findData(text(spec.table))));
    m_table->setEnabled(hasDatabase);
    // Without a database there is no table to offer: the hint stands alone.
    m_sourceRow->setVisible(hasDatabase);
    m_sourceHint->setVisible(!hasDatabase);
    m_distinct->setChecked(spec.distinct);

    clear(m_columnsLayout);
    if (spec.table.empty()) {
        m_columnsLayout->addWidget(captionLabel(QStringLiteral("Choose a source table to see its columns.")));
    }
    std::vector<std::string> listed;
    for (const QString &reference : references) {
        listed.push_back(reference.toStdString());
    }
    // Walked by table and column, never by splitting "table.column": table names may hold dots.
    for (const std::string &source : sourceTables(spec)) {
        const auto loaded = m_session->builderColumns().find(source);
        if (loaded == m_session->builderColumns().end()) {
            continue;
        }
        for (const ColumnInfo &info : loaded->second) {
            const BuilderColumn column { source, info.name, {} };
            const auto selected = std::find_if(spec.columns.begin(),
                spec.columns.end(),
                [&column](const BuilderColumn &candidate) { return candidate.id() == column.id(); });
            auto *row
                = new BuilderColumnRow(column, info.primary, selected != spec.columns.end() ? &*selected : nullptr);
            m_columnsLayout->addWidget(row);
            QObject::connect(
                row, &BuilderColumnRow::edited, this, [this, listed](const BuilderColumn &edited, bool on) {
                    change([&](BuilderSpec &target) { setColumnSelected(target, edited, on, listed); });
                });
        }
    }

    clear(m_joinsLayout);
    for (const BuilderJoin &join : spec.joins) {
        auto *row = new BuilderJoinRow(join, tableNames(), references);
        m_joinsLayout->addWidget(row);
        QObject::connect(row, &BuilderJoinRow::edited, this, [this](const BuilderJoin &edited) {
            change([&edited](BuilderSpec &target) { updateJoinCondition(target, edited); });
        });
        QObject::connect(row, &BuilderJoinRow::tableChosen, this, [this](const QUuid &id, const QString &table) {
            const std::string chosen = table.toStdString();
            change([&](BuilderSpec &target) { setJoinTable(target, id, chosen); });
            requestColumns(chosen);
        });
        QObject::connect(row, &BuilderJoinRow::removeClicked, this, [this](const QUuid &id) {
            change([&id](BuilderSpec &target) { removeJoin(target, id); });
        });
    }
    m_addJoin->setEnabled(!spec.table.empty());

    m_match->setCurrentIndex(spec.matchAll ? 0 : 1);
    clear(m_filtersLayout);
    for (const BuilderFilter &filter : spec.filters) {
        auto *row = new BuilderFilterRow(filter, references);
        m_filtersLayout->addWidget(row);
        QObject::connect(row, &BuilderFilterRow::edited, this, [this](const BuilderFilter &edited) {
            change([&edited](BuilderSpec &target) { updateFilter(target, edited); });
        });
        QObject::connect(row, &BuilderFilterRow::removeClicked, this, [this](const QUuid &id) {
            change([&id](BuilderSpec &target) { removeFilter(target, id); });
        });
    }
    m_addFilter->setEnabled(!spec.table.empty());

    clear(m_groupLayout);
    for (const QString &reference : references) {
        auto *toggle = new QCheckBox(reference);
        toggle->setChecked(
            std::find(spec.groupBy.begin(), spec.groupBy.end(), reference.toStdString()) != spec.groupBy.end());
        m_groupLayout->addWidget(toggle);
        QObject::connect(toggle, &QCheckBox::toggled, this, [this, reference](bool on) {
            change([&](BuilderSpec &edited) { setGrouped(edited, reference.toStdString(), on); });
        });
    }

    m_sortColumn->clear();
    m_sortColumn->addItem(QStringLiteral("No sorting"), QString());
    for (const QString &reference : references) {
        m_sortColumn->addItem(reference, reference);
    }
    m_sortColumn->setCurrentIndex(std::max(0, m_sortColumn->findData(text(spec.orderBy))));
    m_direction->setCurrentIndex(spec.descending ? 1 : 0);
    m_limit->setValue(static_cast<int>(std::clamp<std::int64_t>(spec.limit, 0, 1'000'000)));
    m_rebuilding = false;
}

void BuilderPanel::refreshPreview()
{
    if (!m_session) {
        return;
    }
    try {
        m_builtSQL = m_session->builder().build();
        m_buildFailed = false;
        m_preview->setSQL(text(m_builtSQL));
    } catch (const AppError &failure) {
        m_builtSQL.clear();
        m_buildFailed = true;
        m_preview->setSQL(text(failure.message()));
    }
    m_copy->setEnabled(!m_buildFailed);
    m_open->setEnabled(!m_buildFailed && !m_session->busy());
}

template <typename Row> QList<Row *> BuilderPanel::rowsIn(QVBoxLayout *layout) const
{
    QList<Row *> rows;
    for (int i = 0; i < layout->count(); ++i) {
        if (auto *row = qobject_cast<Row *>(layout->itemAt(i)->widget())) {
            rows << row;
        }
    }
    return rows;
}

QList<BuilderColumnRow *> BuilderPanel::columnRows() const
{
    return rowsIn<BuilderColumnRow>(m_columnsLayout);
}

QList<BuilderJoinRow *> BuilderPanel::joinRows() const
{
    return rowsIn<BuilderJoinRow>(m_joinsLayout);
}

QList<BuilderFilterRow *> BuilderPanel::filterRows() const
{
    return rowsIn<BuilderFilterRow>(m_filtersLayout);
}

} // namespace tallowick
