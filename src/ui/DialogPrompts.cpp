#include "ui/DialogPrompts.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

QString nameFilter(UserPrompts::FileKind kind)
{
    return kind == UserPrompts::FileKind::sql ? QStringLiteral("SQL files (*.sql);;All files (*)")
                                              : QStringLiteral("CSV files (*.csv);;All files (*)");
}

std::optional<std::string> chosen(const QString &path)
{
    if (path.isEmpty()) {
        return std::nullopt;
    }
    return path.toStdString();
}

} // namespace

bool DialogPrompts::confirmAction(const std::string &message, const std::string &detail, const std::string &button)
{
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Tallowick"), text(message), QMessageBox::NoButton, m_window);
    box.setWindowModality(Qt::ApplicationModal);
    box.setInformativeText(text(detail));
    QPushButton *acting = box.addButton(text(button), QMessageBox::AcceptRole);
    QPushButton *cancel = box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(acting);
    box.setEscapeButton(cancel);
    box.exec();
    return box.clickedButton() == acting;
}

bool DialogPrompts::confirmSQL(const std::string &sql, const std::string &title, const std::string &detail)
{
    QDialog dialog(m_window);
    dialog.setWindowTitle(QStringLiteral("Tallowick"));
    dialog.setWindowModality(Qt::ApplicationModal);
    dialog.resize(640, 420);
    auto *layout = new QVBoxLayout(&dialog);

    auto *headerRow = new QHBoxLayout;
    auto *icon = new QLabel;
    icon->setPixmap(dialog.style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(40, 40));
    icon->setAlignment(Qt::AlignTop);
    headerRow->addWidget(icon);
    auto *texts = new QVBoxLayout;
    auto *headline = new QLabel(text(title));
    QFont bold = headline->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.1);
    headline->setFont(bold);
    auto *explanation = new QLabel(text(detail));
    explanation->setWordWrap(true);
    texts->addWidget(headline);
    texts->addWidget(explanation);
    headerRow->addLayout(texts, 1);
    layout->addLayout(headerRow);

    auto *statement = new QPlainTextEdit(text(sql));
    statement->setReadOnly(true);
    statement->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    statement->setAccessibleName(QStringLiteral("SQL to review"));
    layout->addWidget(statement, 1);

    auto *buttons = new QDialogButtonBox;
    QPushButton *run = buttons->addButton(QStringLiteral("Run SQL"), QDialogButtonBox::AcceptRole);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    run->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    return dialog.exec() == QDialog::Accepted;
}

std::optional<std::string> DialogPrompts::chooseFileToSave(const std::string &proposedName, FileKind kind)
{
    return chosen(QFileDialog::getSaveFileName(m_window, QStringLiteral("Save"), text(proposedName), nameFilter(kind)));
}

std::optional<std::string> DialogPrompts::chooseFileToOpen(FileKind kind)
{
    return chosen(QFileDialog::getOpenFileName(m_window, QStringLiteral("Open"), QString(), nameFilter(kind)));
}

} // namespace tallowick
