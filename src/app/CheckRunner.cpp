#include "app/CheckRunner.h"

#include "core/AppError.h"

namespace tallowick
{

void runChecks(const std::vector<NamedCheck> &checks, std::ostream &out)
{
    for (const NamedCheck &check : checks) {
        bool held = false;
        try {
            held = check.holds();
        } catch (const std::exception &) {
            held = false;
        }
        if (!held) {
            throw AppError("FAIL: " + check.name);
        }
        // Flushed line by line so progress shows even when a later check hangs or crashes.
        out << "PASS: " << check.name << '\n' << std::flush;
    }
}

} // namespace tallowick
