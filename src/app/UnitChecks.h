#pragma once

#include "app/CheckRunner.h"

#include <ostream>
#include <vector>

namespace tallowick
{

// The built-in checks of the pure core, in their fixed order. They touch no files, servers or
// secret stores.
std::vector<NamedCheck> unitChecks();

// Runs unitChecks() and, when all pass, ends with the line "39 unit checks passed.".
void runUnitChecks(std::ostream &out);

} // namespace tallowick
