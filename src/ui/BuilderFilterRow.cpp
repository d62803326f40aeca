#include "ui/BuilderFilterRow.h"

#include "ui/FormParts.h"
#include "ui/Symbols.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>

namespace tallowick
{

BuilderFilterRow::BuilderFilterRow(const BuilderFilter &filter, const QStringList &references, QWidget *parent)
    : QWidget(parent)
    , m_filter(filter)
    , m_column(choicePicker(references, text(filter.column), QStringLiteral("Column…")))
    , m_operation(choicePicker(textList(builderFilterOperators), text(filter.operation)))
    , m_value(new QLineEdit(text(filter.value)))
    , m_numeric(new QCheckBox(QStringLiteral("Number")))
    , m_remove(new QPushButton(symbolIcon(Symbol::xmark), QString()))
{
    m_column->setToolTip(QStringLiteral("Column"));
    m_operation->setToolTip(QStringLiteral("Operator"));
    m_value->setPlaceholderText(QStringLiteral("Value (use % with LIKE)"));
    m_numeric->setChecked(filter.numeric);
    m_remove->setToolTip(QStringLiteral("Remove filter"));
    m_remove->setFixedWidth(30);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_column, 1);
    layout->addWidget(m_operation);
    layout->addWidget(m_value, 1);
    layout->addWidget(m_numeric);
    layout->addWidget(m_remove);

    for (QComboBox *picker : { m_column, m_operation }) {
        QObject::connect(picker, &QComboBox::activated, this, [this] { Q_EMIT edited(current()); });
    }
    QObject::connect(m_value, &QLineEdit::textEdited, this, [this] { Q_EMIT edited(current()); });
    QObject::connect(m_numeric, &QCheckBox::toggled, this, [this] { Q_EMIT edited(current()); });
    QObject::connect(m_remove, &QPushButton::clicked, this, [this] { Q_EMIT removeClicked(m_filter.id); });
}

BuilderFilter BuilderFilterRow::current() const
{
    BuilderFilter filter = m_filter;
    filter.column = m_column->currentData().toString().toStdString();
    filter.operation = m_operation->currentData().toString().toStdString();
    filter.value = m_value->text().toStdString();
    filter.numeric = m_numeric->isChecked();
    return filter;
}

} // namespace tallowick
