#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace tallowick
{

// One named built-in check. `holds` returns whether the behaviour it documents is intact; an
// exception escaping from it counts as a failure of that check.
struct NamedCheck {
    std::string name;
    std::function<bool()> holds;
};

// Runs the checks in order, writing "PASS: " + name and a line feed for each one that holds.
// At the first that does not, throws AppError("FAIL: " + name); later checks do not run.
void runChecks(const std::vector<NamedCheck> &checks, std::ostream &out);

} // namespace tallowick
