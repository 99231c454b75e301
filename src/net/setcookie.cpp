#include "setcookie.h"

#include <QDateTime>
#include <QNetworkCookie>

using namespace Qt::StringLiterals;

namespace SetCookie {

std::optional<QString> sessionCookie(const QList<QByteArray> &setCookieHeaders,
                                     const QDateTime &now)
{
    std::optional<QString> found;
    for (const QByteArray &header : setCookieHeaders) {
        // Qt folds repeated Set-Cookie headers into one value separated by newlines.
        for (const QNetworkCookie &cookie : QNetworkCookie::parseCookies(header)) {
            if (cookie.name() != "rb_web_session"_ba)
                continue;
            // A deletion (Max-Age=0, a past date) or an empty value ends nothing and starts
            // nothing.
            const bool expired = !cookie.isSessionCookie() && cookie.expirationDate() <= now;
            if (expired || cookie.value().isEmpty() || cookie.value().size() > maxLength)
                continue;
            found = QString::fromUtf8(cookie.value()); // the last one set wins, as in a browser
        }
    }
    return found;
}

} // namespace SetCookie
