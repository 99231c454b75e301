#include "serveraddress.h"

#include "buildinfo.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

#include <QHostAddress>

namespace {

bool isLoopback(const QString &host)
{
    if (host.compare(u"localhost", Qt::CaseInsensitive) == 0)
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

} // namespace

ServerAddress ServerAddress::parse(const QString &text)
{
    QUrl url(text.trimmed(), QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != u"https" && scheme != u"http")) {
        return {{}, L::t(u"כתובת השרת אינה תקינה: %1"_s.arg(text),
                         u"The server address is not valid: %1"_s.arg(text),
                         u"Недопустимый адрес сервера: %1"_s.arg(text))};
    }
    if (scheme == u"http" && !isLoopback(url.host())) {
        return {{}, L::t(u"השרת %1 אינו מוצפן. יש להשתמש ב-https."_s.arg(text),
                         u"The server %1 is not encrypted. Use an https address."_s.arg(text),
                         u"Сервер %1 не защищён шифрованием. Укажите адрес https."_s.arg(text))};
    }
    if (url.query().size() || url.fragment().size()) {
        url.setQuery(QString());
        url.setFragment(QString());
    }
    if (!url.path().endsWith(u'/'))
        url.setPath(url.path() + u'/');
    return {url, {}};
}

ServerAddress ServerAddress::configured()
{
    const QString override = qEnvironmentVariable("HALVENMARK_SERVER");
    return parse(override.isEmpty() ? QString::fromUtf8(BuildInfo::server) : override);
}

ServerAddress ServerAddress::compiledIn()
{
    return parse(QString::fromUtf8(BuildInfo::server));
}
