#include "ui/ColumnDraftEditor.h"

#include "management/ManagementSQL.h"
#include "ui/FormParts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

enum GridColumn { nameColumn, typeColumn, nullableColumn, primaryColumn, autoColumn, defaultColumn, removeColumn };

QLabel *heading(const QString &text)
{
    auto *label = new QLabel(text);
    useSecondaryText(label);
    return label;
}

} // namespace

ColumnDraftEditor::ColumnDraftEditor(const std::vector<ColumnDraft> &drafts, bool growable, QWidget *parent)
    : QWidget(parent)
    , m_growable(growable)
    , m_grid(new QGridLayout)
    , m_headings {
        heading(QStringLiteral("Name")), heading(QStringLiteral("Type")), heading(QStringLiteral("Default"))
    }
{
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(0, 0, 0, 0);
    m_grid->setHorizontalSpacing(8);
    m_grid->setColumnStretch(nameColumn, 2);
    m_grid->setColumnStretch(typeColumn, 2);
    m_grid->setColumnStretch(defaultColumn, 2);
    root->addLayout(m_grid);
    if (m_growable) {
        m_add = new QPushButton(QStringLiteral("Add column"));
        QObject::connect(m_add, &QPushButton::clicked, this, [this] { addRow(); });
        auto *buttons = new QHBoxLayout;
        buttons->addWidget(m_add);
        buttons->addStretch(1);
        root->addLayout(buttons);
    }
    for (const ColumnDraft &draft : drafts) {
        addRow(draft);
    }
}

ColumnDraft ColumnDraftEditor::newColumn()
{
    ColumnDraft draft;
    draft.type = "VARCHAR(255)";
    return draft;
}

std::vector<ColumnDraft> ColumnDraftEditor::drafts() const
{
    std::vector<ColumnDraft> result;
    result.reserve(m_rows.size());
    for (const RowWidgets &row : m_rows) {
        ColumnDraft draft;
        draft.id = row.id;
        draft.name = row.name->text().toStdString();
        draft.type = row.type->currentText().toStdString();
        draft.nullable = row.nullable->isChecked();
        draft.primary = row.primary->isChecked();
        draft.autoIncrement = row.autoIncrement->isChecked();
        draft.defaultValue = row.defaultValue->text().toStdString();
        result.push_back(std::move(draft));
    }
    return result;
}

void ColumnDraftEditor::addRow(const ColumnDraft &draft)
{
    RowWidgets row {};
    row.id = draft.id;
    row.name = new QLineEdit(QString::fromStdString(draft.name));
    row.name->setPlaceholderText(QStringLiteral("column_name"));
    row.name->setMinimumWidth(130);
    row.type = new QComboBox;
    row.type->setEditable(true);
    row.type->setInsertPolicy(QComboBox::NoInsert);
    for (const std::string &type : typeSuggestions()) {
        row.type->addItem(QString::fromStdString(type));
    }
    row.type->setCurrentText(QString::fromStdString(draft.type));
    row.nullable = new QCheckBox(QStringLiteral("Nullable"));
    row.nullable->setChecked(draft.nullable);
    row.primary = new QCheckBox(QStringLiteral("Primary"));
    row.primary->setChecked(draft.primary);
    if (!m_growable) {
        // Adding or changing one column never adds or drops a key, so the box only shows it.
        row.primary->setEnabled(false);
        row.primary->setToolTip(QStringLiteral("Change primary keys in the SQL editor."));
    }
    row.autoIncrement = new QCheckBox(QStringLiteral("Auto increment"));
    row.autoIncrement->setChecked(draft.autoIncrement);
    row.defaultValue = new QLineEdit(QString::fromStdString(draft.defaultValue));
    row.defaultValue->setPlaceholderText(QStringLiteral("No default"));
    row.defaultValue->setMinimumWidth(110);
    if (m_growable) {
        row.remove = new QPushButton(QStringLiteral("Remove"));
        const QUuid id = row.id;
        QObject::connect(row.remove, &QPushButton::clicked, this, [this, id] {
            for (std::size_t index = 0; index < m_rows.size(); ++index) {
                if (m_rows[index].id == id) {
                    removeRow(static_cast<int>(index));
                    return;
                }
            }
        });
    }

    QObject::connect(row.name, &QLineEdit::textChanged, this, &ColumnDraftEditor::edited);
    QObject::connect(row.type, &QComboBox::currentTextChanged, this, &ColumnDraftEditor::edited);
    QObject::connect(row.nullable, &QCheckBox::toggled, this, &ColumnDraftEditor::edited);
    QObject::connect(row.primary, &QCheckBox::toggled, this, [this, row] {
        showPrimaryImpliesNotNull(row);
        Q_EMIT edited();
    });
    QObject::connect(row.autoIncrement, &QCheckBox::toggled, this, &ColumnDraftEditor::edited);
    QObject::connect(row.defaultValue, &QLineEdit::textChanged, this, &ColumnDraftEditor::edited);

    showPrimaryImpliesNotNull(row);
    m_rows.push_back(row);
    layOutRows();
    Q_EMIT edited();
}

void ColumnDraftEditor::removeRow(int row)
{
    if (row < 0 || static_cast<std::size_t>(row) >= m_rows.size()) {
        return;
    }
    const RowWidgets removed = m_rows[static_cast<std::size_t>(row)];
    m_rows.erase(m_rows.begin() + row);
    for (QWidget *widget : std::initializer_list<QWidget *> { removed.name,
             removed.type,
             removed.nullable,
             removed.primary,
             removed.autoIncrement,
             removed.defaultValue,
             removed.remove }) {
        if (widget) {
            m_grid->removeWidget(widget);
            widget->deleteLater();
            widget->hide();
        }
    }
    layOutRows();
    Q_EMIT edited();
}

// A primary-key column is always NOT NULL, so its Nullable box is cleared and locked rather
// than left claiming something the statement will not say.
void ColumnDraftEditor::showPrimaryImpliesNotNull(const RowWidgets &row)
{
    const bool primary = row.primary->isChecked();
    if (primary) {
        row.nullable->setChecked(false);
    }
    row.nullable->setEnabled(!primary);
}

void ColumnDraftEditor::layOutRows()
{
    // Rows are re-placed from scratch so a removed row leaves no gap in the grid.
    while (QLayoutItem *item = m_grid->takeAt(0)) {
        delete item;
    }
    m_grid->addWidget(m_headings[0], 0, nameColumn);
    m_grid->addWidget(m_headings[1], 0, typeColumn);
    m_grid->addWidget(m_headings[2], 0, defaultColumn);
    int line = 1;
    for (const RowWidgets &row : m_rows) {
        m_grid->addWidget(row.name, line, nameColumn);
        m_grid->addWidget(row.type, line, typeColumn);
        m_grid->addWidget(row.nullable, line, nullableColumn);
        m_grid->addWidget(row.primary, line, primaryColumn);
        m_grid->addWidget(row.autoIncrement, line, autoColumn);
        m_grid->addWidget(row.defaultValue, line, defaultColumn);
        if (row.remove) {
            row.remove->setEnabled(m_rows.size() > 1);
            m_grid->addWidget(row.remove, line, removeColumn);
        }
        ++line;
    }
}

} // namespace tallowick
