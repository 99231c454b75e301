// The outbox records in JSON: every key through a round trip, and damaged records.

#include "chat/outboxstate.h"
#include "chat/uploadreply.h"
#include "net/jsonrecord.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(OutboxTurn)
Q_DECLARE_METATYPE(std::optional<QString>)

namespace {

// Through the text, as it lies on disk: numbers must survive printing and parsing.
QJsonValue throughText(const QJsonObject &o)
{
    return Decode::parse(QJsonDocument(o).toJson(QJsonDocument::Compact));
}

OutboxFile file(const QString &n)
{
    return {u"id-"_s + n, u"שם "_s + n + u".pdf"_s, u"application/pdf"_s, u"fid-"_s + n};
}

OutboxTurn fullTurn()
{
    OutboxTurn t{u"7b1c9a50-5d8e"_s, u"line one\nline \"two\" — שלום, привет 🎙"_s, true, true,
                 u"41"_s, u"quoted"_s, u"assistant"_s, 1700000000.123456,
                 {file(u"a"_s), file(u"b"_s)}, u"Your message is saved on this device."_s};
    t.geo = QJsonObject{{u"lat"_s, 32.0853}, {u"lon"_s, 34.7818}};
    t.voiceNote = file(u"voice"_s);
    t.voicePeak = 0.8123f;
    t.afterSeq = 9007199254740991LL;
    t.typed = u"typed beside"_s;
    return t;
}

} // namespace

class OutboxRecordsTest : public QObject
{
    Q_OBJECT

private slots:
    void turnRoundTrip_data()
    {
        QTest::addColumn<OutboxTurn>("turn");
        QTest::newRow("every key") << fullTurn();
        QTest::newRow("bare") << OutboxTurn{};
        OutboxTurn zeros{u"z"_s};
        zeros.geo = QJsonObject{};
        zeros.voicePeak = 0.0f;
        zeros.afterSeq = 0;
        zeros.typed = u""_s;
        QTest::newRow("optionals present but empty") << zeros;
        OutboxTurn awkward = fullTurn();
        awkward.voicePeak = 1e-7f;
        awkward.created = 0.1;
        QTest::newRow("awkward numbers") << awkward;
    }

    void turnRoundTrip()
    {
        QFETCH(OutboxTurn, turn);
        QCOMPARE(OutboxTurn::fromJson(throughText(turn.toJson())), turn);
    }

    // The names an older build reads; absent optionals are left out.
    void keysAsNamed()
    {
        QStringList keys = fullTurn().toJson().keys();
        keys.sort();
        QCOMPARE(keys.join(u' '), u"afterSeq created error files fromVoice geo id replyID "
                                  "replyRole replyText text typed voiceNote voicePeak "
                                  "voiceReply"_s);
        QCOMPARE(file(u"x"_s).toJson().keys(),
                 QStringList({u"fileID"_s, u"id"_s, u"mime"_s, u"name"_s}));
        QCOMPARE(OutboxTurn{}.toJson().size(), 10);
    }

    // A damaged file entry, voice note or location goes; the turn and its text stay.
    void damagedParts_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("files");
        QTest::addColumn<bool>("voiceNote");
        QTest::addColumn<QString>("warning");
        QTest::newRow("nulls are defaults")
            << QByteArray(R"({"id":"t","files":null,"voiceNote":null,"geo":null})") << 0
            << false << "";
        QTest::newRow("one bad file of three")
            << QByteArray(R"({"id":"t","files":[{"id":"a"},{"id":3},{"id":"c"}]})") << 2
            << false << "file 1";
        QTest::newRow("files not a list") << QByteArray(R"({"id":"t","files":{"id":"a"}})") << 0
                                          << false << "files";
        QTest::newRow("voice note not a file")
            << QByteArray(R"({"id":"t","voiceNote":"a.m4a","files":[{"id":"a"}]})") << 1
            << false << "voice note";
        QTest::newRow("location not an object")
            << QByteArray(R"({"id":"t","geo":[32,34],"voiceNote":{"fileID":"v"}})") << 0 << true
            << "location";
    }

    void damagedParts()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, warning);
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"turn t lost its "_s + warning));
        const OutboxTurn t = OutboxTurn::fromJson(Decode::parse(body));
        QCOMPARE(t.id, u"t"_s);
        QTEST(int(t.files.size()), "files");
        QTEST(t.voiceNote.has_value(), "voiceNote");
        QVERIFY(!t.geo);
    }

    void state()
    {
        OutboxState s;
        s.turns = {fullTurn(), OutboxTurn{u"second"_s}};
        s.drafts = {fullTurn()};
        s.composerText = u""_s; // an empty composer is still a composer text
        s.replyTo = ChatMessage::make(u"assistant"_s, u"**Task 4**"_s, 1700000000.5);
        s.replyTo->seq = 12;
        QCOMPARE(OutboxState::fromJson(throughText(s.toJson())), s);
        const OutboxState empty = OutboxState::fromJson(throughText(OutboxState{}.toJson()));
        QVERIFY(!empty.composerText && !empty.replyTo);

        // What reads is kept.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"turns\\[1\\] dropped"_s));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"composer text dropped"_s));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"drafts dropped"_s));
        const OutboxState damaged = OutboxState::fromJson(Decode::parse(
            R"({"turns":[{"id":"a"},{"id":"b","text":7},{"id":"c"}],
                "drafts":"none","composerText":12,"replyTo":{"seq":3}})"));
        QCOMPARE(damaged.turns.size(), 2);
        QCOMPARE(damaged.turns.at(1).id, u"c"_s);
        QVERIFY(!damaged.composerText);
        QCOMPARE(damaged.replyTo->seq, 3);
    }

    void uploadReply_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<std::optional<QString>>("fileID");
        QTest::addColumn<std::optional<QString>>("error");
        const std::optional<QString> none;
        QTest::newRow("stored") << QByteArray(R"({"ok":true,"file_id":"f_1","name":"a.png"})")
                                << true << std::optional<QString>(u"f_1"_s) << none;
        QTest::newRow("id as a number") << QByteArray(R"({"ok":true,"file_id":17})") << true
                                        << std::optional<QString>(u"17"_s) << none;
        QTest::newRow("refused") << QByteArray(R"({"ok":false,"error":"too_large"})") << false
                                 << none << std::optional<QString>(u"too_large"_s);
    }

    void uploadReply()
    {
        QFETCH(QByteArray, body);
        const UploadReply reply = Decode::from<UploadReply>(body);
        QTEST(reply.ok, "ok");
        QTEST(reply.fileID, "fileID");
        QTEST(reply.error, "error");
    }
};

QTEST_GUILESS_MAIN(OutboxRecordsTest)
#include "outboxrecordstest.moc"
