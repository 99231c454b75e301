#include "networkmanager.h"

#include "lowdelay.h"
#include "platform/shutdown.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>

namespace {

// Set-Cookie replies are read by hand where they matter; nothing is kept or replayed.
class NoCookies : public QNetworkCookieJar
{
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    QList<QNetworkCookie> cookiesForUrl(const QUrl &) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie> &, const QUrl &) override { return false; }
};

} // namespace

namespace Network {

QNetworkAccessManager *create(QObject *parent)
{
    // Uploads must not wait on Nagle's algorithm (see LowDelay).
    LowDelay::active();
    auto *manager = new QNetworkAccessManager(parent);
    manager->setCookieJar(new NoCookies(manager));
    manager->setRedirectPolicy(QNetworkRequest::SameOriginRedirectPolicy);
    // At the end of the process every exchange under way finishes (as canceled), so the
    // tasks awaiting them complete instead of staying suspended.
    QObject::connect(&Shutdown::instance(), &Shutdown::begins, manager, [manager] {
        const auto replies = manager->findChildren<QNetworkReply *>();
        for (QNetworkReply *reply : replies)
            reply->abort();
    });
    return manager;
}

} // namespace Network
