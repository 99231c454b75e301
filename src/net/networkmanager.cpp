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

// The managers made, until settle() ends them.
QList<QPointer<QNetworkAccessManager>> managers;

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
    managers.append(manager);
    return manager;
}

void settle()
{
    // Its network thread stops and cleans up what it held before the manager is gone; what it
    // posted back on the way is delivered here.
    for (const QPointer<QNetworkAccessManager> &manager : std::exchange(managers, {})) {
        if (manager && manager->parent()) // a parent hears of it; any other owner would not
            delete manager.data();
    }
    for (int round = 0; round < 3; ++round) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

} // namespace Network
