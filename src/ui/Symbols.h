#pragma once

#include <QIcon>

namespace tallowick
{

// The program's own symbols, drawn as small SVG files in the resources.
enum class Symbol {
    brand,
    copy,
    database,
    editor, // a SQL editor: a window with a prompt
    eye, // show a hidden text
    eyeOff, // hide it again
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
