#pragma once

#include "client/MySQLConnection.h"

namespace tallowick
{

// Adds one row to a table's fingerprint.
void addToDigest(TableDigest &digest, const MySQLConnection::RawRow &row);

} // namespace tallowick
