#pragma once

#include "session/UserPrompts.h"

#include <QPointer>
#include <QWidget>

namespace tallowick
{

// The desktop's answers to the model's questions: application-modal warnings with the acting
// button first and "Cancel" second, an SQL review with the statement in a read-only monospaced
// area, and the standard file panels filtered to SQL or CSV files.
class DialogPrompts final : public UserPrompts
{
public:
    // Dialogs are centred on `window` while it exists.
    void setWindow(QWidget *window) { m_window = window; }

    bool confirmAction(const std::string &message, const std::string &detail, const std::string &button) override;
    bool confirmSQL(const std::string &sql, const std::string &title, const std::string &detail) override;
    std::optional<std::string> chooseFileToSave(const std::string &proposedName, FileKind kind) override;
    std::optional<std::string> chooseFileToOpen(FileKind kind) override;

private:
    QPointer<QWidget> m_window;
};

} // namespace tallowick
