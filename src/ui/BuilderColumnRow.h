#pragma once

#include "builder/BuilderColumn.h"

#include <QWidget>

class QCheckBox;
class QComboBox;

namespace tallowick
{

// One column the builder can select: a check box named table.column (marked when it is a key)
// and its aggregate. Picking an aggregate selects the column.
class BuilderColumnRow final : public QWidget
{
    Q_OBJECT

public:
    // `selected` holds the column's entry in the query when it is selected.
    BuilderColumnRow(
        const BuilderColumn &column, bool primary, const BuilderColumn *selected, QWidget *parent = nullptr);

    QCheckBox *toggle() const { return m_toggle; }
    QComboBox *aggregatePicker() const { return m_aggregate; }

Q_SIGNALS:
    void edited(const tallowick::BuilderColumn &column, bool selected);

private:
    void announce();

    const BuilderColumn m_column;
    QCheckBox *m_toggle;
    QComboBox *m_aggregate;
};

} // namespace tallowick
