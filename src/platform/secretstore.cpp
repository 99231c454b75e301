#include "secretstore.h"

#include "appdata.h"
#include "filesecretstore.h"
#include "keychainsecretstore.h"
#include "platformlog.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

std::unique_ptr<SecretStore> SecretStore::platform(const QString &service)
{
    const QString path = AppData::path(QStringLiteral("secrets.json"));
    auto file = std::make_unique<FileSecretStore>(path);
    if (qEnvironmentVariable("HALVENMARK_SECRETS") == u"file")
        return file;
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        // Said once: when the file is about to be made.
        if (!QFile::exists(path))
            qCWarning(lcPlatform) << "no secret service on this machine; keeping the session in "
                                     "an owner-only file in the data folder.";
        return file;
    }
    // Isolated homes get their own keychain entries, so side-by-side clients never share a session.
    QString name = service;
    if (const QString home = qEnvironmentVariable("HALVENMARK_HOME"); !home.isEmpty()) {
        name += u' '
                + QString::fromLatin1(QCryptographicHash::hash(QDir(home).absolutePath().toUtf8(),
                                                               QCryptographicHash::Sha256)
                                          .toHex()
                                          .left(12));
    }
    return std::make_unique<KeychainSecretStore>(name, std::move(file));
}
