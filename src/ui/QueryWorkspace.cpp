#include "ui/QueryWorkspace.h"

#include "session/ServerSession.h"
#include "ui/FindBar.h"
#include "ui/NativeGrid.h"
#include "ui/SQLEditor.h"
#include "ui/Symbols.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyle>
#include <QTabBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

namespace
{

QLabel *note(const QString &text)
{
    auto *label = new QLabel(text);
    label->setStyleSheet(QStringLiteral("color: palette(mid);"));
    return label;
}

const QueryTab *currentTab(const ServerSession &session)
{
    if (session.tabs().empty()) {
        return nullptr;
    }
    return &session.tabs()[session.tabIndex()];
}

bool hasEditableField(const QueryResult &result)
{
    return std::any_of(result.fields.begin(), result.fields.end(), [](const Field &field) { return field.editable(); });
}

} // namespace

QueryWorkspace::QueryWorkspace(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_tabs(new QTabBar)
    , m_newTab(new QPushButton(QStringLiteral("+")))
    , m_run(new QPushButton(QStringLiteral("Run")))
    , m_explain(new QPushButton(QStringLiteral("Explain")))
    , m_transaction(new QToolButton)
    , m_open(new QPushButton(QStringLiteral("Open SQL file")))
    , m_save(new QPushButton(QStringLiteral("Save query file")))
    , m_editor(new SQLEditor(false))
    , m_resultHeader(new QWidget)
    , m_resultPicker(new QComboBox)
    , m_counts(new QLabel)
    , m_limitNote(note(QStringLiteral("10,000 row display limit")))
    , m_editNote(note(QStringLiteral("Double-click source values to edit")))
    , m_time(new QLabel)
    , m_export(new QPushButton(QStringLiteral("Export CSV…")))
    , m_resultArea(new QStackedWidget)
    , m_emptyState(new QWidget)
    , m_grid(new NativeGrid)
{
    m_tabs->setTabsClosable(true);
    m_tabs->setExpanding(false);
    m_tabs->setDocumentMode(true);
    m_tabs->setMovable(false);
    m_newTab->setToolTip(QStringLiteral("New query tab"));
    m_newTab->setFixedWidth(32);
    m_run->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    m_run->setToolTip(QStringLiteral("Run the current tab (Ctrl+Return)"));
    m_explain->setToolTip(QStringLiteral("Show the server's plan for this tab's statement in a new tab"));
    m_transaction->setText(QStringLiteral("Transaction"));
    m_transaction->setPopupMode(QToolButton::InstantPopup);
    auto *transactions = new QMenu(m_transaction);
    const std::pair<QString, ServerSession::TransactionCommand> commands[] = {
        { QStringLiteral("START TRANSACTION"), ServerSession::TransactionCommand::start },
        { QStringLiteral("COMMIT"), ServerSession::TransactionCommand::commit },
        { QStringLiteral("ROLLBACK"), ServerSession::TransactionCommand::rollback },
    };
    for (const auto &[label, command] : commands) {
        QObject::connect(transactions->addAction(label), &QAction::triggered, this, [this, command] {
            m_session->transaction(command);
        });
    }
    m_transaction->setMenu(transactions);
    m_open->setIcon(style()->standardIcon(QStyle::SP_DirOpenIcon));
    m_save->setIcon(style()->standardIcon(QStyle::SP_DialogSaveButton));
    m_export->setToolTip(QStringLiteral("Export result as CSV"));
    m_resultPicker->setAccessibleName(QStringLiteral("Result set"));
    m_resultPicker->setToolTip(QStringLiteral("Result set"));

    auto *tabRow = new QHBoxLayout;
    tabRow->setSpacing(4);
    tabRow->addWidget(m_tabs, 1);
    tabRow->addWidget(m_newTab);

    auto *toolbar = new QHBoxLayout;
    toolbar->setSpacing(8);
    toolbar->addWidget(m_run);
    toolbar->addWidget(m_explain);
    toolbar->addWidget(m_transaction);
    toolbar->addWidget(note(QStringLiteral("Ctrl+↵ runs selection or script, Ctrl+Shift+↵ statement at cursor")));
    toolbar->addStretch(1);
    toolbar->addWidget(m_open);
    toolbar->addWidget(m_save);

    auto *header = new QHBoxLayout(m_resultHeader);
    header->setContentsMargins(0, 4, 0, 4);
    header->setSpacing(12);
    header->addWidget(m_resultPicker);
    header->addWidget(m_counts);
    header->addWidget(m_limitNote);
    header->addWidget(m_editNote);
    header->addStretch(1);
    header->addWidget(m_time);
    header->addWidget(m_export);

    auto *emptyLayout = new QVBoxLayout(m_emptyState);
    auto *terminal = new QLabel(QStringLiteral(">_"));
    QFont big = terminal->font();
    big.setPointSizeF(big.pointSizeF() * 2.2);
    terminal->setFont(big);
    terminal->setStyleSheet(QStringLiteral("color: palette(mid);"));
    auto *emptyText = note(QStringLiteral("Your results will appear here."));
    emptyLayout->addStretch(1);
    emptyLayout->addWidget(terminal, 0, Qt::AlignHCenter);
    emptyLayout->addWidget(emptyText, 0, Qt::AlignHCenter);
    emptyLayout->addStretch(1);
    m_resultArea->addWidget(m_emptyState);
    m_resultArea->addWidget(m_grid);

    auto *results = new QWidget;
    auto *resultsLayout = new QVBoxLayout(results);
    resultsLayout->setContentsMargins(0, 0, 0, 0);
    resultsLayout->addWidget(m_resultHeader);
    resultsLayout->addWidget(m_resultArea, 1);
    results->setMinimumHeight(160);
    m_editor->setMinimumHeight(130);

    // The find bar sits under the text it searches, inside the editor's pane.
    auto *editorPane = new QWidget;
    auto *editorLayout = new QVBoxLayout(editorPane);
    editorLayout->setContentsMargins(0, 0, 0, 0);
    editorLayout->setSpacing(0);
    editorLayout->addWidget(m_editor, 1);
    editorLayout->addWidget(new FindBar(*m_editor));

    auto *split = new QSplitter(Qt::Vertical);
    split->addWidget(editorPane);
    split->addWidget(results);
    split->setChildrenCollapsible(false);
    split->setSizes({ 260, 400 });

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 6, 14, 8);
    layout->setSpacing(6);
    layout->addLayout(tabRow);
    layout->addLayout(toolbar);
    layout->addWidget(split, 1);

    QObject::connect(m_tabs, &QTabBar::currentChanged, this, [this](int index) {
        if (m_updatingTabs || index < 0 || static_cast<std::size_t>(index) >= m_session->tabs().size()) {
            return;
        }
        m_session->setActiveTab(m_session->tabs()[static_cast<std::size_t>(index)].id);
        m_session->setSelectedRow(-1);
    });
    QObject::connect(m_tabs, &QTabBar::tabCloseRequested, this, [this](int index) {
        if (index >= 0 && static_cast<std::size_t>(index) < m_session->tabs().size()) {
            m_session->closeTab(m_session->tabs()[static_cast<std::size_t>(index)].id);
        }
    });
    QObject::connect(m_newTab, &QPushButton::clicked, this, [this] { m_session->newTab(""); });
    QObject::connect(m_run, &QPushButton::clicked, this, [this] {
        m_editor->flushEdits(); // a large script's latest edits, made here or through the find bar
        m_session->run();
    });
    QObject::connect(m_explain, &QPushButton::clicked, this, &QueryWorkspace::explain);
    QObject::connect(m_open, &QPushButton::clicked, this, [this] { m_session->importSQL(); });
    QObject::connect(m_save, &QPushButton::clicked, this, [this] {
        m_editor->flushEdits();
        m_session->saveQuery();
    });
    QObject::connect(m_export, &QPushButton::clicked, this, [this] { m_session->exportCSV(); });
    QObject::connect(m_editor, &SQLEditor::sqlEdited, this, [this](const QString &text) {
        // The edit belongs to the tab the editor was showing, even if another is active by now.
        m_editorText = text.toStdString();
        m_session->setTabSQL(m_editorTab, m_editorText);
    });
    QObject::connect(m_editor, &SQLEditor::editPending, this, [this] { m_session->markTabEdited(m_editorTab); });
    QObject::connect(m_editor, &SQLEditor::runRequested, this, [this](const std::optional<QString> &selection) {
        m_session->run(selection ? std::optional<std::string>(selection->toStdString()) : std::nullopt);
    });
    QObject::connect(m_resultPicker, &QComboBox::activated, this, [this](int index) {
        m_session->setTabResultIndex(m_session->activeTab(), index);
    });
    QObject::connect(
        m_grid, &NativeGrid::cellEdited, this, [this](std::int64_t row, std::int64_t column, const Cell &value) {
            m_session->editCell(row, column, value);
        });
    QObject::connect(
        m_grid, &NativeGrid::rowSelected, this, [this](std::int64_t row) { m_session->setSelectedRow(row); });

    QObject::connect(&session, &ServerSession::tabsChanged, this, [this] {
        refreshTabs();
        refreshEditor();
        refreshResult();
    });
    QObject::connect(&session, &ServerSession::activeTabChanged, this, [this] {
        refreshTabs();
        refreshEditor();
        refreshResult();
    });
    QObject::connect(&session, &ServerSession::selectedRowChanged, this, &QueryWorkspace::refreshResult);
    QObject::connect(&session, &ServerSession::busyChanged, this, &QueryWorkspace::refreshControls);
    QObject::connect(&session, &ServerSession::columnsChanged, this, &QueryWorkspace::refreshCompletions);
    QObject::connect(&session, &ServerSession::tablesChanged, this, &QueryWorkspace::refreshCompletions);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &QueryWorkspace::refreshCompletions);
    QObject::connect(&session, &ServerSession::databasesChanged, this, &QueryWorkspace::refreshCompletions);
    QObject::connect(&session, &ServerSession::catalogChanged, this, &QueryWorkspace::refreshCompletions);
    QObject::connect(m_editor, &SQLEditor::catalogNeeded, this, [this](const QString &database) {
        if (m_session) {
            m_session->requestCatalog(database.toStdString());
        }
    });
    refreshTabs();
    refreshEditor();
    refreshResult();
    refreshControls();
    refreshCompletions();
}

void QueryWorkspace::refreshTabs()
{
    if (!m_session) {
        return;
    }
    m_updatingTabs = true;
    const auto &tabs = m_session->tabs();
    while (m_tabs->count() > static_cast<int>(tabs.size())) {
        m_tabs->removeTab(m_tabs->count() - 1);
    }
    for (std::size_t i = 0; i < tabs.size(); ++i) {
        const QString title
            = QString::fromStdString(tabs[i].title) + (tabs[i].dirty ? QStringLiteral(" •") : QString());
        if (static_cast<int>(i) >= m_tabs->count()) {
            m_tabs->addTab(symbolIcon(Symbol::editor), title);
        } else if (m_tabs->tabText(static_cast<int>(i)) != title) {
            m_tabs->setTabText(static_cast<int>(i), title);
        }
        m_tabs->setTabToolTip(static_cast<int>(i), tabs[i].dirty ? QStringLiteral("Unsaved changes") : QString());
    }
    m_tabs->setCurrentIndex(static_cast<int>(m_session->tabIndex()));
    m_updatingTabs = false;
}

void QueryWorkspace::refreshEditor()
{
    const QueryTab *tab = m_session ? currentTab(*m_session) : nullptr;
    if (!tab) {
        return;
    }
    if (tab->id == m_editorTab && (m_editor->hasPendingEdit() || tab->sql == m_editorText)) {
        return; // the editor already shows this text, or newer typing not yet handed over
    }
    // Typing held back for the tab being left still belongs to that tab.
    m_editor->flushEdits();
    m_editorTab = tab->id;
    m_editorText = tab->sql;
    m_editor->setSQL(QString::fromStdString(tab->sql));
}

void QueryWorkspace::refreshResult()
{
    const QueryTab *tab = m_session ? currentTab(*m_session) : nullptr;
    if (!tab || !tab->result) {
        m_resultHeader->hide();
        m_resultArea->setCurrentWidget(m_emptyState);
        return;
    }
    const QueryResult &result = *tab->result;
    m_resultHeader->show();
    m_resultPicker->setVisible(tab->results.size() >= 2);
    if (tab->results.size() >= 2) {
        if (m_resultPicker->count() != static_cast<int>(tab->results.size())) {
            m_resultPicker->clear();
            for (std::size_t i = 0; i < tab->results.size(); ++i) {
                m_resultPicker->addItem(QString::asprintf("Statement %lld", static_cast<long long>(i + 1)));
            }
        }
        m_resultPicker->setCurrentIndex(static_cast<int>(tab->resultIndex));
    }
    m_counts->setText(QStringLiteral("%1 rows · %2 columns").arg(result.rows.size()).arg(result.fields.size()));
    m_limitNote->setVisible(result.truncated);
    const bool editable = !m_session->profile().readOnly && hasEditableField(result);
    m_editNote->setVisible(editable);
    m_time->setText(QStringLiteral("✓ ") + QString::asprintf("Completed in %.3fs", result.elapsed));
    m_grid->refresh(result, !m_session->profile().readOnly, m_session->selectedRow());
    m_resultArea->setCurrentWidget(m_grid);
}

void QueryWorkspace::refreshControls()
{
    const bool idle = m_session && !m_session->busy();
    m_run->setEnabled(idle);
    m_explain->setEnabled(idle);
    m_transaction->setEnabled(idle);
}

void QueryWorkspace::refreshCompletions()
{
    if (!m_session) {
        return;
    }
    QStringList words;
    for (const ColumnInfo &column : m_session->columns()) {
        words << QString::fromStdString(column.name);
    }
    if (!m_session->database().empty()) {
        words << QString::fromStdString(m_session->database());
        if (const auto tables = m_session->tables().find(m_session->database()); tables != m_session->tables().end()) {
            for (const TableInfo &table : tables->second) {
                words << QString::fromStdString(table.name);
            }
        }
    }
    m_editor->setCompletionWords(words);
    m_editor->setCatalog(m_session->catalog(), m_session->database());
}

void QueryWorkspace::explain()
{
    m_editor->flushEdits();
    const QueryTab *tab = currentTab(*m_session);
    if (!tab || m_session->busy()) {
        return;
    }
    m_session->newTab("EXPLAIN " + tab->sql, "Explain");
    m_session->run();
}

} // namespace tallowick
