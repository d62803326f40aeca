#include "ui/BuilderJoinRow.h"

#include "ui/FormParts.h"
#include "ui/Symbols.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace tallowick
{

BuilderJoinRow::BuilderJoinRow(
    const BuilderJoin &join, const QStringList &tables, const QStringList &references, QWidget *parent)
    : QWidget(parent)
    , m_join(join)
    , m_kind(choicePicker(textList(builderJoinKinds), text(join.kind)))
    , m_table(choicePicker(tables, text(join.table), QStringLiteral("Table…")))
    , m_left(choicePicker(references, text(join.left), QStringLiteral("Left column…")))
    , m_right(choicePicker(references, text(join.right), QStringLiteral("Right column…")))
    , m_remove(new QPushButton(symbolIcon(Symbol::xmark), QString()))
{
    m_kind->setToolTip(QStringLiteral("Type"));
    m_table->setToolTip(QStringLiteral("Table"));
    m_left->setToolTip(QStringLiteral("Left column"));
    m_right->setToolTip(QStringLiteral("Right column"));
    m_remove->setToolTip(QStringLiteral("Remove join"));
    m_remove->setFixedWidth(30);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_kind);
    layout->addWidget(m_table, 1);
    layout->addWidget(m_left, 1);
    layout->addWidget(new QLabel(QStringLiteral("=")));
    layout->addWidget(m_right, 1);
    layout->addWidget(m_remove);

    for (QComboBox *picker : { m_kind, m_left, m_right }) {
        QObject::connect(picker, &QComboBox::activated, this, [this] { Q_EMIT edited(current()); });
    }
    QObject::connect(m_table, &QComboBox::activated, this, [this] {
        Q_EMIT tableChosen(m_join.id, m_table->currentData().toString());
    });
    QObject::connect(m_remove, &QPushButton::clicked, this, [this] { Q_EMIT removeClicked(m_join.id); });
}

BuilderJoin BuilderJoinRow::current() const
{
    BuilderJoin join = m_join;
    join.kind = m_kind->currentData().toString().toStdString();
    join.left = m_left->currentData().toString().toStdString();
    join.right = m_right->currentData().toString().toStdString();
    return join;
}

} // namespace tallowick
