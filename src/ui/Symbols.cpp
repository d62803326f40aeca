#include "ui/Symbols.h"

#include <QString>

// Outside any namespace: the resource's initialiser is a global function.
static void registerIconResources()
{
    Q_INIT_RESOURCE(icons);
}

namespace tallowick
{

namespace
{

// The resource file of each symbol, without its ".svg".
const char *fileName(Symbol symbol)
{
    switch (symbol) {
    case Symbol::brand:
        return "brand";
    case Symbol::copy:
        return "copy";
    case Symbol::database:
        return "database";
    case Symbol::editor:
        return "editor";
    case Symbol::eye:
        return "eye";
    case Symbol::eyeOff:
        return "eye-off";
    case Symbol::filter:
        return "filter";
    case Symbol::key:
        return "key";
    case Symbol::lock:
        return "lock";
    case Symbol::pencil:
        return "pencil";
    case Symbol::plus:
        return "plus";
    case Symbol::plusOnAccent:
        return "plus-light";
    case Symbol::search:
        return "search";
    case Symbol::server:
        return "server";
    case Symbol::shield:
        return "shield";
    case Symbol::table:
        return "table";
    case Symbol::view:
        return "view";
    case Symbol::xmark:
        return "xmark";
    }
    return "";
}

} // namespace

QIcon symbolIcon(Symbol symbol)
{
    // Registers the resource file of this static library before its first use.
    static const bool registered = [] {
        registerIconResources();
        return true;
    }();
    Q_UNUSED(registered);
    return QIcon(QStringLiteral(":/icons/%1.svg").arg(QLatin1String(fileName(symbol))));
}

} // namespace tallowick
