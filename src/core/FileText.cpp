#include "core/FileText.h"

#include "core/AppError.h"
#include "core/UuidText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QUuid>
#include <cstdio>

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

} // namespace tallowick
