#include "core/ColumnInfo.h"

#include <algorithm>

namespace tallowick
{

bool ColumnInfo::generated() const
{
    std::string upper = extra;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c);
    });
    return upper.find("VIRTUAL GENERATED") != std::string::npos || upper.find("STORED GENERATED") != std::string::npos;
}

} // namespace tallowick
