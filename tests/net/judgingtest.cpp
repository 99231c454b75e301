// How the transport judges each kind of reply, against canned replies in process: statuses,
// headers, bodies, the saved copy of a page. The real wire is apitest's.

#include "net/api.h"
#include "net/serveraddress.h"
#include "net/wire.h"
#include "net/projectcache.h"
#include "support/fakenetwork.h"
#include "support/sync.h"
#include "support/testhome.h"
#include "support/testidentity.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>

using namespace Qt::StringLiterals;
using Reply = FakeNetwork::Reply;

namespace {

Reply canned(const QJsonObject &o)
{
    return Reply::fromJson(o);
}

// What a task ended with: "ok", or the failure's kind and text.
template<class T>
QString outcome(QCoro::Task<T> task)
{
    try {
        Sync::run(std::move(task));
        return u"ok"_s;
    } catch (const Api::Unauthorized &) {
        return u"unauthorized"_s;
    } catch (const Api::Failed &failed) {
        return u"failed %1: %2"_s.arg(failed.status).arg(failed.description());
    } catch (const Api::TransportError &) {
        return u"transport"_s;
    } catch (const DecodeError &error) {
        return u"decode: "_s + error.key;
    }
}

} // namespace

class JudgingTest : public QObject
{
    Q_OBJECT

    TestHome home;
    TestIdentity identity;
    std::unique_ptr<FakeNetwork> net;
    std::unique_ptr<Api> api;

private slots:
    void initTestCase()
    {
        qputenv("HALVENMARK_SERVER", "https://fake.test");
    }

    void init()
    {
        net = std::make_unique<FakeNetwork>();
        api = std::make_unique<Api>(net.get(), ServerAddress::configured());
        api->setIdentity(&identity);
        ProjectCache::clear();
        api->due().clear();
        identity.value = u"c00k1e"_s;
        identity.rejections = 0;
    }

    void cleanup() { api.reset(); }

    void exchange_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QJsonObject>("reply");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QByteArray>("data");
        auto row = [](const char *name, const char *method, const QJsonObject &reply,
                      const char *outcome, const char *data = "") {
            QTest::newRow(name) << QByteArray(method) << reply << QString::fromUtf8(outcome)
                                << QByteArray(data);
        };
        row("200", "GET", {{"body", "[1]"}}, "ok", "[1]");
        row("203 is a success", "GET", {{"status", 203}, {"body", "x"}}, "ok", "x");
        row("204", "DELETE", {{"status", 204}}, "ok");
        row("304 to a request that had no copy", "GET", {{"status", 304}}, "failed 304: HTTP 304");
        row("401 ends the session", "POST", {{"status", 401}}, "unauthorized");
        row("the server's reason", "POST", {{"status", 403}, {"body", R"({"detail":"Not yours."})"}},
            "failed 403: Not yours.");
        row("a redirect is not a success", "GET", {{"status", 302}}, "failed 302: HTTP 302");
        row("no answer", "POST", {{"drop", true}}, "transport");
    }

    void exchange()
    {
        QFETCH(QByteArray, method);
        QFETCH(QJsonObject, reply);
        QFETCH(QString, outcome);
        net->serve(u"webapi/x"_s, {canned(reply)});
        QByteArray data;
        const auto run = [&]() -> QCoro::Task<> {
            const Api::Reply got = co_await api->exchange(api->authorized(u"webapi/x"_s, method));
            data = got.data;
        };
        QCOMPARE(::outcome(run()), outcome);
        QTEST(data, "data");
        QCOMPARE(identity.rejections, outcome == u"unauthorized" ? 1 : 0);
        QCOMPARE(net->sent.size(), 1);
        QCOMPARE(net->sent[0].method, method);
        const QNetworkRequest &sent = net->sent[0].request;
        QCOMPARE(sent.rawHeader("Cookie"), "rb_web_session=c00k1e"_ba);
        QCOMPARE(sent.rawHeader("User-Agent"), Wire::userAgent().toUtf8());
    }

    // A page seen once, then asked again: the answer, or the copy on disk when the server is
    // down, never when it refused.
    void page_data()
    {
        QTest::addColumn<QJsonObject>("first");
        QTest::addColumn<QList<QJsonObject>>("then");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("source");
        const auto down = [](int status) { return QList<QJsonObject>{{{"status", status}}}; };
        const QJsonObject seen{{"body", "[1]"}};
        const QJsonObject dropped{{"drop", true}};
        const int saved = int(Api::Source::Saved);
        QTest::newRow("304: unchanged") << seen << down(304) << "ok" << int(Api::Source::Unchanged);
        QTest::newRow("changed") << seen << QList<QJsonObject>{{{"body", "[2]"}}} << "ok"
                                 << int(Api::Source::Fresh);
        QTest::newRow("503: the saved copy") << seen << down(503) << "ok" << saved;
        QTest::newRow("504") << seen << down(504) << "ok" << saved;
        QTest::newRow("dropped twice") << seen << QList<QJsonObject>{dropped} << "ok" << saved;
        QTest::newRow("dropped once: asked again")
            << seen << QList<QJsonObject>{dropped, {{"body", "[2]"}}} << "ok"
            << int(Api::Source::Fresh);
        QTest::newRow("500 is an answer") << seen << down(500) << "failed 500: HTTP 500" << -1;
        QTest::newRow("a 203 is not kept")
            << QJsonObject{{"status", 203}, {"body", "[1]"}} << down(503) << "failed 503: HTTP 503"
            << -1;
        QTest::newRow("rebuilding: asked again later")
            << QJsonObject{{"body", "[1]"}, {"headers", QJsonObject{{"X-RB-Refreshing", "+2.5"}}}}
            << down(304) << "ok" << int(Api::Source::Unchanged);
    }

    void page()
    {
        QFETCH(QJsonObject, first);
        QFETCH(QList<QJsonObject>, then);
        QFETCH(int, source);
        const QString path = u"webapi/tasks"_s;
        QList<Reply> replies{canned(first)};
        for (const QJsonObject &o : then)
            replies.append(canned(o));
        net->serve(path, replies);
        const auto seen = Sync::run(api->page<QJsonValue>(path));
        QCOMPARE(seen.value, QJsonValue(QJsonArray{1}));
        QCOMPARE(ProjectCache::read(api->base().toString(), path, u"demo"_s).has_value(), first.value(u"status") != 203);
        QCOMPARE(api->due().value(path, -1), first.contains(u"headers") ? 2.5 : -1.0);

        Api::Page<QJsonValue> again;
        const auto run = [&]() -> QCoro::Task<> { again = co_await api->page<QJsonValue>(path); };
        QTEST(outcome(run()), "outcome");
        if (source < 0)
            return;
        QCOMPARE(int(again.source), source);
        QCOMPARE(again.digest == seen.digest, source != int(Api::Source::Fresh));
        QCOMPARE(net->sent[1].request.rawHeader("X-RB-Have"),
                 ProjectCache::read(api->base().toString(), path, u"demo"_s) ? seen.digest.toUtf8() : ""_ba);
    }

    // A copy that no longer decodes is no fallback; a fresh body that does not is not kept.
    void decoding()
    {
        struct Counted {
            qint64 count = 0;
            static Counted fromJson(const QJsonValue &v) { return {JsonRecord(v).integer(u"count"_s)}; }
        };
        net->serve(u"webapi/tasks"_s, {canned({{"body", "[1]"}}), canned({{"status", 502}})});
        Sync::run(api->page<QJsonValue>(u"webapi/tasks"_s));
        QCOMPARE(outcome(api->page<Counted>(u"webapi/tasks"_s)), u"failed 502: HTTP 502"_s);
        net->serve(u"webapi/x"_s, {canned({{"body", QJsonObject{{"count", "many"}}}})});
        QCOMPARE(outcome(api->page<Counted>(u"webapi/x"_s)), u"decode: count"_s);
        QVERIFY(!ProjectCache::read(api->base().toString(), u"webapi/x"_s, u"demo"_s));
    }

    void bodies_data()
    {
        QTest::addColumn<QJsonObject>("reply");
        QTest::addColumn<QJsonValue>("value"); // undefined: none
        QTest::newRow("204") << QJsonObject{{"status", 204}} << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("a bare number") << QJsonObject{{"body", "42"}} << QJsonValue(42);
        QTest::newRow("not JSON") << QJsonObject{{"body", "ok!"}} << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("two values") << QJsonObject{{"body", "1,2"}} << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("an object") << QJsonObject{{"body", R"({"a":1})"}}
                                   << QJsonValue(QJsonObject{{"a", 1}});
    }

    void bodies()
    {
        QFETCH(QJsonObject, reply);
        QFETCH(QJsonValue, value);
        net->serve(u"webapi/prefs"_s, {canned(reply)});
        const auto got = Sync::run(api->raw(u"webapi/prefs"_s, "GET", std::chrono::seconds(5)));
        QCOMPARE(got.value_or(QJsonValue(QJsonValue::Undefined)), value);
        // post() reads anything but an object as an empty one.
        QCOMPARE(Sync::run(api->post(u"webapi/prefs"_s, {})), value.toObject());
        QCOMPARE(net->sent.last().request.rawHeader("Content-Type"), "application/json"_ba);
    }

    void login_data()
    {
        QTest::addColumn<QJsonObject>("reply"); // empty: the fixture
        QTest::addColumn<QString>("outcome");
        QTest::newRow("signed in") << QJsonObject() << "ok";
        QTest::newRow("wrong password")
            << QJsonObject{{"status", 401}, {"body", R"({"detail":"Wrong user name or password."})"}}
            << "failed 401: Wrong user name or password.";
        QTest::newRow("200 without a cookie")
            << QJsonObject{{"body", R"({"ok":true})"}}
            << "failed 200: no session cookie in the reply";
        QTest::newRow("rate limited") << QJsonObject{{"status", 429}, {"body", R"({"error":"slow"})"}}
                                      << "failed 429: slow";
    }

    void login()
    {
        QFETCH(QJsonObject, reply);
        identity.value.clear();
        net->serve(u"webapi/auth/login"_s,
                   {reply.isEmpty() ? Reply::fixture(u"login"_s) : canned(reply)});
        Api::Login login;
        const auto run = [&]() -> QCoro::Task<> { login = co_await api->login(u"owner"_s, u"pw"_s); };
        QTEST(outcome(run()), "outcome");
        QCOMPARE(identity.rejections, 0);
        QVERIFY(!net->sent[0].request.hasRawHeader("Cookie"));
        QCOMPARE(QJsonDocument::fromJson(net->sent[0].body)["username"].toString(), u"owner"_s);
        if (reply.isEmpty())
            QCOMPARE(login.cookie + login.user + login.role, u"s3ss10nownerowner"_s);
    }

    // Without a session nothing goes out at all; open calls never carry one.
    void cookies()
    {
        net->serve(u"webapi/projects"_s, {Reply::fixture(u"projects"_s)});
        net->serve(u"webapi/public/status"_s, {canned({{"body", R"({"ok":true})"}})});
        QVERIFY(Sync::run(api->open<QJsonObject>(u"webapi/public/status"_s)).value(u"ok").toBool());
        QVERIFY(!net->sent[0].request.hasRawHeader("Cookie"));
        identity.value.clear();
        QCOMPARE(outcome(api->page<QJsonValue>(u"webapi/projects"_s)), u"unauthorized"_s);
        QCOMPARE(outcome(api->fetch(u"webapi/tasks"_s)), u"unauthorized"_s);
        QVERIFY_THROWS_EXCEPTION(Api::Unauthorized, api->socket(u"webapi/ws"_s));
        QCOMPARE(net->sent.size(), 1);
    }

    void refusedDownloadLeavesNothing()
    {
        QTemporaryDir folder;
        net->serve(u"webapi/files/report.txt"_s, {Reply::fixture(u"refused"_s)});
        QCOMPARE(outcome(api->download(u"webapi/files/report.txt"_s, folder.path())),
                 u"failed 403: Not yours."_s);
        QVERIFY(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    }
};

QTEST_GUILESS_MAIN(JudgingTest)
#include "judgingtest.moc"
