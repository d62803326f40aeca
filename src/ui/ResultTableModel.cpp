#include "ui/ResultTableModel.h"

#include "core/MainThread.h"

#include <QGuiApplication>
#include <QPalette>
#include <algorithm>
#include <climits>
#include <utility>

namespace tallowick
{

namespace
{

int clampedCount(std::size_t count)
{
    return static_cast<int>(std::min<std::size_t>(count, INT_MAX));
}

QString fieldOrigin(const Field &field)
{
    return QString::fromStdString(field.database + "." + field.table + "." + field.originalName);
}

} // namespace

ResultTableModel::ResultTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

void ResultTableModel::reload(const QueryResult &result, bool editable)
{
    beginResetModel();
    releaseInBackground(std::exchange(m_result, result));
    m_editable = editable;
    endResetModel();
}

void ResultTableModel::adoptSameRows(const QueryResult &result)
{
    Q_ASSERT(result.rows == m_result.rows);
    if (result == m_result) {
        return; // the usual case: the host refreshed for some other reason
    }
    const bool headersChanged = result.fields != m_result.fields;
    m_result = result;
    if (headersChanged && !m_result.fields.empty()) {
        Q_EMIT headerDataChanged(Qt::Horizontal, 0, columnCount() - 1);
    }
}

bool ResultTableModel::contains(std::int64_t row, std::int64_t field) const
{
    return row >= 0 && field >= 0 && static_cast<std::uint64_t>(row) < m_result.rows.size()
        && static_cast<std::uint64_t>(field) < m_result.fields.size();
}

bool ResultTableModel::isFieldEditable(std::int64_t field) const
{
    return m_editable && field >= 0 && static_cast<std::uint64_t>(field) < m_result.fields.size()
        && m_result.fields[static_cast<std::size_t>(field)].editable();
}

QString ResultTableModel::cellText(std::int64_t row, std::int64_t field) const
{
    if (!contains(row, field)) {
        return {};
    }
    const Cell &cell = m_result.rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(field)];
    return cell ? QString::fromStdString(*cell) : QStringLiteral("NULL");
}

int ResultTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : clampedCount(m_result.rows.size());
}

int ResultTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : clampedCount(m_result.fields.size());
}

QVariant ResultTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || !contains(index.row(), index.column())) {
        return {};
    }
    const auto row = static_cast<std::size_t>(index.row());
    const auto field = static_cast<std::size_t>(index.column());
    const Cell &cell = m_result.rows[row][field];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return cell ? QString::fromStdString(*cell) : QStringLiteral("NULL");
    case Qt::ToolTipRole:
        return cell ? QString::fromStdString(*cell) : QStringLiteral("SQL NULL");
    case Qt::ForegroundRole:
        if (!cell) {
            return QGuiApplication::palette().color(QPalette::PlaceholderText);
        }
        return {};
    case Qt::AccessibleTextRole:
        return QStringLiteral("%1, row %2").arg(QString::fromStdString(m_result.fields[field].name)).arg(row + 1);
    default:
        return {};
    }
}

QVariant ResultTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    if (section < 0 || static_cast<std::size_t>(section) >= m_result.fields.size()) {
        return {};
    }
    const Field &field = m_result.fields[static_cast<std::size_t>(section)];
    switch (role) {
    case Qt::DisplayRole: {
        const QString name = QString::fromStdString(field.name);
        // U+26BF SQUARED KEY marks the primary-key columns.
        return field.primary ? QStringLiteral("\u26BF ") + name : name;
    }
    case Qt::ToolTipRole:
        return field.editable() ? fieldOrigin(field) : QStringLiteral("Calculated or metadata column");
    case Qt::AccessibleTextRole:
        return QString::fromStdString(field.name);
    default:
        return {};
    }
}

Qt::ItemFlags ResultTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    if (isFieldEditable(index.column())) {
        flags |= Qt::ItemIsEditable;
    }
    return flags;
}

} // namespace tallowick
