#pragma once

#include "builder/BuilderJoin.h"

#include <QStringList>
#include <QWidget>

class QComboBox;
class QPushButton;

namespace tallowick
{

// One join of the builder: its kind, the joined table, and the two columns of its ON condition.
class BuilderJoinRow final : public QWidget
{
    Q_OBJECT

public:
    // `tables` are the database's tables; `references` every table.column the query can name.
    BuilderJoinRow(
        const BuilderJoin &join, const QStringList &tables, const QStringList &references, QWidget *parent = nullptr);

    QComboBox *kindPicker() const { return m_kind; }
    QComboBox *tablePicker() const { return m_table; }
    QComboBox *leftPicker() const { return m_left; }
    QComboBox *rightPicker() const { return m_right; }
    QPushButton *removeButton() const { return m_remove; }

Q_SIGNALS:
    // The kind or a column of the condition changed.
    void edited(const tallowick::BuilderJoin &join);
    void tableChosen(const QUuid &join, const QString &table);
    void removeClicked(const QUuid &join);

private:
    BuilderJoin current() const;

    const BuilderJoin m_join;
    QComboBox *m_kind;
    QComboBox *m_table;
    QComboBox *m_left;
    QComboBox *m_right;
    QPushButton *m_remove;
};

} // namespace tallowick
