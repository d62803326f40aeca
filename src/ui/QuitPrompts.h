#pragma once

namespace tallowick
{

class AppStore;
class UserPrompts;

// Asks before quitting when work could be lost: first when any session is running a statement,
// then when any query tab holds unsaved edits. True when the application may quit.
bool confirmQuit(const AppStore &store, UserPrompts &prompts);

} // namespace tallowick
