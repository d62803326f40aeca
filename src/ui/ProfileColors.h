#pragma once

#include <QColor>
#include <QStringList>
#include <string>

namespace tallowick
{

// The accent colours a profile may carry, by the name stored in the profile.
QStringList profileColorNames();

// The colour for a stored name; unknown names fall back to blue.
QColor profileColor(const std::string &name);

} // namespace tallowick
