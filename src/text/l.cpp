#include "l.h"

#include "language.h"
#include "platform/appdata.h"
#include "ru.h"

#include <QLocale>

namespace {
const QString langKey = QStringLiteral("rb.lang");
}

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
    const QString code = stored();
    return code.isEmpty() ? deviceDefault() : code;
}

void set(const QString &code)
{
    const bool ours = code == u"he" || code == u"en" || code == u"ru";
    AppData::setSetting(langKey, ours ? code : deviceDefault());
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
