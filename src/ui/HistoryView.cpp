#include "ui/HistoryView.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"

#include <QFontDatabase>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTableWidget>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

constexpr int sqlColumn = 3;

QString oneLine(const std::string &sql)
{
    return QString::fromStdString(sql).simplified();
}

} // namespace

HistoryView::HistoryView(AppStore &store, ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_store(&store)
    , m_session(&session)
    , m_filter(new QLineEdit)
    , m_list(new QTableWidget)
{
    m_filter->setPlaceholderText(QStringLiteral("Filter history"));
    m_filter->setClearButtonEnabled(true);
    m_list->setColumnCount(7);
    m_list->setHorizontalHeaderLabels({ QStringLiteral("When"),
        QStringLiteral("Connection"),
        QStringLiteral("Database"),
        QStringLiteral("SQL"),
        QStringLiteral("Time"),
        QStringLiteral("Rows"),
        QStringLiteral("Error") });
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setAlternatingRowColors(true);
    m_list->verticalHeader()->hide();
    m_list->verticalHeader()->setDefaultSectionSize(30);
    m_list->horizontalHeader()->setSectionResizeMode(sqlColumn, QHeaderView::Stretch);
    m_list->setColumnWidth(0, 150);

    auto *hint = new QLabel(QStringLiteral("Double-click an entry to open its SQL in a new tab"));
    hint->setStyleSheet(QStringLiteral("color: palette(mid);"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addWidget(m_filter);
    layout->addWidget(m_list, 1);
    layout->addWidget(hint);

    QObject::connect(m_filter, &QLineEdit::textChanged, this, &HistoryView::refresh);
    QObject::connect(m_list, &QTableWidget::cellDoubleClicked, this, [this](int row, int) { openEntry(row); });
    QObject::connect(&store, &AppStore::historyChanged, this, &HistoryView::refresh);
    refresh();
}

void HistoryView::refresh()
{
    if (!m_store) {
        return;
    }
    const QString wanted = m_filter->text();
    m_list->setRowCount(0);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    for (std::size_t index = 0; index < m_store->history().size(); ++index) {
        const QueryLog &entry = m_store->history()[index];
        const QStringList cells {
            entry.date.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")),
            QString::fromStdString(entry.connection),
            QString::fromStdString(entry.database),
            oneLine(entry.sql),
            QString::asprintf("%.3fs", entry.elapsed),
            QString::number(entry.rows),
            entry.error ? QString::fromStdString(*entry.error) : QString(),
        };
        if (!wanted.isEmpty() && std::none_of(cells.begin(), cells.end(), [&wanted](const QString &cell) {
                return cell.contains(wanted, Qt::CaseInsensitive);
            })) {
            continue;
        }
        const int row = m_list->rowCount();
        m_list->insertRow(row);
        for (int column = 0; column < cells.size(); ++column) {
            auto *item = new QTableWidgetItem(cells[column]);
            item->setData(Qt::UserRole, static_cast<qulonglong>(index));
            if (column == sqlColumn) {
                item->setFont(fixed);
                item->setToolTip(QString::fromStdString(entry.sql));
            }
            m_list->setItem(row, column, item);
        }
    }
}

void HistoryView::openEntry(int row)
{
    const QTableWidgetItem *item = m_list->item(row, 0);
    if (!item || !m_store || !m_session) {
        return;
    }
    const auto index = item->data(Qt::UserRole).toULongLong();
    if (index >= m_store->history().size()) {
        return;
    }
    m_session->newTab(m_store->history()[index].sql);
    m_session->setMode(WorkspaceMode::query);
}

} // namespace tallowick
