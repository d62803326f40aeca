#pragma once

#include "core/QueryResult.h"

#include <QTableView>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class QMenu;

namespace tallowick
{

class ResultTableModel;

// The one table that shows every row set of the program: a browsed table page, a statement's
// result, the administration lists. It is a thin view over a QueryResult that never talks to
// the server; a cell edit, a "Set to NULL", a selection and a header click leave through the
// signals and the host turns them into session calls.
//
// Columns are identified by field index (the model's logical column) and never by their
// on-screen position, because the user may drag them into any order.
class NativeGrid : public QTableView
{
    Q_OBJECT

public:
    explicit NativeGrid(QWidget *parent = nullptr);
    ~NativeGrid() override;

    // The host hands in a new value on every refresh. The same result (id, rows and editable
    // flag) reloads nothing; a result with the same column names reloads rows but keeps the
    // user's column widths and order; anything else rebuilds the columns, each as wide as its
    // title and its first rows' values need (within bounds).
    // A selectedRow inside the result selects that row; one outside it (while rows exist)
    // leaves the user's selection alone, so a host that has not caught up does not wipe it.
    void refresh(const QueryResult &result, bool editable, std::int64_t selectedRow);
    const QueryResult &result() const;

    // Marks the column named `column` (its first field of that name) as the one the rows are
    // sorted by; an empty name, or one the result lacks, shows no mark. The grid never sorts:
    // the host says how the rows it handed in are ordered.
    void showSortOrder(const std::string &column, bool descending);

    // The selected row, -1 when none.
    std::int64_t selectedRow() const;

    // The right-click menu for the cell at (row, field index); nullptr when either is out of
    // range. The caller owns the menu; its actions act on this grid.
    std::unique_ptr<QMenu> contextMenuFor(std::int64_t row, std::int64_t field);

Q_SIGNALS:
    // value is the new text of an in-place edit (always present, "" when cleared and the text
    // "NULL" when typed), or nullopt for "Set to NULL".
    void cellEdited(std::int64_t row, std::int64_t column, const tallowick::Cell &value);
    void rowSelected(std::int64_t row);
    void sortRequested(const std::string &columnName);

protected:
    void contextMenuEvent(QContextMenuEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void resetColumns();
    int fittingWidth(int field) const;
    void selectRowQuietly(std::int64_t row);
    void syncSelection(std::int64_t selectedRow);
    void finishEdit(int row, int field, const QString &text);
    void copyCell(std::int64_t row, std::int64_t field) const;
    void copyRow(std::int64_t row) const;

    ResultTableModel *m_model;
    std::vector<std::string> m_fieldNames; // the names the current columns were built for
    bool m_refreshing = false;
};

} // namespace tallowick
