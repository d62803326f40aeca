#pragma once

#include "builder/BuilderFilter.h"

#include <QStringList>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;

namespace tallowick
{

// One WHERE condition of the builder: column, operator, value, and whether the value is a number.
class BuilderFilterRow final : public QWidget
{
    Q_OBJECT

public:
    BuilderFilterRow(const BuilderFilter &filter, const QStringList &references, QWidget *parent = nullptr);

    QComboBox *columnPicker() const { return m_column; }
    QComboBox *operatorPicker() const { return m_operation; }
    QLineEdit *valueField() const { return m_value; }
    QCheckBox *numberToggle() const { return m_numeric; }
    QPushButton *removeButton() const { return m_remove; }

Q_SIGNALS:
    void edited(const tallowick::BuilderFilter &filter);
    void removeClicked(const QUuid &filter);

private:
    BuilderFilter current() const;

    const BuilderFilter m_filter;
    QComboBox *m_column;
    QComboBox *m_operation;
    QLineEdit *m_value;
    QCheckBox *m_numeric;
    QPushButton *m_remove;
};

} // namespace tallowick
