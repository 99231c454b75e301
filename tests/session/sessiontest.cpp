// The session against the reference service: sign-in, boot from disk, and every way out.

#include "net/api.h"
#include "net/projectcache.h"
#include "platform/appdata.h"
#include "platform/filesecretstore.h"
#include "session/coachengine.h"
#include "session/session.h"
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

QString secretsPath()
{
    return AppData::path(QStringLiteral("secrets.json"));
}

std::unique_ptr<Session> newSession()
{
    return std::make_unique<Session>(std::make_unique<FileSecretStore>(secretsPath()));
}

std::optional<QString> storedCookie()
{
    FileSecretStore store(secretsPath());
    return Sync::run(store.read(QString::fromLatin1(Session::cookieItem)));
}

} // namespace

class SessionTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    Service service;

    void serverDown() { service.fault({{"match", "*"}, {"drop", true}, {"times", -1}}); }

    std::unique_ptr<Session> signedIn(const QString &user = QStringLiteral("demo"))
    {
        auto session = newSession();
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
        service.reset();
        ProjectCache::clear();
    }

    void bootWithoutCookieShowsSignIn()
    {
        auto session = newSession();
        Sync::run(session->boot());
        QCOMPARE(session->gate(), Session::Gate::Out);
        QCOMPARE(session->exit(), Session::Exit::Fresh);
        QVERIFY(service.log().isEmpty());
    }

    void signInKeepsCookieAndProfile()
    {
        L::set(QStringLiteral("ru"));
        auto session = signedIn();
        QCOMPARE(session->gate(), Session::Gate::Ready);
        QCOMPARE(session->user(), QStringLiteral("demo"));
        QCOMPARE(session->email(), QStringLiteral("demo@example.com"));
        QCOMPARE(session->workspace(), QStringLiteral("ws-demo"));
        QVERIFY(session->may(QStringLiteral("projects")));
        QCOMPARE(storedCookie(), std::optional<QString>(session->cookie()));

        QFile profile(session->offlineProfileFile());
        QVERIFY(profile.open(QIODevice::ReadOnly));
        QCOMPARE(profile.permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);
        const QJsonObject saved = QJsonDocument::fromJson(profile.readAll()).object();
        QCOMPARE(saved.value(u"sessionHash").toString(), session->sessionHash());
        QCOMPARE(saved.value(u"user").toString(), QStringLiteral("demo"));

        // The server had no language: it learns the one the app shows.
        bool posted = false;
        for (const QJsonValue &entry : service.log())
            posted |= entry[u"method"].toString() == u"POST" && entry[u"path"].toString() == u"webapi/prefs"
                      && entry[u"body"].toString().contains(u"\"ru\"");
        QVERIFY(posted);
    }

    void tokenSignIn()
    {
        auto session = newSession();
        Sync::run(session->signIn(service.token(QStringLiteral("tt_7f3a9c"))));
        QCOMPARE(session->gate(), Session::Gate::Ready);
        QCOMPARE(session->label(), QStringLiteral("guest@example.com"));
        QVERIFY(session->may(QStringLiteral("voice")));
    }

    void bootRestoresFromDiskWhenOffline()
    {
        const QString cookie = signedIn()->cookie();
        serverDown();
        auto session = newSession();
        QSignalSpy profile(session.get(), &Session::profileChanged);
        Sync::run(session->boot());
        QCOMPARE(session->gate(), Session::Gate::Offline);
        QCOMPARE(session->cookie(), cookie);
        QCOMPARE(session->user(), QStringLiteral("demo"));
        QCOMPARE(session->pages(), (QStringList{"automations", "chat", "projects", "tasks"}));
        QVERIFY(profile.count() >= 1);
    }

    void bootOnlineIsReady()
    {
        signedIn();
        auto session = newSession();
        Sync::run(session->boot());
        QCOMPARE(session->gate(), Session::Gate::Ready);
    }

    void profileOfAnotherSessionIsIgnored()
    {
        signedIn();
        FileSecretStore store(secretsPath());
        Sync::run(store.write(QString::fromLatin1(Session::cookieItem), QStringLiteral("another")));
        serverDown();
        auto session = newSession();
        Sync::run(session->boot());
        QCOMPARE(session->gate(), Session::Gate::Checking);
        QCOMPARE(session->user(), QString());
    }

    void expiredSessionSignsOutEverywhere()
    {
        auto session = signedIn();
        Sync::run(Api::page<QJsonValue>(QStringLiteral("webapi/projects")));
        int resets = 0;
        session->onForget([&] { ++resets; });
        const int closes = session->coach()->closes();

        service.expire(QStringLiteral("demo"));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(session->refresh()));
        QCOMPARE(session->gate(), Session::Gate::Out);
        QCOMPARE(session->exit(), Session::Exit::Expired);
        QCOMPARE(session->exitText(), L::t(QStringLiteral("ההתחברות הסתיימה. היכנסו כדי להמשיך."),
                                           QStringLiteral("Your session ended. Sign in to continue."),
                                           QStringLiteral("Сеанс завершён. Войдите, чтобы продолжить.")));
        QCOMPARE(session->cookie(), QString());
        QCOMPARE(resets, 1);
        QVERIFY(session->coach()->closes() > closes);
        QVERIFY(!QFile::exists(session->offlineProfileFile()));
        QVERIFY(!ProjectCache::read(QStringLiteral("webapi/projects"), QStringLiteral("demo")));
        QTRY_VERIFY(!storedCookie().has_value());
    }

    void everyForgetStepRunsWhenOneFails()
    {
        auto session = signedIn();
        Sync::run(Api::page<QJsonValue>(QStringLiteral("webapi/projects")));
        bool later = false;
        session->onForget([] { throw std::runtime_error("chat reset broke"); });
        QTest::ignoreMessage(QtWarningMsg, "sign-out step reset hook failed: chat reset broke");
        session->onForget([&] { later = true; });
        Sync::run(session->signOut());
        QVERIFY(later);
        QCOMPARE(session->gate(), Session::Gate::Out);
        QCOMPARE(session->exit(), Session::Exit::SignedOut);
        QVERIFY(QDir(ProjectCache::directory()).isEmpty());
    }

    void signOutWorksWithoutTheServer()
    {
        auto session = signedIn();
        const QString cookie = session->cookie();
        serverDown();
        Sync::run(session->signOut());
        QCOMPARE(session->gate(), Session::Gate::Out);
        QTRY_VERIFY(!storedCookie().has_value());
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
        Sync::run(Api::post(QStringLiteral("webapi/prefs"), {{"lang", "ru"}}));
        Sync::run(session->refresh());
        QCOMPARE(L::current(), QStringLiteral("ru"));
    }
};

QTEST_GUILESS_MAIN(SessionTest)
#include "sessiontest.moc"
