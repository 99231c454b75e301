#include "networkmanager.h"

#include "lowdelay.h"
#include "platform/shutdown.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
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
        // At the end of the process every exchange under way finishes (as canceled), so the
        // tasks awaiting them complete instead of staying suspended.
        QObject::connect(&Shutdown::instance(), &Shutdown::begins, shared, [] {
            const auto replies = shared->findChildren<QNetworkReply *>();
            for (QNetworkReply *reply : replies)
                reply->abort();
        });
    }
    return shared;
}

void setManagerForTests(QNetworkAccessManager *manager)
{
    shared = manager;
}

} // namespace Network
