// Decoding, encoding and the derived values of a message.

#include "chat/chatmessage.h"
#include "net/jsonrecord.h"

#include <QDateTime>
#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<int>)
Q_DECLARE_METATYPE(std::optional<QString>)

namespace {

QJsonValue json(const char *text)
{
    return Decode::parse(QByteArray(text));
}

constexpr double decodedAt = 1700000000.25;

} // namespace

class ChatMessageTest : public QObject
{
    Q_OBJECT

private slots:
    void lenient_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<double>("createdAt");
        QTest::addColumn<std::optional<QString>>("tgMessageID");
        const std::optional<QString> none;
        QTest::newRow("empty object") << QByteArray("{}") << "text" << decodedAt << none;
        QTest::newRow("nulls") << QByteArray(R"({"kind":null,"created_at":null})") << "text"
                               << decodedAt << none;
        QTest::newRow("empty kind") << QByteArray(R"({"kind":""})") << "text" << decodedAt
                                    << none;
        QTest::newRow("id sent as a number") << QByteArray(R"({"tg_message_id":12})") << "text"
                                             << decodedAt << std::optional<QString>(u"12"_s);
        QTest::newRow("present but empty id") << QByteArray(R"({"tg_message_id":""})") << "text"
                                              << decodedAt << std::optional<QString>(u""_s);
    }

    void lenient()
    {
        QFETCH(QByteArray, body);
        const ChatMessage m = ChatMessage::fromJson(Decode::parse(body), decodedAt);
        QTEST(m.kind, "kind");
        QTEST(m.createdAt, "createdAt");
        QTEST(m.tgMessageID, "tgMessageID");
    }

    void missingTimeIsDecodingTime()
    {
        const double before = QDateTime::currentMSecsSinceEpoch() / 1000.0;
        const ChatMessage m = ChatMessage::fromJson(QJsonObject{});
        const double after = QDateTime::currentMSecsSinceEpoch() / 1000.0;
        QVERIFY(m.createdAt >= before && m.createdAt <= after);
    }

    void wrongTypes_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QString>("key");
        QTest::newRow("not an object") << QJsonValue(u"hello"_s) << "";
        QTest::newRow("seq as text") << json(R"({"seq":"abc"})") << "seq";
        QTest::newRow("time as text") << json(R"({"created_at":"noon"})") << "created_at";
        QTest::newRow("id as list") << json(R"({"run_id":[1]})") << "run_id";
    }

    void wrongTypes()
    {
        QFETCH(QJsonValue, value);
        QFETCH(QString, key);
        try {
            ChatMessage::fromJson(value, decodedAt);
            QFAIL("decoded");
        } catch (const DecodeError &e) {
            QCOMPARE(e.key, key);
        }
    }

    void badAttachmentIsDropped()
    {
        const ChatMessage m = ChatMessage::fromJson(
            json(R"({"seq":3,"attachments":[{"file_id":"f1","size":10},"junk",
                      {"file_id":"f2","size":"big"},{"file_id":9,"name":"b.png"}]})"),
            decodedAt);
        QVERIFY(m.attachments);
        QCOMPARE(m.attachments->size(), 2);
        QCOMPARE(m.attachments->at(0).size, std::optional<qint64>(10));
        QCOMPARE(m.attachments->at(1).fileID, u"9"_s);

        // An empty list is not the same as none.
        QVERIFY(ChatMessage::fromJson(json(R"({"attachments":[]})"), 0).attachments);
        QVERIFY(!ChatMessage::fromJson(json("{}"), 0).attachments);
    }

    void roundTrip()
    {
        ChatMessage m = ChatMessage::make(u"user"_s, u"**Task 4** — שלום"_s, 1700000001.125);
        m.seq = 42;
        m.kind = u"voice"_s;
        m.voiceFile = u"note-1.m4a"_s;
        m.runID = u"run_9"_s;
        m.source = u"telegram"_s;
        m.clientRequestID = u"c-1"_s;
        m.tgMessageID = u"-5"_s;
        m.replyToID = u"41"_s;
        m.replyToRole = u"assistant"_s;
        m.replyToText = u"quoted"_s;
        m.replyRef = u"ref"_s;
        m.taskNo = u"4"_s;
        m.routeVote = u"up"_s;
        m.attachments = QList<ChatAttachment>{
            {u"f1"_s, u"a.pdf"_s, u"application/pdf"_s, 1024, u"u"_s, u"d"_s},
            {u"f2"_s, {}, {}, std::nullopt, {}, {}},
        };
        const QJsonObject o = m.toJson();
        const ChatMessage back = ChatMessage::fromJson(o, 0);
        QCOMPARE(back, m);
        QVERIFY(!back.localID.isEmpty() && back.localID != m.localID);

        // Absent optionals stay absent, and localID is never written.
        QStringList keys = ChatMessage::make(u"user"_s, u"hi"_s, 5).toJson().keys();
        keys.sort();
        QCOMPARE(keys, QStringList({u"created_at"_s, u"kind"_s, u"role"_s, u"seq"_s, u"text"_s}));
        QCOMPARE(o.value(u"attachments").toArray().at(1).toObject().keys(),
                 QStringList({u"file_id"_s}));
    }

    void taskNumber_data()
    {
        QTest::addColumn<std::optional<QString>>("taskNo");
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<int>>("number");
        const std::optional<QString> none;
        const std::optional<int> no;
        const auto field = [](const char *s) { return std::optional<QString>(s); };
        const auto n = [](int v) { return std::optional<int>(v); };
        QTest::newRow("field first") << field("12") << "Task 3" << n(12);
        QTest::newRow("field with p-") << field(" p-12 ") << "" << n(12);
        QTest::newRow("bad field, text decides") << field("soon") << "Task 3: x" << n(3);
        QTest::newRow("zero field, text decides") << field("0") << "task #5" << n(5);
        QTest::newRow("decorated opening") << none << "🔧 **Task № 8** — fixing" << n(8);
        QTest::newRow("russian") << none << "Задача 5: проверить" << n(5);
        QTest::newRow("hebrew") << none << "משימה 6 הסתיימה" << n(6);
        QTest::newRow("mentioned later") << none << "See task 4 for that" << no;
        QTest::newRow("digits run on") << none << "Task 12b" << no;
        QTest::newRow("bare hash") << none << "#1 priority" << no;
        QTest::newRow("too large") << none << "Task 99999999999" << no;
    }

    void taskNumber()
    {
        QFETCH(std::optional<QString>, taskNo);
        QFETCH(QString, text);
        ChatMessage m = ChatMessage::make(u"assistant"_s, text, 0);
        m.taskNo = taskNo;
        QTEST(m.taskNumber(), "number");
    }
};

QTEST_GUILESS_MAIN(ChatMessageTest)
#include "chatmessagetest.moc"
