#include "core/TLSMode.h"

namespace tallowick
{

std::string_view rawValue(TLSMode mode)
{
    switch (mode) {
    case TLSMode::verify:
        return "Verify certificate";
    case TLSMode::require:
        return "Require encryption";
    case TLSMode::disabled:
        return "Disabled (local only)";
    }
    return {};
}

std::string_view displayName(TLSMode mode)
{
    if (mode == TLSMode::disabled) {
        return "Disabled — unencrypted";
    }
    return rawValue(mode);
}

std::optional<TLSMode> tlsModeFromRawValue(std::string_view raw)
{
    for (TLSMode mode : allTLSModes) {
        if (rawValue(mode) == raw) {
            return mode;
        }
    }
    return std::nullopt;
}

} // namespace tallowick
