#include "core/FileText.h"

#include "core/AppError.h"
#include "core/UuidText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QSaveFile>
#include <QUuid>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace tallowick
{

void writeFileAtomically(
    const std::string &path, const QByteArray &data, std::optional<QFileDevice::Permissions> permissions)
{
    const QString name = QString::fromStdString(path);
    QSaveFile file(name);
    if (!file.open(QIODevice::WriteOnly)) {
        throw AppError("Could not write " + path + ": " + file.errorString().toStdString() + ".");
    }
    // Set before committing, so the content is never readable by others, not even briefly.
    if (permissions) {
        file.setPermissions(*permissions);
    }
    if (file.write(data) != data.size() || !file.commit()) {
        throw AppError("Could not write " + path + ": " + file.errorString().toStdString() + ".");
    }
    if (permissions && !QFile::setPermissions(name, *permissions)) {
        throw AppError("Could not set the permissions of " + path + ".");
    }
}

QByteArray readWholeFile(const std::string &path)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        throw AppError("Could not read " + path + ": " + file.errorString().toStdString() + ".");
    }
    QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        throw AppError("Could not read " + path + ": " + file.errorString().toStdString() + ".");
    }
    return data;
}

void replaceWhenComplete(const std::string &requested, const std::function<void(const std::string &path)> &write)
{
    // A link is followed, so the file it points to is replaced and the link stays.
    const QFileInfo link(QString::fromStdString(requested));
    const std::string destination = link.isSymLink() ? link.symLinkTarget().toStdString() : requested;
    const QString folder = QFileInfo(QString::fromStdString(destination)).absolutePath();
    const std::string partial
        = QDir(folder).filePath(QString::fromStdString("." + uuidText(QUuid::createUuid()) + ".partial")).toStdString();
    try {
        write(partial);
        // The new file keeps the old one's permissions: a private dump stays private.
        if (const QString old = QString::fromStdString(destination); QFileInfo::exists(old)) {
            QFile::setPermissions(QString::fromStdString(partial), QFile::permissions(old));
        }
        if (std::rename(partial.c_str(), destination.c_str()) != 0) {
            throw AppError("Could not replace " + destination + " with the finished file.");
        }
    } catch (...) {
        std::remove(partial.c_str());
        throw;
    }
}

FileReader::FileReader(const std::string &path)
    : m_path(path)
    , m_file(std::fopen(path.c_str(), "rb"))
{
    if (!m_file) {
        throw AppError("Could not open " + path + ": " + std::strerror(errno) + ".");
    }
    struct stat status {
    };
    if (::fstat(::fileno(m_file), &status) == 0) {
        m_size = static_cast<std::uint64_t>(status.st_size);
    }
}

FileReader::~FileReader()
{
    std::fclose(m_file);
}

std::string_view FileReader::read(std::size_t maxBytes)
{
    m_piece.resize(maxBytes);
    const std::size_t got = std::fread(m_piece.data(), 1, maxBytes, m_file);
    if (got == 0 && std::ferror(m_file)) {
        throw AppError("Could not read " + m_path + ": " + std::strerror(errno) + ".");
    }
    m_bytesRead += got;
    return { m_piece.data(), got };
}

void readFilePieces(const std::string &path,
    std::size_t pieceBytes,
    const std::function<bool(std::string_view piece, std::uint64_t bytesDone)> &onPiece)
{
    FileReader file(path);
    for (std::string_view piece = file.read(pieceBytes); !piece.empty(); piece = file.read(pieceBytes)) {
        if (!onPiece(piece, file.bytesRead())) {
            return;
        }
    }
}

std::string byteText(std::uint64_t bytes)
{
    return QLocale::c().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat).toStdString();
}

} // namespace tallowick
