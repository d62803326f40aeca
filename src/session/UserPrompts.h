#pragma once

#include <optional>
#include <string>

namespace tallowick
{

// What the model asks the person in front of the screen. The desktop answers with modal dialogs
// and file panels; tests answer with scripted replies. Called on the main thread only.
class UserPrompts
{
public:
    enum class FileKind { sql, csv };

    virtual ~UserPrompts() = default;

    // A warning with an acting button and "Cancel"; true only for the acting button.
    virtual bool confirmAction(const std::string &message, const std::string &detail, const std::string &button) = 0;

    // A review of SQL text with "Run SQL" and "Cancel"; true only for "Run SQL".
    virtual bool confirmSQL(const std::string &sql, const std::string &title, const std::string &detail) = 0;

    // A path to write to, proposing `proposedName`; no value when the person cancels.
    virtual std::optional<std::string> chooseFileToSave(const std::string &proposedName, FileKind kind) = 0;

    // A path to read; no value when the person cancels.
    virtual std::optional<std::string> chooseFileToOpen(FileKind kind) = 0;
};

} // namespace tallowick
