#include "atomicfile.h"

#include "appdata.h"
#include "platformlog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace AtomicFile {

bool write(const QString &path, const QByteArray &bytes)
{
    // Every file the app writes is the user's own data.
    if (path.isEmpty() || !AppData::makeFolder(QFileInfo(path).absolutePath()))
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Set on the temporary file, so the bytes are never readable by others, not even briefly.
    if (!file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        file.cancelWriting();
        return false;
    }
    // Flushed and checked before the commit: on a full disk the buffered bytes fail only
    // here, and a commit without that check would put an empty file in place of the old one.
    if (file.write(bytes) != bytes.size() || !file.flush() || file.error() != QFileDevice::NoError) {
        qCWarning(lcPlatform) << "could not write" << path << ":" << file.errorString();
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

std::optional<QByteArray> read(const QString &path)
{
    if (path.isEmpty())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

} // namespace AtomicFile
