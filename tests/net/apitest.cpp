// The transport against the reference service over loopback: what goes on the wire and
// how each kind of reply is judged.

#include "net/api.h"
#include "net/wire.h"
#include "net/identity.h"
#include "net/projectcache.h"
#include "platform/atomicfile.h"
#include "support/service.h"
#include "support/testidentity.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QCoroWebSocket>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QFileInfo>
#include <QDir>
#include <QTest>
#include <QWebSocket>

namespace {

QJsonObject lastRequest(Service &service)
{
    const QJsonArray log = service.log();
    return log.isEmpty() ? QJsonObject() : log.last().toObject();
}

} // namespace

class ApiTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity;

    QString signIn(const QString &user = QStringLiteral("demo"))
    {
        const Api::Login login = Sync::run(identity.api().login(user, user + QStringLiteral("-password")));
        return login.cookie;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        service.reset();
        ProjectCache::clear();
        identity.api().due().clear();
        identity.value = signIn();
        identity.rejections = 0;
        service.clearLog();
    }

    void loginReadsCookieAndIdentity()
    {
        const Api::Login login = Sync::run(identity.api().login(QStringLiteral("owner"), QStringLiteral("owner-password")));
        QVERIFY(!login.cookie.isEmpty());
        QCOMPARE(login.user, QStringLiteral("owner"));
        QCOMPARE(login.role, QStringLiteral("owner"));
        const QJsonObject sent = lastRequest(service);
        QCOMPARE(sent.value(u"headers").toObject().value(u"Content-Type").toString(),
                 QStringLiteral("application/json"));
        QVERIFY(!sent.value(u"headers").toObject().contains(u"Cookie"));
    }

    void loginFailures_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<QString>("password");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("reason");
        QTest::newRow("wrong password") << QJsonObject() << "nope" << 401
                                        << "Wrong user name or password.";
        QTest::newRow("200 without cookie")
            << QJsonObject{{"match", "webapi/auth/login"}, {"status", 200}, {"body", R"({"ok":true})"}}
            << "demo-password" << 200 << "no session cookie in the reply";
        QTest::newRow("rate limited") << QJsonObject{{"match", "webapi/auth/login"}, {"status", 429}}
                                      << "demo-password" << 429 << "Slow down.";
    }

    void loginFailures()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(QString, password);
        if (!fault.isEmpty())
            service.fault(fault);
        try {
            Sync::run(identity.api().login(QStringLiteral("demo"), password));
            QFAIL("login should have failed");
        } catch (const Api::Failed &failed) {
            QTEST(failed.status, "status");
            QTEST(failed.description(), "reason");
        }
        QCOMPARE(identity.rejections, 0);
    }

    void tokenSignIn()
    {
        const QString token = service.token(QStringLiteral("demo"));
        QVERIFY(!Sync::run(identity.api().exchange(token)).isEmpty());
        QVERIFY_THROWS_EXCEPTION(Api::Failed, Sync::run(identity.api().exchange(token))); // one time only
    }

    void everyCallCarriesOnlyOurHeaders()
    {
        Sync::run(identity.api().post(QStringLiteral("webapi/prefs"), {{"lang", "he"}}));
        const QJsonObject headers = lastRequest(service).value(u"headers").toObject();
        QCOMPARE(headers.value(u"Cookie").toString(), QStringLiteral("rb_web_session=") + identity.value);
        QCOMPARE(headers.value(u"User-Agent").toString(), Wire::userAgent());
        QCOMPARE(headers.value(u"Content-Type").toString(), QStringLiteral("application/json"));
    }

    void setCookieRepliesAreNeverReplayed()
    {
        // A sign-in reply sets a cookie; the next request must still carry only ours.
        signIn(QStringLiteral("owner"));
        Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/projects")));
        const QJsonObject headers = lastRequest(service).value(u"headers").toObject();
        QCOMPARE(headers.value(u"Cookie").toString(), QStringLiteral("rb_web_session=") + identity.value);
    }

    void noCookieSendsNothing()
    {
        identity.value.clear();
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/me"))));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks"))));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, identity.api().socket(QStringLiteral("webapi/ws")));
        QVERIFY(service.log().isEmpty());
    }

    void conditionalRoundTrip()
    {
        const auto first = Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/projects")));
        QCOMPARE(first.source, Api::Source::Fresh);
        const auto second = Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/projects")));
        QCOMPARE(second.source, Api::Source::Unchanged);
        QCOMPARE(second.value, first.value);
        QCOMPARE(second.digest, first.digest);
        const QJsonArray log = service.log();
        QCOMPARE(log.size(), 2);
        QVERIFY(!log.at(0)[u"headers"].toObject().contains(u"X-RB-Have"));
        QCOMPARE(log.at(1)[u"headers"][u"X-RB-Have"].toString(), first.digest);
        QCOMPARE(log.at(1)[u"status"].toInt(), 304);

        // A changed page comes back whole with a new digest and replaces the copy.
        service.setPage(QStringLiteral("webapi/projects"), QJsonArray{QStringLiteral("new")});
        const auto third = Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/projects")));
        QCOMPARE(third.source, Api::Source::Fresh);
        QCOMPARE(third.value, QJsonValue(QJsonArray{QStringLiteral("new")}));
        QVERIFY(third.digest != first.digest);
    }

    void notModifiedWithoutHaveIsAnError()
    {
        service.fault({{"match", "webapi/tasks"}, {"status", 304}});
        try {
            Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks")));
            QFAIL("a 304 to an unconditional request must fail");
        } catch (const Api::Failed &failed) {
            QCOMPARE(failed.status, 304);
        }
    }

    void offlineFallback_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<bool>("servedFromDisk");
        QTest::newRow("503 html") << QJsonObject{{"status", 503}} << true;
        QTest::newRow("520") << QJsonObject{{"status", 520}} << true;
        QTest::newRow("504") << QJsonObject{{"status", 504}} << true;
        QTest::newRow("dropped connection") << QJsonObject{{"drop", true}} << true;
        QTest::newRow("500 is a real error") << QJsonObject{{"status", 500}} << false;
        QTest::newRow("429 is a real error") << QJsonObject{{"status", 429}} << false;
    }

    void offlineFallback()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(bool, servedFromDisk);
        const QString path = QStringLiteral("webapi/projects");
        const auto seen = Sync::run(identity.api().page<QJsonValue>(path));

        fault.insert(QStringLiteral("match"), path);
        fault.insert(QStringLiteral("times"), -1);
        service.fault(fault);
        if (servedFromDisk) {
            const auto offline = Sync::run(identity.api().page<QJsonValue>(path));
            QCOMPARE(offline.source, Api::Source::Saved);
            QCOMPARE(offline.value, seen.value);
            QCOMPARE(offline.digest, seen.digest);
        } else {
            QVERIFY_THROWS_EXCEPTION(Api::Failed, Sync::run(identity.api().page<QJsonValue>(path)));
        }
        // A page never seen has nothing to fall back on.
        service.fault({{"match", "webapi/automations"}, {"status", 503}, {"times", -1}});
        QVERIFY_THROWS_EXCEPTION(Api::Failed, Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/automations"))));
    }

    void staleCopyThatNoLongerDecodesGivesTheNetworkError()
    {
        struct Strict {
            static Strict fromJson(const QJsonValue &v)
            {
                JsonRecord check(v); // an object, or a DecodeError
                Q_UNUSED(check)
                return {};
            }
        };
        Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/tasks"))); // an array on disk
        service.fault({{"match", "webapi/tasks"}, {"status", 502}, {"times", -1}});
        try {
            Sync::run(identity.api().page<Strict>(QStringLiteral("webapi/tasks")));
            QFAIL("expected the network error");
        } catch (const Api::Failed &failed) {
            QCOMPARE(failed.status, 502);
        }
    }

    void freshBodyThatDoesNotDecodeIsThrown()
    {
        service.setPage(QStringLiteral("webapi/x"), QJsonObject{{"count", "many"}});
        struct Counted {
            qint64 count = 0;
            static Counted fromJson(const QJsonValue &v) { return {JsonRecord(v).integer(QStringLiteral("count"))}; }
        };
        try {
            Sync::run(identity.api().page<Counted>(QStringLiteral("webapi/x")));
            QFAIL("expected a decoding error");
        } catch (const DecodeError &error) {
            QCOMPARE(error.key, QStringLiteral("count"));
        }
        QVERIFY(!ProjectCache::read(identity.api().base().toString(), QStringLiteral("webapi/x"), identity.name));
    }

    void oneRetryForADroppedConnection()
    {
        service.fault({{"match", "webapi/tasks"}, {"drop", true}});
        const QByteArray body = Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks")));
        QVERIFY(QJsonDocument::fromJson(body).isArray());
        QCOMPARE(service.log().size(), 2);
    }

    void downloadsGoStraightToDisk()
    {
        QTemporaryDir folder;
        const QString saved = Sync::run(identity.api().download(QStringLiteral("webapi/files/blob.bin"), folder.path()));
        QCOMPARE(QFileInfo(saved).fileName(), QStringLiteral("blob.bin"));
        QByteArray expected;
        for (int i = 0; i < 256; ++i)
            expected += char(i);
        QCOMPARE(AtomicFile::read(saved), std::optional<QByteArray>(expected));

        // A refusal leaves nothing behind.
        service.fault({{"match", "webapi/files/report.txt"}, {"status", 403}, {"body", R"({"error":"no","detail":"Not yours."})"}});
        try {
            Sync::run(identity.api().download(QStringLiteral("webapi/files/report.txt"), folder.path()));
            QFAIL("a refused download must fail");
        } catch (const Api::Failed &failed) {
            QCOMPARE(failed.description(), QStringLiteral("Not yours."));
        }
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"blob.bin"});
    }

    void tcpSocketsSendWithoutDelay()
    {
        // Any TCP socket of the process, Qt's HTTP ones included, sends small writes at once.
        QTcpSocket socket;
        socket.connectToHost(service.base().host(), quint16(service.base().port()));
        QVERIFY(socket.waitForConnected(5000));
        QCOMPARE(socket.socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
    }

    void wholeExchangeHasATimeLimit()
    {
        // Slower than the limit, though well inside the idle timeout.
        identity.api().setExchangeLimit(std::chrono::milliseconds(300));
        const auto restore = qScopeGuard([this] { identity.api().setExchangeLimit(std::chrono::seconds(120)); });
        service.fault({{"match", "webapi/tasks"}, {"status", QJsonValue()}, {"delay", 3}, {"times", -1}});
        try {
            Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks")));
            QFAIL("the exchange should have been cut off");
        } catch (const Api::TransportError &error) {
            QCOMPARE(error.code, QNetworkReply::TimeoutError);
        }
    }

    void replyOverItsCapFails()
    {
        Api::Request request = identity.api().authorized(QStringLiteral("webapi/echo"), "POST",
                                               QJsonObject{{"text", QString(5000, u'a')}});
        request.maxBytes = 1000;
        try {
            Sync::run(identity.api().exchange(request));
            QFAIL("a reply over the cap must fail");
        } catch (const Api::Failed &failed) {
            QCOMPARE(failed.code, QStringLiteral("too_large"));
        }
    }

    void attemptsOnTheWire_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<int>("sent");
        QTest::newRow("GET: one retry") << QByteArray("GET") << 2;
        QTest::newRow("POST: none") << QByteArray("POST") << 1;
        QTest::newRow("DELETE: none") << QByteArray("DELETE") << 1;
    }

    void attemptsOnTheWire()
    {
        QFETCH(QByteArray, method);
        service.fault({{"match", "webapi/echo"}, {"drop", true}, {"times", -1}});
        const QString path = QStringLiteral("webapi/echo");
        if (method == "GET")
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().fetch(path)));
        else if (method == "POST")
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().post(path, {{"a", 1}})));
        else
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().remove(path)));
        QTest::qWait(100); // a quiet re-send by Qt would arrive now
        QTEST(int(service.log().size()), "sent");
    }

    void onlyAPlain200IsKept()
    {
        service.fault({{"match", "webapi/tasks"}, {"status", 203}, {"body", "[1]"}});
        const auto page = Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/tasks")));
        QCOMPARE(page.value, QJsonValue(QJsonArray{1}));
        QCOMPARE(ProjectCache::read(identity.api().base().toString(), QStringLiteral("webapi/tasks"), QStringLiteral("demo")), std::nullopt);
    }

    void refreshingPagesAreDue()
    {
        service.setPage(QStringLiteral("webapi/board"), QJsonObject{{"cards", QJsonArray()}},
                        {{"refreshing", 2.5}});
        Sync::run(identity.api().page<QJsonValue>(QStringLiteral("/webapi/board")));
        QCOMPARE(identity.api().due().value(QStringLiteral("webapi/board")), 2.5);
    }

    void projectFilesFallBackOffline()
    {
        const QString path = QStringLiteral("webapi/projects/1/files/notes.md");
        const QByteArray online = Sync::run(identity.api().fetch(path));
        QVERIFY(!online.isEmpty());
        service.fault({{"match", path}, {"drop", true}, {"times", -1}});
        QCOMPARE(Sync::run(identity.api().fetch(path)), online);
        // Other paths have no copy to offer.
        service.fault({{"match", "webapi/tasks"}, {"drop", true}, {"times", -1}});
        QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks"))));
    }

    void staleCookieDoesNotSignOut()
    {
        const QString old = identity.value;
        identity.value = signIn(); // a new session; the old one ends on the server
        Api::Request request = identity.api().authorized(QStringLiteral("webapi/me"), "GET", std::nullopt, old);
        service.expire(QStringLiteral("demo"));
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(identity.api().exchange(request)));
        QCOMPARE(identity.rejections, 0);
        // The same 401 to the cookie we hold now ends the session.
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, Sync::run(identity.api().post(QStringLiteral("webapi/prefs"), {})));
        QCOMPARE(identity.rejections, 1);
    }

    void emptyAndOddBodies()
    {
        service.fault({{"match", "webapi/prefs"}, {"status", 200}, {"body", ""}});
        QCOMPARE(Sync::run(identity.api().post(QStringLiteral("webapi/prefs"), {})), QJsonObject());
        service.fault({{"match", "webapi/prefs"}, {"status", 204}});
        QCOMPARE(Sync::run(identity.api().raw(QStringLiteral("webapi/prefs"), "POST", std::chrono::seconds(5), QJsonObject())),
                 std::nullopt);
        service.fault({{"match", "webapi/prefs"}, {"status", 200}, {"body", "42"}});
        QCOMPARE(Sync::run(identity.api().raw(QStringLiteral("webapi/prefs"), "GET", std::chrono::seconds(5))),
                 std::optional<QJsonValue>(42));
    }

    void openCallsSendNoCookie()
    {
        const QJsonObject reply = Sync::run(identity.api().openPost({{"message", "hi"}}, QStringLiteral("webapi/public/contact")));
        QCOMPARE(reply.value(u"received")[u"message"].toString(), QStringLiteral("hi"));
        const auto status = Sync::run(identity.api().open<QJsonObject>(QStringLiteral("webapi/public/status")));
        QVERIFY(status.value(u"ok").toBool());
        for (const QJsonValue &entry : service.log())
            QVERIFY(!entry[u"headers"].toObject().contains(u"Cookie"));
    }

    void uploadIsStrictMultipart()
    {
        QByteArray data(300'000, '\0');
        for (int i = 0; i < data.size(); ++i)
            data[i] = char(i * 7);
        // Named: GCC 12 destroys brace-built aggregate arguments of a coroutine twice.
        const Api::Upload upload{{QStringLiteral("file"), QStringLiteral("photo.jpg"), QStringLiteral("image/jpeg"), data},
                                 {{QStringLiteral("scope"), QStringLiteral("main")}}};
        const auto reply = Sync::run(identity.api().upload<QJsonObject>(QStringLiteral("webapi/upload"), upload));
        QCOMPARE(reply.value(u"size").toInt(), data.size());
        QCOMPARE(reply.value(u"sha256").toString(), ProjectCache::digest(data));
        QCOMPARE(reply.value(u"fields")[u"scope"].toString(), QStringLiteral("main"));
        QCOMPARE(reply.value(u"mime").toString(), QStringLiteral("image/jpeg"));
    }

    void namedDownload()
    {
        const auto named = Sync::run(identity.api().fetchNamed(QStringLiteral("webapi/files/דוח שבועי.txt")));
        QCOMPARE(named.filename, QStringLiteral("דוח שבועי.txt"));
        QVERIFY(!named.data.isEmpty());
        const auto bare = Sync::run(identity.api().fetchNamed(QStringLiteral("webapi/raw/report.txt")));
        QCOMPARE(bare.filename, QStringLiteral("report.txt"));
    }

    void socketTakesLargeMessages()
    {
        Api::PendingSocket pending = identity.api().socket(QStringLiteral("webapi/ws"));
        QCOMPARE(pending.request.url().scheme(), QStringLiteral("ws"));
        QWebSocket *ws = pending.socket.get();
        QSignalSpy messages(ws, &QWebSocket::textMessageReceived);
        QVERIFY(Sync::run(pending.open()));
        QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 1, 5000); // hello
        const qint64 size = 8 * 1024 * 1024;
        ws->sendTextMessage(QStringLiteral(R"({"type":"big","size":%1})").arg(size));
        QVERIFY(messages.wait(20000));
        QCOMPARE(messages.last().first().toString().toUtf8().size(), size);
    }
};

QTEST_GUILESS_MAIN(ApiTest)
#include "apitest.moc"
