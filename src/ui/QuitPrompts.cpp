#include "ui/QuitPrompts.h"

#include "session/ServerSession.h"
#include "session/UserPrompts.h"
#include "store/AppStore.h"

#include <algorithm>

namespace tallowick
{

bool confirmQuit(const AppStore &store, UserPrompts &prompts)
{
    const auto &sessions = store.sessions();
    const bool anyBusy
        = std::any_of(sessions.begin(), sessions.end(), [](const auto &entry) { return entry.second->busy(); });
    if (anyBusy
        && !prompts.confirmAction("Quit while a query is running?",
            "Closing the app closes its sessions. A statement already sent to MySQL may "
            "continue on the server.",
            "Quit")) {
        return false;
    }
    const bool anyDirty = std::any_of(sessions.begin(), sessions.end(), [](const auto &entry) {
        const QueryTabs &tabs = entry.second->tabs();
        return std::any_of(tabs.begin(), tabs.end(), [](const QueryTab &tab) { return tab.dirty; });
    });
    if (anyDirty
        && !prompts.confirmAction("Quit with unsaved query tabs?",
            "Save query files before quitting if you want to keep these edits.",
            "Quit without saving")) {
        return false;
    }
    return true;
}

} // namespace tallowick
