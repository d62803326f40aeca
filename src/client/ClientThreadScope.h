#pragma once

#include <mysql.h>

namespace tallowick
{

// Brackets one unit of background work that calls the client library: per-thread set-up on
// entry, release on exit. Create one at the top of every job that touches a connection.
class ClientThreadScope
{
public:
    ClientThreadScope() { mysql_thread_init(); }
    ~ClientThreadScope() { mysql_thread_end(); }

    ClientThreadScope(const ClientThreadScope &) = delete;
    ClientThreadScope &operator=(const ClientThreadScope &) = delete;
};

} // namespace tallowick
