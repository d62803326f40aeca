#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <functional>
#include <optional>
#include <string>

namespace tallowick
{

// Replaces the file at `path` atomically: the data goes to a temporary file in the same folder,
// which then takes the final name, so readers see the old content or the new, never a mix.
// With `permissions`, they are set on the final file. Throws AppError with the system's reason.
void writeFileAtomically(const std::string &path,
    const QByteArray &data,
    std::optional<QFileDevice::Permissions> permissions = std::nullopt);

// Lets `write` fill a temporary file next to `destination` (it gets the temporary path), which
// then replaces `destination`, keeping its permissions (a link is followed and stays a link);
// when `write` throws, the temporary file is removed and `destination` is left as it was. For
// output too large to hold in memory.
void replaceWhenComplete(const std::string &destination, const std::function<void(const std::string &path)> &write);

// The whole file. Throws AppError with the system's reason.
QByteArray readWholeFile(const std::string &path);

// Owner read and write only.
inline constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

} // namespace tallowick
