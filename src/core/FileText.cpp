#include "core/FileText.h"

#include "core/AppError.h"

#include <QFile>
#include <QSaveFile>

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

} // namespace tallowick
