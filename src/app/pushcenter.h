#pragma once

#include "pendingroute.h"
#include "pushroute.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QVariantMap>

class Api;
class Notifier;

// Push registration and where a tapped notification leads. One shared instance, made by
// the app's main; main thread only.
class PushCenter : public QObject
{
    Q_OBJECT
    // The device token as hexadecimal text, "" until known.
    Q_PROPERTY(QString token READ token NOTIFY tokenChanged)
    // The last registration failure, "" when none.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // Whether this device may show notifications.
    Q_PROPERTY(Authorization authorization READ authorization NOTIFY authorizationChanged)
    // True when the user turned notifications off: the sheet offers the system settings.
    Q_PROPERTY(bool askForSettings READ askForSettings NOTIFY authorizationChanged)

public:
    enum class Authorization { NotDetermined, Denied, Authorized, Unavailable };
    Q_ENUM(Authorization)

    // Set once the server accepted the token; removed when registration fails.
    static constexpr const char *marker = "rb.push.registered";

    // Publishes through api, which must outlive it.
    explicit PushCenter(Api &api, Notifier *notifier = nullptr, QObject *parent = nullptr);
    ~PushCenter() override;
    static PushCenter *shared();

    QString token() const { return m_token; }
    QString failure() const { return m_failure; }
    Authorization authorization() const { return m_authorization; }
    bool askForSettings() const { return m_authorization == Authorization::Denied; }
    static bool registered();
    PendingRoute &pending() { return m_pending; }

    // Start-up: listen to the notifier's clicks and read what it allows.
    void arm();
    // Refresh the permission. This platform has no remote registration: a token only ever
    // comes through didRegister.
    void syncRegistration();

    void didRegister(const QByteArray &deviceToken);
    void didFail(const QString &error);

    // POST "webapi/push/register"; true when the server took it.
    QCoro::Task<bool> publishToken(QString token);

    // A tapped notification: its user info, or a route already read.
    void route(const QVariantMap &userInfo);
    void open(const PushRoute &route);

signals:
    void tokenChanged();
    void failureChanged();
    void authorizationChanged();
    // A route for the shell; it is also held in pending() until the shell takes it.
    void routed(const PushRoute &route);

private:
    void setFailure(const QString &failure);

    Api &m_api;
    QPointer<Notifier> m_notifier;
    QString m_token;
    QString m_failure;
    Authorization m_authorization = Authorization::NotDetermined;
    PendingRoute m_pending;
};
