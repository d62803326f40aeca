#pragma once

#include "management/ManagementDraft.h"

#include <QWidget>
#include <array>
#include <vector>

class QCheckBox;
class QComboBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tallowick
{

// The column rows of the table and column forms: name, type (free text with suggestions),
// nullable, primary key, auto increment and default, one row per ColumnDraft. With
// `growable`, "Add column" and a remove button per row let the list change; otherwise it holds
// exactly the rows it was given. Main thread only.
class ColumnDraftEditor final : public QWidget
{
    Q_OBJECT

public:
    ColumnDraftEditor(const std::vector<ColumnDraft> &drafts, bool growable, QWidget *parent = nullptr);

    // The rows as typed, in order; each keeps the id it was created with.
    std::vector<ColumnDraft> drafts() const;

    int rowCount() const { return static_cast<int>(m_rows.size()); }
    QLineEdit *nameField(int row) const { return m_rows.at(static_cast<std::size_t>(row)).name; }
    QComboBox *typeField(int row) const { return m_rows.at(static_cast<std::size_t>(row)).type; }
    QCheckBox *nullableToggle(int row) const { return m_rows.at(static_cast<std::size_t>(row)).nullable; }
    QCheckBox *primaryToggle(int row) const { return m_rows.at(static_cast<std::size_t>(row)).primary; }
    QCheckBox *autoIncrementToggle(int row) const { return m_rows.at(static_cast<std::size_t>(row)).autoIncrement; }
    QLineEdit *defaultField(int row) const { return m_rows.at(static_cast<std::size_t>(row)).defaultValue; }
    QPushButton *addButton() const { return m_add; }

    void addRow(const ColumnDraft &draft = newColumn());
    void removeRow(int row);

    // What "Add column" starts from: a nullable VARCHAR(255) without a name.
    static ColumnDraft newColumn();

Q_SIGNALS:
    void edited();

private:
    struct RowWidgets {
        QUuid id;
        QLineEdit *name;
        QComboBox *type;
        QCheckBox *nullable;
        QCheckBox *primary;
        QCheckBox *autoIncrement;
        QLineEdit *defaultValue;
        QPushButton *remove; // null when the list cannot shrink
    };

    void layOutRows();
    void showPrimaryImpliesNotNull(const RowWidgets &row);

    const bool m_growable;
    QGridLayout *m_grid;
    std::array<QLabel *, 3> m_headings;
    QPushButton *m_add = nullptr;
    std::vector<RowWidgets> m_rows;
};

} // namespace tallowick
