#include "ui/NativeGrid.h"

#include "core/Csv.h"
#include "ui/ResultTableModel.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QFocusEvent>
#include <QFontDatabase>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QScopedValueRollback>
#include <QStyle>
#include <QStyledItemDelegate>
#include <algorithm>
#include <functional>
#include <limits>

namespace tallowick
{

namespace
{

constexpr int fixedRowHeight = 33;
// A new column is as wide as its title and the first rows' values need, within these bounds: a
// one-digit column stays findable, and one long text cannot push the others off screen.
constexpr int narrowestColumn = 60;
constexpr int widestColumn = 360;
constexpr int sampledRows = 50;
// The delegate's text margins on both sides and the grid line.
constexpr int cellPadding = 18;
// Every size of the grid is in device-independent pixels, the type included: 14 px monospace is
// what the 33 px rows are proportioned for.
constexpr int cellFontSize = 14;
constexpr int headerFontSize = 13;
constexpr double gridLineOpacity = 0.35;
// A cell is one elided line; laying out more text than the widest column could show only costs
// time on values such as whole documents.
constexpr qsizetype shownCharacters = 1024;
// More than the widest column holds at any readable size; measuring beyond it changes nothing.
constexpr qsizetype measuredCharacters = 80;

// The one line a cell shows for `text`: cut after shownCharacters, line breaks as spaces, since a
// second line would be clipped by the row.
QString oneLine(QString text)
{
    if (text.size() > shownCharacters) {
        qsizetype cut = shownCharacters;
        if (text.at(cut - 1).isHighSurrogate()) {
            --cut;
        }
        text.truncate(cut);
        text.append(QChar(0x2026));
    }
    if (text.contains(QLatin1Char('\n')) || text.contains(QLatin1Char('\r'))) {
        text.replace(QStringLiteral("\r\n"), QStringLiteral(" "));
        text.replace(QLatin1Char('\n'), QLatin1Char(' '));
        text.replace(QLatin1Char('\r'), QLatin1Char(' '));
    }
    return text;
}

// The in-place editor remembers which cell it edits and the text the cell showed, which is the
// baseline for deciding whether anything changed.
class GridCellEditor final : public QLineEdit
{
public:
    using QLineEdit::QLineEdit;

    int row = -1;
    int field = -1;
    QString original;
};

class GridDelegate final : public QStyledItemDelegate
{
public:
    using EditFinished = std::function<void(int row, int field, const QString &text)>;

    GridDelegate(EditFinished finished, QObject *parent)
        : QStyledItemDelegate(parent)
        , m_finished(std::move(finished))
    {
    }

    QString displayText(const QVariant &value, const QLocale &) const override { return oneLine(value.toString()); }

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &) const override
    {
        auto *editor = new GridCellEditor(parent);
        editor->setFrame(false);
        // QLineEdit cuts text at 32767 characters by default, which would turn opening a long
        // value into an edit that truncates it.
        editor->setMaxLength(std::numeric_limits<int>::max());
        return editor;
    }

    void setEditorData(QWidget *widget, const QModelIndex &index) const override
    {
        auto *editor = dynamic_cast<GridCellEditor *>(widget);
        if (!editor) {
            QStyledItemDelegate::setEditorData(widget, index);
            return;
        }
        editor->row = index.row();
        editor->field = index.column();
        editor->original = index.data(Qt::EditRole).toString();
        editor->setText(editor->original);
        editor->selectAll();
    }

    void setModelData(QWidget *widget, QAbstractItemModel *, const QModelIndex &) const override
    {
        auto *editor = dynamic_cast<GridCellEditor *>(widget);
        if (!editor || editor->text() == editor->original) {
            return;
        }
        const QString text = editor->text();
        editor->original = text; // a second commit of the same editor sends nothing more
        m_finished(editor->row, editor->field, text);
    }

protected:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        // Switching to another window, or the window closing, leaves the edit open instead of
        // saving it: only the user's own move within the window (Enter, Tab, a click elsewhere)
        // confirms a change, and nothing reaches a host that is being torn down.
        if (event->type() == QEvent::FocusOut
            && static_cast<QFocusEvent *>(event)->reason() == Qt::ActiveWindowFocusReason) {
            return false;
        }
        return QStyledItemDelegate::eventFilter(object, event);
    }

private:
    EditFinished m_finished;
};

void putOnClipboard(const QString &text)
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}

} // namespace

NativeGrid::NativeGrid(QWidget *parent)
    : QTableView(parent)
    , m_model(new ResultTableModel(this))
{
    setModel(m_model);
    setItemDelegate(
        new GridDelegate([this](int row, int field, const QString &text) { finishEdit(row, field, text); }, this));

    QFont cellFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    cellFont.setFamilies(cellFont.families());
    cellFont.setPixelSize(cellFontSize);
    cellFont.setWeight(QFont::Normal);
    setFont(cellFont);

    setEditTriggers(QAbstractItemView::DoubleClicked);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAlternatingRowColors(true);
    setShowGrid(false); // vertical lines only, drawn in paintEvent
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    setSortingEnabled(false);
    setCornerButtonEnabled(false);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);

    // Fixed, uniform rows let the view find any row by arithmetic instead of asking for sizes.
    QHeaderView *rows = verticalHeader();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setMinimumSectionSize(fixedRowHeight);
    rows->setDefaultSectionSize(fixedRowHeight);
    rows->hide();

    QHeaderView *columns = horizontalHeader();
    QFont headerFont = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    headerFont.setFamilies(headerFont.families()); // set explicitly, or it inherits the cells' font
    headerFont.setPixelSize(headerFontSize);
    headerFont.setWeight(QFont::Medium);
    columns->setFont(headerFont);
    columns->setSectionsMovable(true);
    columns->setSectionsClickable(true);
    columns->setSortIndicatorShown(false); // ordering is the session's business
    columns->setHighlightSections(false);
    columns->setStretchLastSection(false);
    columns->setSectionResizeMode(QHeaderView::Interactive);
    columns->setMinimumSectionSize(narrowestColumn);
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    columns->setTextElideMode(Qt::ElideRight);

    QObject::connect(columns, &QHeaderView::sectionClicked, this, [this](int field) {
        if (field < 0 || static_cast<std::size_t>(field) >= m_model->result().fields.size()) {
            return;
        }
        // A copy: a host that refreshes from the slot replaces the result under a reference.
        const std::string name = m_model->result().fields[static_cast<std::size_t>(field)].name;
        Q_EMIT sortRequested(name);
    });
    QObject::connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!m_refreshing) {
            Q_EMIT rowSelected(selectedRow());
        }
    });
}

void NativeGrid::refresh(const QueryResult &result, bool editable, std::int64_t selectedRow)
{
    // Selection changes made here only mirror what the host asked for. Echoing them through
    // rowSelected would tell the host what it already knows, and a host that stores the row and
    // refreshes again would re-enter this function from inside a model reset.
    const QScopedValueRollback<bool> guard(m_refreshing, true);

    const QueryResult &current = m_model->result();
    const bool sameColumns
        = m_model->columnCount() == static_cast<int>(result.fields.size()) && m_fieldNames == result.columnNames();
    const bool sameRows = result.id == current.id && editable == m_model->gridEditable() && result.rows == current.rows;

    if (sameColumns && sameRows) {
        m_model->adoptSameRows(result);
    } else if (sameColumns) {
        // The header keeps its sections across a reset with the same column count, so the
        // user's widths and order survive. The selected row survives too when it still exists.
        const std::int64_t kept = this->selectedRow();
        m_model->reload(result, editable);
        if (kept >= 0 && kept < m_model->rowCount()) {
            selectRowQuietly(kept);
        }
    } else {
        m_model->reload(result, editable);
        m_fieldNames = result.columnNames();
        resetColumns();
    }
    syncSelection(selectedRow);
}

const QueryResult &NativeGrid::result() const
{
    return m_model->result();
}

std::int64_t NativeGrid::selectedRow() const
{
    const QModelIndexList selected = selectionModel()->selectedRows();
    return selected.isEmpty() ? -1 : selected.first().row();
}

std::unique_ptr<QMenu> NativeGrid::contextMenuFor(std::int64_t row, std::int64_t field)
{
    if (!m_model->contains(row, field)) {
        return nullptr;
    }
    auto menu = std::make_unique<QMenu>();
    // Each action checks its target again: the host may hand in a smaller result while the menu
    // is open, and a stale cell is then ignored rather than misread.
    QAction *copyCellAction = menu->addAction(QStringLiteral("Copy cell"));
    QObject::connect(copyCellAction, &QAction::triggered, this, [this, row, field] { copyCell(row, field); });
    QAction *copyRowAction = menu->addAction(QStringLiteral("Copy row as CSV"));
    QObject::connect(copyRowAction, &QAction::triggered, this, [this, row] { copyRow(row); });
    if (m_model->isFieldEditable(field)) {
        menu->addSeparator();
        QAction *setNull = menu->addAction(QStringLiteral("Set to NULL"));
        QObject::connect(setNull, &QAction::triggered, this, [this, row, field] {
            if (m_model->contains(row, field) && m_model->isFieldEditable(field)) {
                Q_EMIT cellEdited(row, field, Cell());
            }
        });
    }
    return menu;
}

void NativeGrid::contextMenuEvent(QContextMenuEvent *event)
{
    int row = -1;
    int column = -1;
    QPoint globalPos = event->globalPos();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        const QModelIndex current = currentIndex();
        row = current.row();
        column = current.column();
        globalPos = viewport()->mapToGlobal(visualRect(current).center());
    } else {
        row = rowAt(event->pos().y());
        column = columnAt(event->pos().x());
    }
    event->accept();
    if (row < 0) {
        return;
    }
    // The menu always acts on a visibly selected row. This is the user's doing, so the host
    // hears about it through rowSelected.
    if (selectedRow() != row && m_model->columnCount() > 0) {
        selectionModel()->setCurrentIndex(
            m_model->index(row, std::max(column, 0)), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    // columnAt already answers with the logical column, which is the field index.
    const std::unique_ptr<QMenu> menu = contextMenuFor(row, column);
    if (menu) {
        menu->exec(globalPos);
    }
}

void NativeGrid::paintEvent(QPaintEvent *event)
{
    QTableView::paintEvent(event);
    const QHeaderView *header = horizontalHeader();
    if (header->count() == 0) {
        return;
    }
    QColor line = palette().color(QPalette::Mid);
    line.setAlphaF(gridLineOpacity);
    QPainter painter(viewport());
    painter.setPen(line);
    const QRect area = event->rect();
    int first = header->visualIndexAt(area.left());
    int last = header->visualIndexAt(area.right());
    first = first < 0 ? 0 : first;
    last = last < 0 ? header->count() - 1 : last;
    for (int visual = first; visual <= last; ++visual) {
        const int logical = header->logicalIndex(visual);
        if (header->isSectionHidden(logical)) {
            continue;
        }
        const int x = header->sectionViewportPosition(logical) + header->sectionSize(logical) - 1;
        painter.drawLine(x, area.top(), x, area.bottom());
    }
}

void NativeGrid::showSortOrder(const std::string &column, bool descending)
{
    QHeaderView *header = horizontalHeader();
    const std::vector<Field> &fields = m_model->result().fields;
    const auto found
        = std::find_if(fields.begin(), fields.end(), [&column](const Field &field) { return field.name == column; });
    if (column.empty() || found == fields.end()) {
        header->setSortIndicatorShown(false);
        return;
    }
    header->setSortIndicator(
        static_cast<int>(found - fields.begin()), descending ? Qt::DescendingOrder : Qt::AscendingOrder);
    header->setSortIndicatorShown(true);
}

int NativeGrid::fittingWidth(int field) const
{
    // The title keeps room for the sort mark, so sorting by a column never cuts its title.
    const QHeaderView *header = horizontalHeader();
    const int headerMargin = style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, header);
    const int sortMark = style()->pixelMetric(QStyle::PM_HeaderMarkSize, nullptr, header);
    const QString title = m_model->headerData(field, Qt::Horizontal).toString();
    int width = header->fontMetrics().horizontalAdvance(title) + 3 * headerMargin + sortMark;
    const int rows = std::min(m_model->rowCount(), sampledRows);
    for (int row = 0; row < rows && width < widestColumn; ++row) {
        const QString shown = oneLine(m_model->cellText(row, field).left(measuredCharacters));
        width = std::max(width, fontMetrics().horizontalAdvance(shown) + cellPadding);
    }
    return std::clamp(width, narrowestColumn, widestColumn);
}

void NativeGrid::resetColumns()
{
    // A reset keeps the header's sections when the count matches, so a different set of
    // columns has to be put back in field order and at fitting widths by hand.
    QHeaderView *header = horizontalHeader();
    for (int field = 0; field < header->count(); ++field) {
        const int visual = header->visualIndex(field);
        if (visual != field) {
            header->moveSection(visual, field);
        }
        header->resizeSection(field, fittingWidth(field));
    }
}

void NativeGrid::selectRowQuietly(std::int64_t row)
{
    Q_ASSERT(m_refreshing);
    if (m_model->columnCount() == 0) {
        return;
    }
    const int column = std::max(currentIndex().column(), 0);
    selectionModel()->setCurrentIndex(
        m_model->index(static_cast<int>(row), column), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void NativeGrid::syncSelection(std::int64_t selectedRow)
{
    const int rows = m_model->rowCount();
    if (selectedRow >= 0 && selectedRow < rows && this->selectedRow() != selectedRow) {
        selectRowQuietly(selectedRow);
    }
    if (rows == 0) {
        selectionModel()->clear();
    }
}

NativeGrid::~NativeGrid()
{
    // An edit still open when the grid goes away is abandoned, not saved: the host that would
    // receive it is being torn down too.
    if (QWidget *editor = indexWidget(currentIndex())) {
        closeEditor(editor, QAbstractItemDelegate::NoHint);
    }
    blockSignals(true);
}

void NativeGrid::finishEdit(int row, int field, const QString &text)
{
    if (!m_model->contains(row, field)) {
        return;
    }
    const Cell value = text.toStdString();
    Q_EMIT cellEdited(row, field, value);
}

void NativeGrid::copyCell(std::int64_t row, std::int64_t field) const
{
    if (m_model->contains(row, field)) {
        putOnClipboard(m_model->cellText(row, field));
    }
}

void NativeGrid::copyRow(std::int64_t row) const
{
    const QueryResult &result = m_model->result();
    if (row < 0 || static_cast<std::size_t>(row) >= result.rows.size()) {
        return;
    }
    QueryResult single;
    single.fields = result.fields;
    // The copy is everything after the header line. Measuring the header, rather than cutting at
    // the first CR LF, keeps a column name that itself holds a line break out of the copy.
    const std::size_t headerLength = SQL::csv(single).size();
    single.rows.push_back(result.rows[static_cast<std::size_t>(row)]);
    putOnClipboard(QString::fromStdString(SQL::csv(single).substr(headerLength)));
}

} // namespace tallowick
