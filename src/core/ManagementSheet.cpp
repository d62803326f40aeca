#include "core/ManagementSheet.h"

namespace tallowick
{

std::string_view rawValue(ManagementSheet sheet)
{
    switch (sheet) {
    case ManagementSheet::createDatabase:
        return "createDatabase";
    case ManagementSheet::createTable:
        return "createTable";
    case ManagementSheet::addColumn:
        return "addColumn";
    case ManagementSheet::modifyColumn:
        return "modifyColumn";
    case ManagementSheet::addIndex:
        return "addIndex";
    case ManagementSheet::insertRow:
        return "insertRow";
    case ManagementSheet::createUser:
        return "createUser";
    case ManagementSheet::importCSV:
        return "importCSV";
    }
    return {};
}

} // namespace tallowick
