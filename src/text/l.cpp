#include "l.h"

#include "language.h"
#include "platform/appdata.h"
#include "ru.h"

#include <QLocale>
#include <QReadWriteLock>

namespace {
const QString langKey = QStringLiteral("rb.lang");

QReadWriteLock pinLock;
QString pinned; // guarded by pinLock

bool isOurs(const QString &code)
{
    return code == u"he" || code == u"en" || code == u"ru";
}
} // namespace

namespace L {

QString languageOf(const QStringList &preferred)
{
    const QString first = preferred.isEmpty() ? QStringLiteral("en") : preferred.first().toLower();
    if (first.startsWith(u"he") || first.startsWith(u"iw"))
        return QStringLiteral("he");
    if (first.startsWith(u"ru"))
        return QStringLiteral("ru");
    return QStringLiteral("en");
}

QString deviceDefault()
{
    return languageOf(QLocale::system().uiLanguages());
}

QString stored()
{
    return AppData::setting(langKey).toString();
}

QString current()
{
    {
        QReadLocker lock(&pinLock);
        if (!pinned.isEmpty())
            return pinned;
    }
    const QString code = stored();
    return code.isEmpty() ? deviceDefault() : code;
}

bool pin(const QString &code)
{
    if (!code.isEmpty() && !isOurs(code))
        return false;
    QWriteLocker lock(&pinLock);
    pinned = code;
    return true;
}

void set(const QString &code)
{
    AppData::setSetting(langKey, isOurs(code) ? code : deviceDefault());
    Language::settingStored();
}

QString t(const QString &he, const QString &en, const QString &ru)
{
    const QString lang = current();
    if (lang == u"he")
        return he;
    if (lang == u"ru")
        return ru;
    return en;
}

QString t(const QString &he, const QString &en)
{
    const QString lang = current();
    if (lang == u"he")
        return he;
    if (lang == u"ru")
        return Ru::words().value(en, en);
    return en;
}

} // namespace L
