#pragma once

#include <QIcon>

namespace tallowick
{

// The program's own symbols, drawn as small SVG files in the resources.
enum class Symbol { brand, database, key, lock, server, shield, table, view };

QIcon symbolIcon(Symbol symbol);

} // namespace tallowick
