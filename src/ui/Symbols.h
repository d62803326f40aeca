#pragma once

#include <QIcon>

namespace tallowick
{

// The program's own symbols, drawn as small SVG files in the resources.
enum class Symbol {
    brand,
    database,
    filter,
    key,
    lock,
    pencil,
    plus,
    plusOnAccent, // white, for the accent-coloured button
    search,
    server,
    shield,
    table,
    view,
    xmark,
};

QIcon symbolIcon(Symbol symbol);

} // namespace tallowick
