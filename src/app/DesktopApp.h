#pragma once

namespace tallowick
{

// Starts the desktop application and runs its event loop until the main window closes.
int runDesktop(int &argc, char **argv);

} // namespace tallowick
