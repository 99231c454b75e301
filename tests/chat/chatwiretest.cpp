// What arrives around the messages: the feed, socket frames, run records, stored activity,
// and the integer rule they share.

#include "chat/activityupdate.h"
#include "chat/chatframe.h"
#include "chat/chatjson.h"
#include "chat/chatscope.h"
#include "chat/messagesfeed.h"
#include "chat/runrecord.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<qint64>)

namespace {

QJsonValue json(const char *text)
{
    return Decode::parse(QByteArray(text));
}

} // namespace

class ChatWireTest : public QObject
{
    Q_OBJECT

private slots:
    void parseInteger_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<qint64>>("value");
        const std::optional<qint64> none;
        QTest::newRow("plus") << "+3" << std::optional<qint64>(3);
        QTest::newRow("minus") << "-1" << std::optional<qint64>(-1);
        QTest::newRow("largest") << "9223372036854775807"
                                 << std::optional<qint64>(9223372036854775807LL);
        QTest::newRow("overflow") << "9223372036854775808" << none;
        QTest::newRow("sign only") << "-" << none;
        QTest::newRow("space") << " 1" << none;
        QTest::newRow("other digits") << "١٢" << none;
    }

    void parseInteger()
    {
        QFETCH(QString, text);
        QTEST(ChatJson::parseInteger(text), "value");
    }

    void feedSkipsBadElements()
    {
        const MessagesFeed f = MessagesFeed::fromJson(
            json(R"({"ok":true,"cursor":9,"has_more":true,"messages":[
                {"seq":1,"role":"user","text":"a"}, "junk", {"seq":"two"}, null,
                {"seq":4,"role":"assistant","text":"d"}],
              "activity":[{"seq":3,"id":"run_1","tool":{"status":"started"}},{"seq":[]},
                {"seq":4,"run_id":"run_2","tool":{"name":"read"}}],
              "activity_cursor":4,"task_states":{"p-3":"running"},"live":[{}]})"),
            100);
        QCOMPARE(f.messages.size(), 2);
        QCOMPARE(f.messages.at(1).text, u"d"_s);
        QCOMPARE(f.skipped, 3);
        QCOMPARE(f.activity.size(), 2);
        QCOMPARE(f.activity.at(1).id, u"run_2"_s); // "run_id" when "id" is missing
        QVERIFY(!f.activity.at(0).tool && f.activity.at(1).tool); // a nameless tool is none
        QCOMPARE(ActivityUpdate::fromJson(f.activity.at(1).toJson()), f.activity.at(1));
        QCOMPARE(f.skippedActivity, 1);
        QVERIFY(f.ok && f.hasMore && !f.activityHasMore);
        QCOMPARE(f.cursor, qint64(9));
        QCOMPARE(f.activityCursor, std::optional<qint64>(4));
        QCOMPARE(f.taskStates.value(u"p-3").toString(), u"running"_s);
        QCOMPARE(f.live.size(), 1);
        QVERIFY(f.isFor(ChatScope::main()) && !f.isFor(ChatScope::project(7)));
        QVERIFY(MessagesFeed::fromJson(json(R"({"conversation_id":"project:7"})"), 0)
                    .isFor(ChatScope::project(7)));
    }

    void feedShape_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("key"); // of the DecodeError
        QTest::newRow("a list") << QByteArray("[]") << "";
        QTest::newRow("messages not a list") << QByteArray(R"({"messages":{}})") << "messages";
        QTest::newRow("cursor as text") << QByteArray(R"({"cursor":"9"})") << "cursor";
        QTest::newRow("task states as list") << QByteArray(R"({"task_states":[]})")
                                             << "task_states";
    }

    void feedShape()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, key);
        try {
            MessagesFeed::fromJson(Decode::parse(body), 0);
            QFAIL("decoded");
        } catch (const DecodeError &e) {
            QCOMPARE(e.key, key);
        }
    }

    void frameIsLenient_data()
    {
        QTest::addColumn<QJsonValue>("userSeq");
        QTest::addColumn<qint64>("expected");
        QTest::newRow("number") << QJsonValue(5) << qint64(5);
        QTest::newRow("text") << QJsonValue(u" 5 "_s) << qint64(5);
        QTest::newRow("words") << QJsonValue(u"five"_s) << qint64(0);
        QTest::newRow("object") << QJsonValue(QJsonObject{{u"a"_s, 1}}) << qint64(0);
    }

    void frameIsLenient()
    {
        QFETCH(QJsonValue, userSeq);
        // Every other field odd as well: a frame is never rejected for its fields.
        const QJsonObject o{
            {u"type"_s, u"run_started"_s}, {u"user_seq"_s, userSeq},
            {u"run_id"_s, 17},             {u"client_request_id"_s, QJsonArray{1}},
            {u"text"_s, false},            {u"attempt"_s, u"2"_s},
            {u"created_at"_s, u"1700000000.5"_s},
        };
        const ChatFrame f = ChatFrame::fromJson(o);
        QTEST(f.userSeq, "expected");
        QCOMPARE(f.runID, u"17"_s);
        QCOMPARE(f.clientRequestID, QString());
        QCOMPARE(f.attempt, std::optional<int>(2));
        QCOMPARE(f.createdAt, std::optional<double>(1700000000.5));
        QCOMPARE(f.conversationID, u"main"_s);
    }

    void frameRoundTrip()
    {
        ChatFrame f;
        f.type = u"final"_s;
        f.conversationID = u"project:7"_s;
        f.runID = u"run_1"_s;
        f.userSeq = 12;
        f.text = u"done"_s;
        f.attempt = 2;
        f.voiceURL = u"https://h.example/webapi/voice/files/r1.m4a?sig=x"_s;
        f.createdAt = 1700000000.5;
        QCOMPARE(ChatFrame::fromJson(f.toJson()), f);
        QCOMPARE(f.voiceFile(), std::optional<QString>(u"r1.m4a"_s));
        QCOMPARE(f.finalOutcome(), u"completed"_s);
        QVERIFY_THROWS_EXCEPTION(DecodeError, ChatFrame::fromJson(QJsonValue(u"x"_s)));
    }

    void runRecord()
    {
        const RunRecord r = RunRecord::fromJson(json(
            R"({"conversation_id":"project:2","done":"true","text":"answer","attempt":"3",
                "created_at":1700000000,"voice_url":"/v/a.mp3","error":{"x":1}})"));
        QVERIFY(r.done);
        QCOMPARE(r.attempt, std::optional<int>(3));
        QCOMPARE(r.error, QString());
        QCOMPARE(r.finalOutcome(), u"complete"_s);
        QCOMPARE(r.voiceFile(), std::optional<QString>(u"a.mp3"_s));
        QCOMPARE(RunRecord::fromJson(r.toJson()), r);
        QCOMPARE(RunRecord::fromJson(json(R"({"outcome":"continued"})")).finalOutcome(),
                 u"continued"_s);
    }
};

QTEST_GUILESS_MAIN(ChatWireTest)
#include "chatwiretest.moc"
