#pragma once

#include "session/UserPrompts.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace tallowick::test
{

// Answers the model's questions from a script and remembers what was asked. With nothing
// scripted, confirmations are declined and file choices cancelled.
class ScriptedPrompts final : public UserPrompts
{
public:
    struct Question {
        std::string kind; // "action", "sql", "save" or "open"
        std::string text; // message, SQL, or proposed file name
        std::string title;
        std::string detail;
    };

    std::deque<bool> confirmations;
    std::deque<std::optional<std::string>> files;
    std::vector<Question> asked;

    bool confirmAction(const std::string &message, const std::string &detail, const std::string &button) override
    {
        asked.push_back({ "action", message, button, detail });
        return next(confirmations, false);
    }

    bool confirmSQL(const std::string &sql, const std::string &title, const std::string &detail) override
    {
        asked.push_back({ "sql", sql, title, detail });
        return next(confirmations, false);
    }

    std::optional<std::string> chooseFileToSave(const std::string &proposedName, FileKind) override
    {
        asked.push_back({ "save", proposedName, {}, {} });
        return next(files, std::optional<std::string>());
    }

    std::optional<std::string> chooseFileToOpen(FileKind) override
    {
        asked.push_back({ "open", {}, {}, {} });
        return next(files, std::optional<std::string>());
    }

private:
    template <typename T> static T next(std::deque<T> &answers, T fallback)
    {
        if (answers.empty()) {
            return fallback;
        }
        T answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

} // namespace tallowick::test
