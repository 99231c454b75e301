// The chat store against the reference service: loading, the live socket, polling when the
// socket loses frames, and reconnecting.

#include "support/chatharness.h"
#include "net/api.h"
#include "net/identity.h"
#include "support/sync.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

namespace {

int assistantReplies(const ChatStore &store)
{
    int n = 0;
    for (const ChatMessage &m : store.messages())
        n += m.role == u"assistant";
    return n;
}

} // namespace

class ChatLiveTest : public QObject, public ChatHarness
{
    Q_OBJECT

    QJsonObject post(const QString &text, const QString &conversation = QStringLiteral("main"))
    {
        return service.control("POST", QStringLiteral("chat"),
                               {{"user", "demo"}, {"conversation_id", conversation}, {"text", text}});
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
    }

    void init()
    {
        freshStart({{"mode", "normal"}, {"step_delay", 0.01}});
        sleeper.requested.clear();
    }

    void loadsTheConversationInPages()
    {
        service.control("POST", QStringLiteral("agent"), {{"mode", "silent"}});
        for (int i = 0; i < 5; ++i)
            post(QStringLiteral("turn %1").arg(i));
        service.control("POST", QStringLiteral("feed"), {{"page_size", 2}});
        auto chat = newStore();
        Sync::run(chat->load());
        QCOMPARE(chat->messages().size(), 5);
        QCOMPARE(chat->cursor(), 5);
        QCOMPARE(chat->failure(), QString());
        // Another conversation's messages stay there.
        post(QStringLiteral("project talk"), QStringLiteral("project:4"));
        Sync::run(chat->load());
        QCOMPARE(chat->messages().size(), 5);
        auto project = newStore(ChatScope::project(4));
        Sync::run(project->load());
        QCOMPARE(project->messages().size(), 1);
    }

    void loadFailuresInWords_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<QString>("text");
        QTest::newRow("server error") << QJsonObject{{"status", 500}} << "HTTP 500";
        QTest::newRow("no answer") << QJsonObject{{"drop", true}} << "Could not load the conversation.";
        QTest::newRow("odd shape") << QJsonObject{{"status", 200}, {"body", R"({"messages":"none"})"}}
                                   << "The server answered in an unexpected shape: ";
    }

    void loadFailuresInWords()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(QString, text);
        fault.insert(QStringLiteral("match"), QStringLiteral("webapi/messages"));
        fault.insert(QStringLiteral("times"), -1);
        service.fault(fault);
        auto chat = newStore();
        Sync::run(chat->load());
        QVERIFY2(chat->failure().startsWith(text), qPrintable(chat->failure()));
        QVERIFY(!chat->loading());
    }

    void followsTheAgentLive()
    {
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(chat->connected());
        QSignalSpy lanes(chat.get(), &ChatStore::laneChanged);
        post(QStringLiteral("When is the bus?"));
        QTRY_COMPARE(assistantReplies(*chat), 1);
        QVERIFY(lanes.count() >= 3);
        QCOMPARE(chat->activityHistory().size(), 1);
        QVERIFY(!chat->activityHistory().first().tools.isEmpty());
    }

    // A page that says there is more but does not move its cursor ends the paging.
    void pagingStopsWhenTheCursorStands_data()
    {
        QTest::addColumn<QString>("body");
        QTest::newRow("has_more") << R"({"ok":true,"conversation_id":"main","messages":[],"cursor":0,"has_more":true})";
        QTest::newRow("activity_has_more")
            << R"({"ok":true,"conversation_id":"main","messages":[],"cursor":0,"activity":[],"activity_cursor":0,"activity_has_more":true})";
    }

    void pagingStopsWhenTheCursorStands()
    {
        QFETCH(QString, body);
        service.fault({{"match", "webapi/messages"}, {"status", 200}, {"body", body}, {"times", -1}});
        auto chat = newStore();
        service.clearLog();
        Sync::run(chat->load());
        QVERIFY(service.requests(QStringLiteral("webapi/messages")).size() <= 2);
    }

    // Back after a failure (here the 12 s refresh gets through again): kept turns go out.
    void aKeptTurnGoesOutWhenTheServerReturns()
    {
        service.control("POST", QStringLiteral("agent"), {{"mode", "silent"}});
        service.fault({{"match", "webapi/"}, {"status", 503}, {"times", -1}});
        auto chat = newStore();
        chat->open();
        chat->send(QStringLiteral("kept for later"));
        QVERIFY(passTimeUntil([&] { return !chat->pendingTurns().isEmpty()
                                           && !chat->pendingTurns().first().error.isEmpty(); }));
        service.control("DELETE", QStringLiteral("faults"));
        QVERIFY(passTimeUntil([&] { return chat->pendingTurns().isEmpty(); }));
        QCOMPARE(stored().size(), 1);
    }

    void pollingCatchesUpWhenFramesAreLost()
    {
        service.control("POST", QStringLiteral("socket"), {{"drop_frames", QJsonArray{"delta", "tool", "final"}}, {"times", -1}});
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(chat->connected());
        chat->send(QStringLiteral("Are you there?"));
        QTRY_COMPARE(chat->awaitingRuns().size(), 1); // our turn's run is followed
        QVERIFY(passTimeUntil([&] { return assistantReplies(*chat) == 1; }));
        QCOMPARE(chat->activityHistory().size(), 1);
        QVERIFY(chat->awaitingRuns().isEmpty());
        QVERIFY(sleeper.requested.contains(std::chrono::milliseconds(2s)));
    }

    void everyFrameLostStillEndsWithTheReply()
    {
        // No socket frame at all: the 12 s poller finds the turn, then the run is polled.
        service.control("POST", QStringLiteral("socket"),
                        {{"drop_frames", QJsonArray{"run_started", "delta", "tool", "final"}}, {"times", -1}});
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(chat->connected());
        QTRY_VERIFY(!chat->loading());
        post(QStringLiteral("Hello?"));
        QVERIFY(passTimeUntil([&] { return assistantReplies(*chat) == 1; }));
        QVERIFY(sleeper.requested.contains(std::chrono::milliseconds(12s)));
        QCOMPARE(stored().size(), 2);
    }

    void reconnectsWithBackoff()
    {
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(chat->connected());
        sleeper.requested.clear();
        service.control("POST", QStringLiteral("socket"), {{"user", "demo"}, {"action", "drop"}});
        QTRY_VERIFY(!chat->connected());
        QTRY_VERIFY(sleeper.requested.contains(std::chrono::milliseconds(1600)));
        // While the wait lasts nothing reconnects; when it ends the socket is back.
        QTest::qWait(100);
        QVERIFY(!chat->connected());
        QVERIFY(passTimeUntil([&] { return chat->connected(); }, 5));
        // A live socket brings the reply again.
        post(QStringLiteral("Still there?"));
        QTRY_COMPARE(assistantReplies(*chat), 1);
    }

    void telegramMessagesArriveByRefresh()
    {
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(chat->connected());
        QTRY_VERIFY(!chat->loading());
        service.control("POST", QStringLiteral("message"),
                        {{"user", "demo"}, {"conversation_id", "main"}, {"role", "user"},
                         {"text", "from the phone"}, {"source", "telegram"}, {"tg_message_id", "77"}});
        QTRY_COMPARE(chat->messages().size(), 1);
        QCOMPARE(chat->messages().first().source, std::optional<QString>("telegram"));
    }

    void networkReturnRefreshes()
    {
        auto chat = newStore();
        chat->open();
        QTRY_VERIFY(!chat->loading());
        reachability.set(false);
        QVERIFY(!chat->networkAvailable());
        service.control("POST", QStringLiteral("agent"), {{"mode", "silent"}});
        post(QStringLiteral("queued while away"));
        service.clearLog();
        reachability.set(true);
        QTRY_COMPARE(chat->messages().size(), 1);
        QVERIFY(chat->networkAvailable());
    }
};

QTEST_GUILESS_MAIN(ChatLiveTest)
#include "chatlivetest.moc"
