// What the server sends and which conversation it belongs to: messages, the feed, socket
// frames, run records, and the integer rule they share.

#include "chat/model/chatframe.h"
#include "chat/model/chatjson.h"
#include "chat/model/chatscope.h"
#include "chat/model/messagesfeed.h"
#include "chat/model/runrecord.h"
#include "chat/model/tasknumber.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<int>)
Q_DECLARE_METATYPE(std::optional<qint64>)

namespace {

QJsonValue json(const QByteArray &text)
{
    return Decode::parse(text);
}

constexpr double decodedAt = 1700000000.25;

} // namespace

class ChatWireTest : public QObject
{
    Q_OBJECT

private slots:
    void message_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("written"); // beyond the keys always written; "": body
        const auto row = [](const char *name, const char *body, const char *written = "") {
            QTest::newRow(name) << QByteArray(body) << QByteArray(written);
        };
        row("every key", R"({"seq":42,"role":"user","kind":"voice",
            "text":"**Task 4** — שלום","created_at":1700000001.125,"voice_file":"n.m4a",
            "run_id":"run_9","source":"telegram","client_request_id":"c-1","tg_message_id":"-5",
            "reply_to_id":"41","reply_to_role":"assistant","reply_to_text":"q","reply_ref":"r",
            "task_no":"4","route_vote":"up","attachments":[{"file_id":"f1","name":"a.pdf",
            "mime":"application/pdf","size":1024,"url":"u","download_url":"d"},{"file_id":"f2"}]})");
        row("nulls", R"({"kind":null,"created_at":null})", "{}");
        row("ids sent as numbers", R"({"tg_message_id":12,"run_id":-3})",
            R"({"tg_message_id":"12","run_id":"-3"})");
        row("present but empty id", R"({"tg_message_id":""})");
        row("bad attachments dropped", R"({"attachments":[{"file_id":"f1","size":10},"junk",
                 {"file_id":"f2","size":"big"},{"file_id":9,"name":"b.png"}]})",
            R"({"attachments":[{"file_id":"f1","size":10},{"file_id":"9","name":"b.png"}]})");
        row("an empty list is not none", R"({"attachments":[]})");
        // One key of the wrong type, or a number out of range, takes its default.
        row("seq as text", R"({"seq":"abc","text":"kept"})", R"({"text":"kept"})");
        row("attachments as text", R"({"attachments":"a.pdf","seq":3})", R"({"seq":3})");
        row("seq past 2^53", R"({"seq":9007199254740994})", "{}");
        row("time before 1970", R"({"created_at":-5})", "{}");
    }

    // Decoded and written back: defaults filled in, absent optionals left out, localID
    // never written nor compared.
    void message()
    {
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, written);
        QJsonObject expected{{u"seq"_s, 0},
                             {u"role"_s, u""_s},
                             {u"kind"_s, u"text"_s},
                             {u"text"_s, u""_s},
                             {u"created_at"_s, decodedAt}};
        const QJsonObject extra = json(written.isEmpty() ? body : written).toObject();
        for (auto it = extra.begin(); it != extra.end(); ++it)
            expected.insert(it.key(), it.value());
        const ChatMessage m = ChatMessage::fromJson(json(body), decodedAt);
        QCOMPARE(m.toJson(), expected);
        const ChatMessage again = ChatMessage::fromJson(json(body), decodedAt);
        // Only a message without a seq needs an id of its own for its row.
        QVERIFY(m.seq >= 1 ? m.localID.isEmpty() : m.localID != again.localID);
        QCOMPARE(again, m);
    }

    void rejected_data()
    {
        QTest::addColumn<QString>("record");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("key"); // of the DecodeError
        QTest::newRow("message not an object") << "message" << QByteArray(R"(["hello"])") << "";
        QTest::newRow("feed a list") << "feed" << QByteArray("[]") << "";
        QTest::newRow("messages not a list")
            << "feed" << QByteArray(R"({"messages":{}})") << "messages";
        QTest::newRow("cursor as text") << "feed" << QByteArray(R"({"cursor":"9"})") << "cursor";
        QTest::newRow("task states as list")
            << "feed" << QByteArray(R"({"task_states":[]})") << "task_states";
        QTest::newRow("frame not an object") << "frame" << QByteArray("[]") << "";
        QTest::newRow("run not an object") << "run" << QByteArray("[7]") << "";
    }

    void rejected()
    {
        QFETCH(QString, record);
        QFETCH(QByteArray, body);
        try {
            if (record == u"message")
                ChatMessage::fromJson(json(body), decodedAt);
            else if (record == u"feed")
                MessagesFeed::fromJson(json(body), decodedAt);
            else if (record == u"frame")
                ChatFrame::fromJson(json(body));
            else
                RunRecord::fromJson(json(body));
            QFAIL("decoded");
        } catch (const DecodeError &e) {
            QTEST(e.key, "key");
        }
    }

    void aHugeMessageIsCutAndSaysSo()
    {
        const QString text(ChatMessage::maxText + 10, u'x');
        const ChatMessage m = ChatMessage::fromJson(QJsonObject{{u"seq"_s, 1}, {u"text"_s, text}}, decodedAt);
        QVERIFY(m.text.startsWith(text.left(ChatMessage::maxText)));
        QVERIFY(m.text.endsWith(u"[Message cut: it is longer than this device shows]"_s));
    }

    void feedSkipsBadElements()
    {
        const MessagesFeed f = MessagesFeed::fromJson(
            json(R"({"ok":true,"messages":[{"seq":1,"role":"user","text":"a"}, "junk",
                [2], null, {"seq":4,"role":"assistant","text":"d"}],
              "activity":[{"seq":3,"id":"run_1","tool":{"status":"started"}},{"seq":[]},
                {"seq":4,"run_id":"run_2","tool":{"name":"read"}}],"activity_cursor":4})"),
            decodedAt);
        QCOMPARE(f.messages.size(), 2);
        QCOMPARE(f.messages.at(1).text, u"d"_s);
        QCOMPARE(f.skipped, 3);
        QCOMPARE(f.activity.size(), 2);
        QCOMPARE(f.skippedActivity, 1);
        QCOMPARE(f.activity.at(1).id, u"run_2"_s);                // "run_id" when "id" is missing
        QVERIFY(!f.activity.at(0).tool && f.activity.at(1).tool); // a nameless tool is none
        QCOMPARE(f.activityCursor, std::optional<qint64>(4));
        QVERIFY(f.isFor(ChatScope::main()) && !f.isFor(ChatScope::project(7)));
        QVERIFY(MessagesFeed::fromJson(json(R"({"conversation_id":"project:7"})"), 0)
                    .isFor(ChatScope::project(7)));
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
        const ChatFrame f = ChatFrame::fromJson(
            QJsonObject{{u"type"_s, u"final"_s},
                        {u"user_seq"_s, userSeq},
                        {u"run_id"_s, 17},
                        {u"client_request_id"_s, QJsonArray{1}},
                        {u"text"_s, false},
                        {u"attempt"_s, u"2"_s},
                        {u"created_at"_s, u"1700000000.5"_s},
                        {u"voice_url"_s, u"https://h.example/webapi/voice/files/r1.m4a?sig=x"_s}});
        QTEST(f.userSeq, "expected");
        QCOMPARE(f.runID, u"17"_s);
        QCOMPARE(f.clientRequestID, QString());
        QCOMPARE(f.attempt, std::optional<int>(2));
        QCOMPARE(f.createdAt, std::optional<double>(1700000000.5));
        QCOMPARE(f.conversationID, u"main"_s);
        QCOMPARE(f.voiceFile(), std::optional<QString>(u"r1.m4a"_s));
        QCOMPARE(f.finalOutcome(), u"completed"_s);
    }

    void runRecord()
    {
        const RunRecord r = RunRecord::fromJson(json(
            R"({"conversation_id":"project:2","done":"true","text":"answer","attempt":"3",
                "created_at":1700000000,"voice_url":"/v/a.mp3","error":{"x":1}})"));
        QVERIFY(r.done);
        QCOMPARE(r.attempt, std::optional<int>(3));
        QCOMPARE(r.error, QString());
        QCOMPARE(r.finalOutcome(), u"complete"_s); // not a frame's "completed"
        QCOMPARE(r.voiceFile(), std::optional<QString>(u"a.mp3"_s));
        QCOMPARE(RunRecord::fromJson(json(R"({"outcome":"continued"})")).finalOutcome(),
                 u"continued"_s);
    }

    void taskNumber_data()
    {
        QTest::addColumn<QString>("taskNo"); // "-": none
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("number"); // 0: none
        QTest::newRow("field first") << "12" << "Task 3" << 12;
        QTest::newRow("field with p-") << " p-12 " << "" << 12;
        QTest::newRow("zero field, text decides") << "0" << "task #5" << 5;
        QTest::newRow("decorated opening") << "-" << "🔧 **Task № 8** — fixing" << 8;
        QTest::newRow("hebrew") << "-" << "משימה 6 הסתיימה" << 6;
        QTest::newRow("mentioned later") << "-" << "See task 4 for that" << 0;
        QTest::newRow("digits run on") << "-" << "Task 12b" << 0;
        QTest::newRow("too large") << "-" << "Task 99999999999" << 0;
    }

    void taskNumber()
    {
        QFETCH(QString, taskNo);
        QFETCH(QString, text);
        ChatMessage m = ChatMessage::make(u"assistant"_s, text, 0);
        if (taskNo != u"-") m.taskNo = taskNo;
        QTEST(m.taskNumber().value_or(0), "number");
    }

    // Numbers read from server text and from "/stop N", the one reading the store and the
    // terminal share; -1: none.
    void numbers_data()
    {
        QTest::addColumn<bool>("stop");
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("value");
        QTest::newRow("plus") << false << "+3" << 3LL;
        QTest::newRow("largest") << false << "9223372036854775807" << 9223372036854775807LL;
        QTest::newRow("overflow") << false << "9223372036854775808" << -1LL;
        QTest::newRow("space") << false << " 1" << -1LL;
        QTest::newRow("other digits") << false << "١٢" << -1LL;
        QTest::newRow("stop") << true << "/stop 12" << 12LL;
        QTest::newRow("stop, hash, spaces around") << true << "  /stop  #7 " << 7LL;
        QTest::newRow("stop zero") << true << "/stop 0" << -1LL;
        QTest::newRow("stop, more words") << true << "/stop 3 now" << -1LL;
        QTest::newRow("stop, no number") << true << "/stop" << -1LL;
        QTest::newRow("stop too long") << true << "/stop 1234567890" << -1LL;
        QTest::newRow("stop inside a sentence") << true << "please /stop 3" << -1LL;
    }

    void numbers()
    {
        QFETCH(bool, stop);
        QFETCH(QString, text);
        const std::optional<qint64> got = stop ? std::optional<qint64>(TaskNumber::stopCommand(text))
                                               : ChatJson::parseInteger(text);
        QTEST(got.value_or(-1), "value");
    }

    void scopePaths_data()
    {
        QTest::addColumn<int>("project"); // 0: main
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("storageKey");
        QTest::addColumn<QString>("path");
        const QString query = u"webapi/messages?since=5"_s;
        QTest::newRow("main keeps everything") << 0 << query << query << query;
        QTest::newRow("project, path with a query")
            << 7 << query << query + u"-project-7"_s
            << query + u"&conversation_id=project:7&project_id=7"_s;
        QTest::newRow("project, path without a query")
            << 7 << u"webapi/ws"_s << u"webapi/ws-project-7"_s
            << u"webapi/ws?conversation_id=project:7&project_id=7"_s;
    }

    void scopePaths()
    {
        QFETCH(int, project);
        QFETCH(QString, base);
        const ChatScope scope = project ? ChatScope::project(project) : ChatScope::main();
        QTEST(scope.storageKey(base), "storageKey");
        QTEST(scope.path(base), "path");
    }

    void scopeFields()
    {
        QVERIFY(ChatScope::main().fields().isEmpty());
        // The server reads project_id as a number: text would be a different request.
        QCOMPARE(ChatScope::project(7).fields(),
                 (QJsonObject{{u"conversation_id"_s, u"project:7"_s}, {u"project_id"_s, 7}}));
    }

    void conversationID_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<int>("project"); // 0: main, -1: not a conversation
        QTest::newRow("main") << "main" << 0;
        QTest::newRow("project") << "project:7" << 7;
        QTest::newRow("beyond int") << "project:2147483648" << -1;
        QTest::newRow("letters") << "project:7a" << -1;
    }

    void conversationID()
    {
        QFETCH(QString, id);
        QFETCH(int, project);
        const std::optional<ChatScope> scope = ChatScope::fromConversationID(id);
        QCOMPARE(scope ? scope->projectID().value_or(0) : -1, project);
        if (scope) QCOMPARE(scope->conversationID(), id);
    }
};

QTEST_GUILESS_MAIN(ChatWireTest)
#include "chatwiretest.moc"
