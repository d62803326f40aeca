#pragma once

#include "core/QueryResult.h"

#include <QAbstractTableModel>
#include <QString>
#include <cstdint>

namespace tallowick
{

// Serves one QueryResult to a table view: one column per field (the logical column is the field
// index, whatever order the user drags the columns into) and one row per result row. A cell
// becomes a QString only when the view asks for it, so a view pays for the cells on screen and
// the row count is the only thing computed for the whole result.
//
// The model never writes to its result: an edit leaves through the grid, the host applies it
// through the session and hands in a new result.
class ResultTableModel final : public QAbstractTableModel
{
    Q_OBJECT

public:
    explicit ResultTableModel(QObject *parent = nullptr);

    const QueryResult &result() const { return m_result; }
    bool gridEditable() const { return m_editable; }

    // Takes a new result with a model reset.
    void reload(const QueryResult &result, bool editable);
    // Takes a result whose rows and editable flag equal the current ones without a reset, so
    // the view keeps its selection, scroll position and any open editor. Header texts are
    // refreshed if the field metadata changed.
    void adoptSameRows(const QueryResult &result);

    bool contains(std::int64_t row, std::int64_t field) const;
    // Whether a cell of this field may be edited or set to NULL: the grid must be editable and
    // the field must come from a real base-table column.
    bool isFieldEditable(std::int64_t field) const;
    // The text a cell shows, "NULL" for SQL NULL; also the baseline an edit is compared with.
    QString cellText(std::int64_t row, std::int64_t field) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QueryResult m_result;
    bool m_editable = false;
};

} // namespace tallowick
