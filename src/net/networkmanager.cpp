#include "networkmanager.h"

#include "lowdelay.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>

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
    return manager;
}

} // namespace Network
