#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

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

// Reads a file front to back in pieces, for files too large to hold. Throws AppError with the
// system's reason.
class FileReader
{
public:
    explicit FileReader(const std::string &path);
    ~FileReader();
    FileReader(const FileReader &) = delete;
    FileReader &operator=(const FileReader &) = delete;

    // The next piece, at most `maxBytes`, valid until the next call; empty at the end of the file.
    std::string_view read(std::size_t maxBytes);
    std::uint64_t bytesRead() const { return m_bytesRead; }
    // The size when the file was opened.
    std::uint64_t size() const { return m_size; }

private:
    const std::string m_path;
    std::FILE *m_file;
    std::string m_piece;
    std::uint64_t m_bytesRead = 0;
    std::uint64_t m_size = 0;
};

// Hands the file to `onPiece` in pieces of at most `pieceBytes`, with the bytes read so far,
// until the file ends or `onPiece` returns false. Throws AppError with the system's reason.
void readFilePieces(const std::string &path,
    std::size_t pieceBytes,
    const std::function<bool(std::string_view piece, std::uint64_t bytesDone)> &onPiece);

// A size for people: "461.2 MB", "812 bytes".
std::string byteText(std::uint64_t bytes);

// Owner read and write only.
inline constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

} // namespace tallowick
