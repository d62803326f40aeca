#include "ui/DatabaseNavigator.h"

#include "core/SqlQuoting.h"
#include "session/ServerSession.h"
#include "ui/Symbols.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

namespace
{

bool isView(const TableInfo &table)
{
    return QString::fromStdString(table.kind).contains(QStringLiteral("VIEW"), Qt::CaseInsensitive);
}

} // namespace

DatabaseNavigator::DatabaseNavigator(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_filter(new QLineEdit)
    , m_tree(new QTreeWidget)
{
    m_filter->setObjectName(QStringLiteral("navigatorFilter"));
    m_filter->setPlaceholderText(QStringLiteral("Filter databases & tables"));
    m_filter->setClearButtonEnabled(true);
    m_filter->addAction(symbolIcon(Symbol::filter), QLineEdit::LeadingPosition);

    m_tree->setObjectName(QStringLiteral("navigatorTree"));
    m_tree->setHeaderHidden(true);
    m_tree->setColumnCount(1);
    m_tree->setUniformRowHeights(true);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    // Expansion is this widget's own state (`m_expanded`), changed only through toggleDatabase,
    // so the view must not expand or collapse rows behind its back.
    m_tree->setItemsExpandable(false);
    m_tree->setExpandsOnDoubleClick(false);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->installEventFilter(this);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);
    layout->addWidget(m_filter);
    layout->addWidget(m_tree, 1);

    QObject::connect(m_filter, &QLineEdit::textChanged, this, &DatabaseNavigator::refresh);
    QObject::connect(m_tree, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem *item) { activate(item); });
    QObject::connect(m_tree, &QTreeWidget::customContextMenuRequested, this, &DatabaseNavigator::showContextMenu);
    QObject::connect(&session, &ServerSession::databasesChanged, this, &DatabaseNavigator::refresh);
    QObject::connect(&session, &ServerSession::tablesChanged, this, &DatabaseNavigator::refresh);
    QObject::connect(&session, &ServerSession::databaseChanged, this, &DatabaseNavigator::followCurrentDatabase);
    QObject::connect(&session, &ServerSession::selectedTableChanged, this, &DatabaseNavigator::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, [this] {
        if (m_session && !m_session->busy()) {
            m_opening = false;
        }
        refresh();
    });
    followCurrentDatabase();
}

void DatabaseNavigator::followCurrentDatabase()
{
    if (!m_session) {
        return;
    }
    // A database that becomes current (the profile's default, or one chosen elsewhere) opens
    // once; after that the user's own collapsing is respected.
    const std::string &current = m_session->database();
    if (current != m_currentDatabase) {
        m_currentDatabase = current;
        if (!current.empty()) {
            m_expanded.insert(current);
        }
    }
    refresh();
}

void DatabaseNavigator::refresh()
{
    m_tree->setUpdatesEnabled(false);
    const int scroll = m_tree->verticalScrollBar()->value();
    m_tree->clear();
    if (!m_session) {
        m_tree->setUpdatesEnabled(true);
        return;
    }

    const QString needle = m_filter->text();
    const auto matches = [&needle](const std::string &text) {
        return needle.isEmpty() || QString::fromStdString(text).contains(needle, Qt::CaseInsensitive);
    };
    // While a table is loading, the row just clicked stays highlighted rather than the old one.
    const bool opening = m_opening && m_session->busy();
    const std::string &highlightDatabase = opening ? m_lastOpenedDatabase : m_session->database();
    const std::string &highlightTable = opening ? m_lastOpened : m_session->selectedTable();
    QTreeWidgetItem *highlighted = nullptr;

    for (const std::string &database : m_session->databases()) {
        const auto loaded = m_session->tables().find(database);
        const std::vector<TableInfo> noTables;
        const std::vector<TableInfo> &tables = loaded == m_session->tables().end() ? noTables : loaded->second;
        const bool listed = matches(database)
            || std::any_of(tables.begin(), tables.end(), [&](const TableInfo &table) { return matches(table.name); });
        if (!listed) {
            continue;
        }
        auto *row = new QTreeWidgetItem(m_tree, { QString::fromStdString(database) });
        row->setIcon(0, symbolIcon(Symbol::database));
        row->setData(0, ItemKindRole, static_cast<int>(ItemKind::database));
        row->setData(0, DatabaseRole, QString::fromStdString(database));
        if (database == m_session->database()) {
            QFont font = row->font(0);
            font.setBold(true);
            row->setFont(0, font);
            row->setToolTip(0, QStringLiteral("Current database"));
        }
        if (!isExpanded(database)) {
            row->setChildIndicatorPolicy(QTreeWidgetItem::ShowIndicator);
            continue;
        }
        for (const TableInfo &table : tables) {
            if (!matches(table.name)) {
                continue;
            }
            const bool view = isView(table);
            auto *child = new QTreeWidgetItem(row, { QString::fromStdString(table.name) });
            child->setIcon(0, symbolIcon(view ? Symbol::view : Symbol::table));
            child->setData(0, ItemKindRole, static_cast<int>(view ? ItemKind::view : ItemKind::table));
            child->setData(0, DatabaseRole, QString::fromStdString(database));
            child->setData(0, TableRole, QString::fromStdString(table.name));
            if (database == highlightDatabase && table.name == highlightTable) {
                highlighted = child;
            }
        }
        if (row->childCount() == 0) {
            auto *placeholder = new QTreeWidgetItem(row, { QStringLiteral("No tables") });
            placeholder->setData(0, ItemKindRole, static_cast<int>(ItemKind::placeholder));
            placeholder->setFlags(Qt::NoItemFlags);
        }
        row->setExpanded(true);
    }
    if (highlighted) {
        m_tree->setCurrentItem(highlighted);
    }
    m_tree->verticalScrollBar()->setValue(scroll);
    m_tree->setUpdatesEnabled(true);
}

void DatabaseNavigator::activate(const QTreeWidgetItem *item)
{
    if (!item) {
        return;
    }
    // Copies: the calls below refresh the tree, which deletes `item`.
    const auto kind = static_cast<ItemKind>(item->data(0, ItemKindRole).toInt());
    const std::string database = item->data(0, DatabaseRole).toString().toStdString();
    const std::string table = item->data(0, TableRole).toString().toStdString();
    switch (kind) {
    case ItemKind::database:
        toggleDatabase(database);
        break;
    case ItemKind::table:
    case ItemKind::view:
        openTable(database, table);
        break;
    case ItemKind::placeholder:
        break;
    }
}

void DatabaseNavigator::toggleDatabase(const std::string &database)
{
    if (!m_session) {
        return;
    }
    if (m_expanded.erase(database) > 0) {
        refresh(); // collapsing is purely local
        return;
    }
    m_expanded.insert(database);
    if (database != m_session->database()) {
        m_session->chooseDatabase(database);
    } else if (!m_session->busy()) {
        const auto loaded = m_session->tables().find(database);
        if (loaded == m_session->tables().end() || loaded->second.empty()) {
            m_session->loadTables(database);
        }
    }
    refresh();
}

void DatabaseNavigator::openTable(const std::string &database, const std::string &table)
{
    // The session would drop the request anyway; saying it was opened would be a lie.
    if (!m_session || m_session->busy()) {
        return;
    }
    m_lastOpenedDatabase = database;
    m_lastOpened = table;
    m_opening = true;
    m_session->selectTable(table, database);
    Q_EMIT tableOpened(QString::fromStdString(table));
    refresh();
}

QList<QAction *> DatabaseNavigator::tableActions(const std::string &database, const std::string &table, QObject *owner)
{
    auto *open = new QAction(QStringLiteral("Open data"), owner);
    QObject::connect(open, &QAction::triggered, this, [this, database, table] { openTable(database, table); });

    auto *select = new QAction(QStringLiteral("SELECT in new tab"), owner);
    QObject::connect(select, &QAction::triggered, this, [this, database, table] {
        if (m_session) {
            m_session->newTab("SELECT * FROM " + SQL::qualified(database, table) + "\nLIMIT 500;", table);
            // A tab opened behind the data view would look as if nothing happened.
            m_session->setMode(WorkspaceMode::query);
        }
    });

    auto *copy = new QAction(QStringLiteral("Copy qualified name"), owner);
    QObject::connect(copy, &QAction::triggered, this, [database, table] {
        QGuiApplication::clipboard()->setText(QString::fromStdString(SQL::qualified(database, table)));
    });
    return { open, select, copy };
}

void DatabaseNavigator::showContextMenu(const QPoint &position)
{
    const QTreeWidgetItem *item = m_tree->itemAt(position);
    if (!item) {
        return;
    }
    const auto kind = static_cast<ItemKind>(item->data(0, ItemKindRole).toInt());
    if (kind != ItemKind::table && kind != ItemKind::view) {
        return;
    }
    const std::string database = item->data(0, DatabaseRole).toString().toStdString();
    const std::string table = item->data(0, TableRole).toString().toStdString();
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addActions(tableActions(database, table, menu));
    menu->popup(m_tree->viewport()->mapToGlobal(position));
}

bool DatabaseNavigator::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_tree && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            activate(m_tree->currentItem());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace tallowick
