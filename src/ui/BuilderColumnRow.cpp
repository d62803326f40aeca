#include "ui/BuilderColumnRow.h"

#include "ui/FormParts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>

namespace tallowick
{

BuilderColumnRow::BuilderColumnRow(
    const BuilderColumn &column, bool primary, const BuilderColumn *selected, QWidget *parent)
    : QWidget(parent)
    , m_column(column)
    , m_toggle(new QCheckBox((primary ? QStringLiteral("⚿ ") : QString()) + text(column.id())))
    , m_aggregate(choicePicker(textList(builderAggregates),
          selected ? text(selected->aggregate) : QString(),
          QStringLiteral("No aggregate")))
{
    m_toggle->setChecked(selected != nullptr);
    m_aggregate->setToolTip(QStringLiteral("Aggregate"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_toggle, 1);
    layout->addWidget(m_aggregate);
    QObject::connect(m_toggle, &QCheckBox::toggled, this, &BuilderColumnRow::announce);
    QObject::connect(m_aggregate, &QComboBox::activated, this, [this] {
        if (m_toggle->isChecked()) {
            announce();
        } else {
            m_toggle->setChecked(true); // announces through toggled
        }
    });
}

void BuilderColumnRow::announce()
{
    BuilderColumn column = m_column;
    column.aggregate = m_aggregate->currentData().toString().toStdString();
    Q_EMIT edited(column, m_toggle->isChecked());
}

} // namespace tallowick
