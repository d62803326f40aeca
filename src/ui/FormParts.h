#pragma once

#include <QString>
#include <QStringList>
#include <span>
#include <string_view>

class QComboBox;
class QLabel;
class QWidget;

namespace tallowick
{

// The pieces every form and sheet is built from, so they look alike.

QString text(std::string_view value);
QStringList textList(std::span<const std::string_view> values);

// A form's heading: larger, semi-bold.
QLabel *titleLabel(const QString &title);
// A wrapped line of help or context in the secondary text colour.
QLabel *captionLabel(const QString &caption = {});
// The inline error: wrapped, selectable, in the error colour, hidden until it has a text.
QLabel *errorLabel(const QString &objectName);
// Shows `message` in an error label, or hides it when empty.
void showError(QLabel *label, const QString &message);
// A drop-down of `choices` (each its own data), with `current` chosen. A non-null `placeholder`
// comes first with empty data, and is chosen when `current` is not among the choices.
QComboBox *choicePicker(const QStringList &choices, const QString &current, const QString &placeholder = QString());
// Gives any widget's text the secondary colour.
void useSecondaryText(QWidget *widget);

} // namespace tallowick
