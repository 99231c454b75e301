#include "networkmanager.h"

#include "lowdelay.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QPointer>

namespace {

// Set-Cookie replies are read by hand where they matter; nothing is kept or replayed.
class NoCookies : public QNetworkCookieJar
{
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    QList<QNetworkCookie> cookiesForUrl(const QUrl &) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie> &, const QUrl &) override { return false; }
};

QPointer<QNetworkAccessManager> shared;

} // namespace

namespace Network {

QNetworkAccessManager *manager()
{
    if (!shared) {
        // Uploads must not wait on Nagle's algorithm (see LowDelay).
        LowDelay::active();
        shared = new QNetworkAccessManager(QCoreApplication::instance());
        shared->setCookieJar(new NoCookies(shared));
        shared->setRedirectPolicy(QNetworkRequest::SameOriginRedirectPolicy);
    }
    return shared;
}

void setManagerForTests(QNetworkAccessManager *manager)
{
    shared = manager;
}

} // namespace Network
