#pragma once

#include <QUuid>
#include <optional>
#include <string>
#include <string_view>

namespace tallowick
{

// Canonical text of a UUID: 36 characters, upper-case hexadecimal, hyphenated, no braces.
std::string uuidText(const QUuid &id);

// Accepts only the hyphenated 36-character form (either case); braces or other shapes give no value.
std::optional<QUuid> uuidFromText(std::string_view text);

} // namespace tallowick
