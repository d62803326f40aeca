#include "ui/Symbols.h"

#include <QString>

// Outside any namespace: the resource's initialiser is a global function.
static void registerIconResources()
{
    Q_INIT_RESOURCE(icons);
}

namespace tallowick
{

QIcon symbolIcon(Symbol symbol)
{
    // Registers the resource file of this static library before its first use.
    static const bool registered = [] {
        registerIconResources();
        return true;
    }();
    Q_UNUSED(registered);
    switch (symbol) {
    case Symbol::brand:
        return QIcon(QStringLiteral(":/icons/brand.svg"));
    case Symbol::database:
        return QIcon(QStringLiteral(":/icons/database.svg"));
    case Symbol::key:
        return QIcon(QStringLiteral(":/icons/key.svg"));
    case Symbol::lock:
        return QIcon(QStringLiteral(":/icons/lock.svg"));
    case Symbol::server:
        return QIcon(QStringLiteral(":/icons/server.svg"));
    case Symbol::shield:
        return QIcon(QStringLiteral(":/icons/shield.svg"));
    case Symbol::table:
        return QIcon(QStringLiteral(":/icons/table.svg"));
    case Symbol::view:
        return QIcon(QStringLiteral(":/icons/view.svg"));
    case Symbol::filter:
        return QIcon(QStringLiteral(":/icons/filter.svg"));
    case Symbol::pencil:
        return QIcon(QStringLiteral(":/icons/pencil.svg"));
    case Symbol::plus:
        return QIcon(QStringLiteral(":/icons/plus.svg"));
    case Symbol::plusOnAccent:
        return QIcon(QStringLiteral(":/icons/plus-light.svg"));
    case Symbol::search:
        return QIcon(QStringLiteral(":/icons/search.svg"));
    case Symbol::xmark:
        return QIcon(QStringLiteral(":/icons/xmark.svg"));
    }
    return {};
}

} // namespace tallowick
