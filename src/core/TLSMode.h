#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace tallowick
{

enum class TLSMode { verify, require, disabled };

inline constexpr std::array<TLSMode, 3> allTLSModes { TLSMode::verify, TLSMode::require, TLSMode::disabled };

// The raw value is what the connections file stores; it doubles as the mode's identity.
std::string_view rawValue(TLSMode mode);

// What pickers show. Differs from the raw value only for the disabled mode.
std::string_view displayName(TLSMode mode);

// No value for any text that is not exactly one of the raw values.
std::optional<TLSMode> tlsModeFromRawValue(std::string_view raw);

} // namespace tallowick
