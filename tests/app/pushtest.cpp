#include "app/pushcenter.h"
#include "app/pushstatussheet.h"
#include "app/tasknotifier.h"
#include "fakenotifier.h"
#include "platform/appdata.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "text/l.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

ChatFrame frame(const QString &type, const QString &run, const QString &text = {},
                const QString &conversation = u"main"_s)
{
    ChatFrame f;
    f.type = type;
    f.runID = run;
    f.conversationID = conversation;
    f.userSeq = 7;
    (type == u"run_started" ? f.label : f.text) = text;
    return f;
}

} // namespace

class PushTest : public QObject
{
    Q_OBJECT

    Service service;
    TestIdentity identity;
    std::unique_ptr<TestHome> home;

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        identity.signIn();
        L::pin(u"en"_s);
    }

    // A notification's route, or its fields when it has none; the route's text round-trips.
    void route_data()
    {
        QTest::addColumn<QVariantMap>("info");
        QTest::addColumn<QString>("id"); // empty: no route
        const auto route = [](const char *id) { return QVariantMap{{"route", id}}; };
        QTest::newRow("message") << route("message:12") << "message:12";
        QTest::newRow("task with #, spaces") << route(" task:#5 ") << "task:5";
        QTest::newRow("zero") << route("project:0") << "";
        QTest::newRow("not a number") << route("message:abc") << "";
        QTest::newRow("unknown prefix") << route("chat:1") << "";
        const auto withTask = [](const char *id) {
            return QVariantMap{{"route", id}, {"task_no", "3"}};
        };
        QTest::newRow("route wins over fields") << withTask("task:9") << "task:9";
        QTest::newRow("bad route wins over fields") << withTask("x") << "";
        QTest::newRow("task number as text") << QVariantMap{{"task_no", "#4"}} << "task:4";
        QTest::newRow("project as a number") << QVariantMap{{"project_id", 2.0}} << "project:2";
        QTest::newRow("seq") << QVariantMap{{"seq", 40.0}} << "message:40";
        QTest::newRow("fraction") << QVariantMap{{"seq", 4.5}} << "";
    }

    void route()
    {
        QFETCH(QVariantMap, info);
        QFETCH(QString, id);
        const std::optional<PushRoute> route = PushRoute::from(info);
        QCOMPARE(route ? route->id() : QString(), id);
        if (route)
            QCOMPARE(PushRoute::parse(route->id()), route);
    }

    void publishToken_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("accepted") << QJsonObject() << true;
        const QJsonObject refused{{"match", "webapi/push/register"}, {"status", 400},
                                  {"body", R"({"error":"bad_token","detail":"No."})"}};
        QTest::newRow("refused") << refused << false;
        QTest::newRow("server down")
            << QJsonObject{{"match", "webapi/push/register"}, {"status", 503}} << false;
    }

    void publishToken()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(bool, accepted);
        AppData::setSetting(QString::fromLatin1(PushCenter::marker), !accepted);
        if (!fault.isEmpty())
            service.fault(fault);
        PushCenter center{identity.api()};
        QCOMPARE(Sync::run(center.publishToken(u"00ff10abcdef0123"_s)), accepted);
        QCOMPARE(PushCenter::registered(), accepted);
        QCOMPARE(center.failure().isEmpty(), accepted);
        const QJsonArray log = service.log();
        const QJsonObject sent =
            QJsonDocument::fromJson(log.last()["body"].toString().toUtf8()).object();
        QCOMPARE(sent.value("token").toString(), u"00ff10abcdef0123"_s);
        QCOMPARE(sent.value("env").toString(), u"production"_s);
        QVERIFY(!sent.value("device_name").toString().isEmpty());
        QVERIFY(!sent.value("app_build").toString().isEmpty());
    }

    void registerThenStatusThenTest()
    {
        PushCenter center{identity.api()};
        PushStatusSheet sheet(identity.api(), &center);
        Sync::run(sheet.sendTest());
        QCOMPARE(sheet.test(), PushStatusSheet::Test::NoDevice);

        center.didRegister(QByteArray::fromHex("a1b2c3d4e5f60718293a"));
        QCOMPARE(center.token(), u"a1b2c3d4e5f60718293a"_s);
        QTRY_VERIFY(PushCenter::registered());
        Sync::run(sheet.load());
        QVERIFY(sheet.loaded());
        QVERIFY(sheet.status().ready);
        QVERIFY(sheet.deviceRegistered());
        Sync::run(sheet.sendTest());
        QCOMPARE(sheet.test(), PushStatusSheet::Test::Sent);

        center.didFail(u"no permission"_s);
        QVERIFY(!PushCenter::registered());
        QCOMPARE(center.failure(), u"no permission"_s);
    }

    void readinessCodes_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("phrase");
        QTest::newRow("key, en") << "apns_key_missing" << "en" << ".p8";
        QTest::newRow("key id, he") << "apns_key_id_missing" << "he" << "Key ID";
        QTest::newRow("team, ru") << "apns_team_missing" << "ru" << "Team ID";
    }

    void readinessCodes()
    {
        QFETCH(QString, code);
        QFETCH(QString, phrase);
        service.fault({{"match", "webapi/push/status"},
                       {"status", 200},
                       {"body", QJsonObject{{"ready", true}, {"errors", QJsonArray{code}}}}});
        PushCenter center{identity.api()};
        PushStatusSheet sheet(identity.api(), &center);
        Sync::run(sheet.load());
        QFETCH(QString, lang);
        L::pin(lang); // after loading: the texts follow the language of the moment
        QVERIFY(!sheet.status().ready);
        QCOMPARE(sheet.problems(), QStringList{PushStatus::explain(code)});
        QVERIFY(!PushStatus::explain(code).contains(code)); // its own text, not the fallback
        QVERIFY2(PushStatus::explain(code).contains(phrase), qPrintable(PushStatus::explain(code)));
        service.fault({{"match", "webapi/push/test"},
                       {"status", 409},
                       {"body", QJsonObject{{"error", code}}}});
        Sync::run(sheet.sendTest());
        QCOMPARE(sheet.test(), PushStatusSheet::Test::NotSent);
        QVERIFY(sheet.testText().endsWith(PushStatus::explain(code)));
    }

    void taskNotices_data()
    {
        QTest::addColumn<QList<ChatFrame>>("frames");
        QTest::addColumn<bool>("foreground");
        QTest::addColumn<QStringList>("keys"); // one per notification shown
        const ChatFrame started = frame("run_started", "r1", "Task #12: report");
        QTest::newRow("finished in the background")
            << QList<ChatFrame>{started, frame("delta", "r1", "wor"), frame("final", "r1", "Done.")}
            << false << QStringList{"task:12"};
        QTest::newRow("in front: nothing")
            << QList<ChatFrame>{started, frame("final", "r1")} << true << QStringList{};
        QTest::newRow("an error ends it, once")
            << QList<ChatFrame>{started, frame("error", "r1"), frame("final", "r1")} << false
            << QStringList{"task:12"};
        QTest::newRow("a project's run without a task")
            << QList<ChatFrame>{frame("final", "r2", "ok", "project:4")} << false
            << QStringList{"project:4"};
        QTest::newRow("otherwise the turn")
            << QList<ChatFrame>{frame("final", "r3", "ok")} << false << QStringList{"message:7"};
        QTest::newRow("no run id")
            << QList<ChatFrame>{frame("final", "", "ok")} << false << QStringList{};
    }

    void taskNotices()
    {
        QFETCH(QList<ChatFrame>, frames);
        QFETCH(bool, foreground);
        QFETCH(QStringList, keys);
        FakeNotifier notifier;
        TaskNotifier notices(&notifier);
        notices.setForeground(foreground);
        for (const ChatFrame &f : frames)
            notices.feed(f);
        QStringList shown;
        for (const Notifier::Note &note : notifier.shown) {
            shown << note.key;
            QVERIFY(!note.title.isEmpty());
        }
        QCOMPARE(shown, keys);
    }

    void clickRoutesLikeATap()
    {
        FakeNotifier notifier;
        PushCenter center(identity.api(), &notifier);
        center.arm();
        QCOMPARE(center.authorization(), PushCenter::Authorization::Authorized);
        QSignalSpy routed(&center, &PushCenter::routed);
        notifier.click(u"nonsense"_s);
        notifier.click(u"task:12"_s);
        QCOMPARE(routed.size(), 1);
        QCOMPARE(center.pending().take()->id(), u"task:12"_s);
        QVERIFY(!center.pending().waiting());
    }
};

QTEST_GUILESS_MAIN(PushTest)
#include "pushtest.moc"
