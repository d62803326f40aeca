#pragma once

#include <QIcon>

class QLabel;

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

// Drawn in the current appearance's inks whenever painted.
QIcon symbolIcon(Symbol symbol);
// Shows the symbol as the label's picture, redrawn when the appearance changes.
void showSymbol(QLabel *label, Symbol symbol, int size);

} // namespace tallowick
