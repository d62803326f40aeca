#include "ui/FormParts.h"

#include "ui/Theme.h"

#include <QComboBox>
#include <QLabel>

namespace tallowick
{

namespace
{

// Follows the theme: the colour is read again from themeColors() after every change.
void setTextColor(QWidget *widget, QColor ThemeColors::*role)
{
    followTheme(widget,
        [widget, role] { widget->setStyleSheet(QStringLiteral("color: %1;").arg((themeColors().*role).name())); });
}

} // namespace

QString text(std::string_view value)
{
    return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
}

QStringList textList(std::span<const std::string_view> values)
{
    QStringList list;
    for (const std::string_view value : values) {
        list << text(value);
    }
    return list;
}

QLabel *titleLabel(const QString &title)
{
    auto *label = new QLabel(title);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.35);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel *captionLabel(const QString &caption)
{
    auto *label = new QLabel(caption);
    label->setWordWrap(true);
    useSecondaryText(label);
    return label;
}

QLabel *errorLabel(const QString &objectName)
{
    auto *label = new QLabel;
    label->setObjectName(objectName);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    setTextColor(label, &ThemeColors::error);
    label->hide();
    return label;
}

void showError(QLabel *label, const QString &message)
{
    label->setText(message);
    label->setVisible(!message.isEmpty());
}

QComboBox *choicePicker(const QStringList &choices, const QString &current, const QString &placeholder)
{
    auto *box = new QComboBox;
    if (!placeholder.isNull()) {
        box->addItem(placeholder, QString());
    }
    for (const QString &choice : choices) {
        box->addItem(choice, choice);
    }
    const int index = box->findData(current);
    box->setCurrentIndex(index >= 0 ? index : 0);
    return box;
}

void useSecondaryText(QWidget *widget)
{
    setTextColor(widget, &ThemeColors::secondaryText);
}

} // namespace tallowick
