#pragma once

#include "net/api.h"
#include "net/identity.h"
#include "support/service.h"
#include "support/testapi.h"
#include "support/sync.h"

// A signed-in identity for transport-level tests, without a Session: it holds a cookie,
// names the user and counts the 401s that ended it.
class TestIdentity : public Identity
{
public:
    QString value;
    QString name = QStringLiteral("demo");
    int rejections = 0;
    TestApi transport;

    TestIdentity() = default;
    // Pointed at the service before anything can make the transport.
    explicit TestIdentity(const Service &service) { use(service); }

    Api &api() { return transport.get(); }

    QString cookie() const override { return value; }
    QString user() const override { return name; }
    void rejected() override { ++rejections; }

    // Points the transport at the service (once per test binary) and at this identity.
    void use(const Service &service)
    {
        qputenv("HALVENMARK_SERVER", service.base().toString().toUtf8());
        api().setIdentity(this);
    }

    // Signs in with the seed's password ("<user>-password").
    void signIn(const QString &user = QStringLiteral("demo"))
    {
        name = user;
        value = Sync::run(api().login(user, user + QStringLiteral("-password"))).cookie;
    }
};
