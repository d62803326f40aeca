#include "core/ColumnInfo.h"

#include "core/AsciiText.h"

#include <algorithm>

namespace tallowick
{

bool ColumnInfo::generated() const
{
    const std::string upper = asciiUpper(extra);
    return upper.find("VIRTUAL GENERATED") != std::string::npos || upper.find("STORED GENERATED") != std::string::npos;
}

} // namespace tallowick
