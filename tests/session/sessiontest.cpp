// The session against the reference service: sign-in, boot from disk, and every way out.

#include "net/api.h"
#include "net/projectcache.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/secretstore.h"
#include "session/coachengine.h"
#include "session/session.h"
#include "support/testapi.h"
#include "support/service.h"
#include "support/sync.h"
#include "support/testhome.h"
#include "text/l.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString item = QString::fromLatin1(Session::cookieItem);

// The platform's store: the file, or the desktop keychain when the suite runs against one.
std::unique_ptr<SecretStore> secrets()
{
    return SecretStore::platform(QStringLiteral("Halvenmark"));
}

std::unique_ptr<Session> newSession(Api &api)
{
    return std::make_unique<Session>(api, secrets());
}

// What the keychain item holds: the cookie and the server it belongs to.
QJsonObject storedItem()
{
    const auto value = Sync::run(secrets()->read(item));
    return value ? QJsonDocument::fromJson(value->toUtf8()).object() : QJsonObject();
}

std::optional<QString> storedCookie()
{
    const QJsonObject stored = storedItem();
    if (stored.isEmpty())
        return std::nullopt;
    return stored.value(u"cookie").toString();
}

void storeCookie(const QString &cookie, const QString &server)
{
    const QJsonObject value{{"server", server}, {"cookie", cookie}};
    QVERIFY(Sync::run(secrets()->write(
        item, QString::fromUtf8(QJsonDocument(value).toJson(QJsonDocument::Compact)))));
}

bool postedPrefs(const QJsonArray &log, const QString &body = {})
{
    for (const QJsonValue &entry : log) {
        if (entry[u"method"].toString() == u"POST" && entry[u"path"].toString() == u"webapi/prefs"
            && entry[u"body"].toString().contains(body))
            return true;
    }
    return false;
}

} // namespace

class SessionTest : public QObject
{
    Q_OBJECT

    TestApi api;

    std::unique_ptr<TestHome> home;
    Service service;

    void serverDown() { service.fault({{"match", "*"}, {"drop", true}, {"times", -1}}); }

    // Signed out, and nothing of the session is left on this device.
    static void forgotten(const Session &session, Session::Exit exit)
    {
        QCOMPARE(session.gate(), Session::Gate::Out);
        QCOMPARE(session.exit(), exit);
        QCOMPARE(session.cookie() + session.user(), QString());
        QVERIFY(!QFile::exists(session.offlineProfileFile()));
        QCOMPARE(storedCookie(), std::nullopt);
    }

    std::unique_ptr<Session> signedIn(const QString &user = QStringLiteral("demo"))
    {
        auto session = newSession(api);
        Sync::run(session->signIn(user, user + QStringLiteral("-password")));
        return session;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        qputenv("HALVENMARK_SERVER", service.base().toString().toUtf8());
    }

    void init()
    {
        home.reset(); // the old home ends first, so the new one stays in force
        home = std::make_unique<TestHome>();
        // scripts/test runs this suite once more against a real secret service.
        if (qEnvironmentVariableIsSet("HALVENMARK_TEST_KEYCHAIN"))
            qunsetenv("HALVENMARK_SECRETS");
        L::pin(QString());
        service.reset();
        ProjectCache::clear();
    }

    void signInKeepsCookieAndProfile()
    {
        // Neither a run's --lang nor the stored choice is what the server learns.
        L::set(QStringLiteral("he"));
        L::pin(QStringLiteral("ru"));
        auto session = signedIn();
        QCOMPARE(session->gate(), Session::Gate::Ready);
        QCOMPARE(session->user(), QStringLiteral("demo"));
        QCOMPARE(session->email(), QStringLiteral("demo@example.com"));
        QCOMPARE(session->workspace(), QStringLiteral("ws-demo"));
        QVERIFY(session->may(QStringLiteral("projects")));
        QCOMPARE(storedCookie(), std::optional<QString>(session->cookie()));
        QCOMPARE(storedItem().value(u"server").toString(), service.base().toString() + u'/');

        QFile profile(session->offlineProfileFile());
        QVERIFY(profile.open(QIODevice::ReadOnly));
        QCOMPARE(profile.permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);
        const QJsonObject saved = QJsonDocument::fromJson(profile.readAll()).object();
        QCOMPARE(saved.value(u"sessionHash").toString(), session->sessionHash());
        QCOMPARE(saved.value(u"user").toString(), QStringLiteral("demo"));

        // The server had no language: it learns the device's.
        QVERIFY(postedPrefs(service.log(), u"\"%1\""_qs.arg(L::deviceDefault())));
        QVERIFY(L::stored() != u"ru");
    }

    void failedSignInKeepsNothing_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::newRow("profile unreadable") << QJsonObject{{"match", "webapi/me"}, {"status", 500}};
        QTest::newRow("not authenticated")
            << QJsonObject{{"match", "webapi/me"}, {"status", 200}, {"body", R"({"authenticated":false})"}};
        QTest::newRow("no user name")
            << QJsonObject{{"match", "webapi/me"}, {"status", 200}, {"body", R"({"authenticated":true})"}};
    }

    void failedSignInKeepsNothing()
    {
        QFETCH(QJsonObject, fault);
        service.fault(fault);
        auto session = newSession(api);
        QVERIFY_THROWS_EXCEPTION(std::exception,
                                 Sync::run(session->signIn(QStringLiteral("demo"), QStringLiteral("demo-password"))));
        forgotten(*session, Session::Exit::Fresh);
    }

    void sessionOfAnotherServerIsNotUsed_data()
    {
        QTest::addColumn<QString>("server");
        QTest::newRow("another server") << "https://other.example/";
        QTest::newRow("another port") << "http://127.0.0.1:1/";
        QTest::newRow("written by an older version") << QString();
    }

    void sessionOfAnotherServerIsNotUsed()
    {
        QFETCH(QString, server);
        const QString cookie = signedIn()->cookie();
        if (server.isEmpty())
            QVERIFY(Sync::run(secrets()->write(item, cookie))); // a bare cookie: the built-in server's
        else
            storeCookie(cookie, server);
        service.clearLog();
        auto session = newSession(api);
        Sync::run(session->boot());
        QCOMPARE(session->gate(), Session::Gate::Out);
        QCOMPARE(session->user(), QString());
        QVERIFY(service.log().isEmpty());
        // Signed out here only: the other server's session stays stored.
        QVERIFY(Sync::run(secrets()->read(item)).has_value());
    }

    void newerSignInSurvivesAnOldRejection()
    {
        auto session = signedIn();
        // Meanwhile another process signs out and in as someone else.
        const QString newer = Sync::run(api.get().login(QStringLiteral("owner"), QStringLiteral("owner-password"))).cookie;
        storeCookie(newer, service.base().toString() + u'/');
        const QJsonObject profile{{"sessionHash", Session::sessionHash(newer)}, {"user", "owner"},
                                  {"server", service.base().toString() + u'/'}};
        QVERIFY(AtomicFile::write(session->offlineProfileFile(), QJsonDocument(profile).toJson()));
        ProjectCache::write("[1]", api.get().base().toString(), QStringLiteral("webapi/projects"), QStringLiteral("owner"));

        service.expire(QStringLiteral("demo"));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(session->refresh()));
        Sync::run(session->settle());
        QCOMPARE(session->gate(), Session::Gate::Out);
        QCOMPARE(storedCookie(), std::optional<QString>(newer));
        QVERIFY(QFile::exists(session->offlineProfileFile()));
        QVERIFY(ProjectCache::read(api.get().base().toString(), QStringLiteral("webapi/projects"), QStringLiteral("owner")));
    }

    void sessionEndedDuringRefreshIsNotReady()
    {
        signedIn();
        // The server has no language, and refuses the cookie when told one.
        service.fault({{"match", "webapi/prefs"}, {"method", "GET"}, {"body", R"({"prefs":{}})"}, {"status", 200}});
        service.fault({{"match", "webapi/prefs"}, {"method", "POST"}, {"status", 401}});
        auto session = newSession(api);
        Sync::run(session->boot());
        Sync::run(session->settle());
        QVERIFY(postedPrefs(service.log()));
        forgotten(*session, Session::Exit::Expired);
    }

    // Boot from what is stored: nothing, a session the server takes, one it cannot be asked
    // about, and a saved profile that belongs to another session.
    void boot_data()
    {
        QTest::addColumn<bool>("stored");
        QTest::addColumn<bool>("another");
        QTest::addColumn<bool>("down");
        QTest::addColumn<Session::Gate>("gate");
        QTest::addColumn<QString>("user");
        QTest::newRow("nothing: sign in") << false << false << false << Session::Gate::Out << "";
        QTest::newRow("online") << true << false << false << Session::Gate::Ready << "demo";
        QTest::newRow("offline: from disk")
            << true << false << true << Session::Gate::Offline << "demo";
        QTest::newRow("profile of another session")
            << true << true << true << Session::Gate::Checking << "";
    }

    void boot()
    {
        QFETCH(bool, stored);
        QFETCH(bool, another);
        QFETCH(bool, down);
        const QString cookie = stored ? signedIn()->cookie() : QString();
        if (another)
            storeCookie(QStringLiteral("another"), service.base().toString() + u'/');
        if (down)
            serverDown();
        service.clearLog();
        auto session = newSession(api);
        QSignalSpy profile(session.get(), &Session::profileChanged);
        Sync::run(session->boot());
        QTEST(session->gate(), "gate");
        QTEST(session->user(), "user");
        if (!stored) {
            QCOMPARE(session->exit(), Session::Exit::Fresh);
            QVERIFY(service.log().isEmpty());
        }
        if (session->gate() == Session::Gate::Offline) {
            QCOMPARE(session->cookie(), cookie);
            QCOMPARE(session->pages(), (QStringList{"automations", "chat", "projects", "tasks"}));
            QVERIFY(profile.count() >= 1);
        }
    }

    void expiredSessionSignsOutEverywhere()
    {
        auto session = signedIn();
        Sync::run(api.get().page<QJsonValue>(QStringLiteral("webapi/projects")));
        int resets = 0;
        session->onForget([&] { ++resets; });
        const int closes = session->coach()->closes();

        service.expire(QStringLiteral("demo"));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(session->refresh()));
        Sync::run(session->settle());
        forgotten(*session, Session::Exit::Expired);
        QCOMPARE(session->exitText(), L::t(QStringLiteral("ההתחברות הסתיימה. היכנסו כדי להמשיך."),
                                           QStringLiteral("Your session ended. Sign in to continue."),
                                           QStringLiteral("Сеанс завершён. Войдите, чтобы продолжить.")));
        QCOMPARE(resets, 1);
        QVERIFY(session->coach()->closes() > closes);
        QVERIFY(!ProjectCache::read(api.get().base().toString(), QStringLiteral("webapi/projects"), QStringLiteral("demo")));
    }

    void everyForgetStepRunsWhenOneFails()
    {
        auto session = signedIn();
        Sync::run(api.get().page<QJsonValue>(QStringLiteral("webapi/projects")));
        bool later = false;
        session->onForget([] { throw std::runtime_error("chat reset broke"); });
        QTest::ignoreMessage(QtWarningMsg, "sign-out step reset hook failed: chat reset broke");
        session->onForget([&] { later = true; });
        Sync::run(session->signOut());
        QVERIFY(later);
        forgotten(*session, Session::Exit::SignedOut);
        QVERIFY(QDir(ProjectCache::directory()).isEmpty());
    }

    void signOutWorksWithoutTheServer()
    {
        auto session = signedIn();
        const QString cookie = session->cookie();
        serverDown();
        Sync::run(session->signOut());
        // Signing out returns only once the stored session is gone.
        forgotten(*session, Session::Exit::SignedOut);
        // And the server never heard of it: the old cookie still works there.
        service.control("DELETE", QStringLiteral("faults"));
        const QJsonArray sessions = service.control("GET", QStringLiteral("sessions")).value(u"sessions").toArray();
        bool alive = false;
        for (const QJsonValue &s : sessions)
            alive |= s[u"cookie"].toString() == cookie;
        QVERIFY(alive);
    }

    void deleteAccount_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<bool>("deleted");
        QTest::newRow("confirmed") << QJsonObject() << true;
        QTest::newRow("reply without deleted")
            << QJsonObject{{"match", "webapi/auth/delete-account"}, {"status", 200}, {"body", R"({"ok":true})"}}
            << false;
        QTest::newRow("server error") << QJsonObject{{"match", "webapi/auth/delete-account"}, {"status", 500}}
                                      << false;
    }

    void deleteAccount()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(bool, deleted);
        auto session = signedIn();
        if (!fault.isEmpty())
            service.fault(fault);
        QCOMPARE(Sync::run(session->deleteAccount()), deleted);
        QCOMPARE(session->gate(), deleted ? Session::Gate::Out : Session::Gate::Ready);
        if (deleted)
            QCOMPARE(session->exit(), Session::Exit::Deleted);
        else
            QCOMPARE(session->user(), QStringLiteral("demo"));
    }

    void languageFollowsTheProfile()
    {
        auto session = signedIn();
        QSignalSpy profile(session.get(), &Session::profileChanged);
        Sync::run(session->setPref(QStringLiteral("lang"), QStringLiteral("he")));
        QCOMPARE(L::current(), QStringLiteral("he"));
        QCOMPARE(session->prefs().value(QStringLiteral("lang")).toString(), QStringLiteral("he"));
        QCOMPARE(profile.count(), 1);

        // Another device chose Russian: the next refresh applies it.
        Sync::run(api.get().post(QStringLiteral("webapi/prefs"), {{"lang", "ru"}}));
        Sync::run(session->refresh());
        QCOMPARE(L::current(), QStringLiteral("ru"));
    }
};

QTEST_GUILESS_MAIN(SessionTest)
#include "sessiontest.moc"
