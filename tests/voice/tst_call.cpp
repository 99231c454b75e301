#include "fakecalllink.h"
#include "platform/fileaudioport.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "text/l.h"
#include "voice/call.h"
#include "voice/callaudio.h"
#include "voice/voicetuning.h"

#include <QCoreApplication>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QByteArray chunk(char fill, int bytes = 960)
{
    return QByteArray(bytes, fill);
}

struct Rig {
    TestHome home;
    FakeCallLink link;
    FileAudioPort port;
    FakeSleeper sleeper;
    VoiceTuning tuning;
    double now = 10;
    Call call{ChatScope::main(), &link, &port, &sleeper, [this] { return now; }, &tuning};

    explicit Rig(bool started = true)
    {
        L::pin(u"en"_s);
        if (started) {
            call.start();
        }
    }
    // Suspended tasks finish instead of waiting forever on the fake time.
    ~Rig()
    {
        call.hangUp();
        advance();
        link.holdSends = false;
        link.release();
        QCoreApplication::processEvents();
    }
    void serve(const QString &json) { link.serve(json.toUtf8()); }
    // Ends the current wait and lets the resumed tasks run.
    void advance()
    {
        sleeper.advance();
        QCoreApplication::processEvents();
    }
    // Reconnect delays asked for (the meter's 100 ms rounds left out).
    QList<qint64> delays() const
    {
        QList<qint64> out;
        for (auto d : sleeper.requested) {
            if (d.count() != 100) {
                out.append(d.count());
            }
        }
        return out;
    }
    QList<QByteArray> sentAudio() const
    {
        QList<QByteArray> out;
        for (const auto &f : link.sent) {
            if (f.value(u"type"_s) == u"audio"_s) {
                out.append(QByteArray::fromBase64(f.value(u"data"_s).toString().toLatin1()));
            }
        }
        return out;
    }
};

} // namespace

class TestCall : public QObject
{
    Q_OBJECT

private slots:
    void absorb_data();
    void absorb();
    void microphoneBeforeReadyKeepsNewestThree();
    void backlogAfterReadyDropsOldest();
    void mutedSendsSilenceOfTheSameLength();
    void fiveReconnectsThenDropped();
    void rotateResumesWithTheHandle();
    void accountSwitchResetsToDefaults();
    void route_data();
    void route();
};

void TestCall::absorb_data()
{
    QTest::addColumn<QStringList>("frames");
    QTest::addColumn<Call::Phase>("phase");
    QTest::addColumn<QString>("heard");
    QTest::addColumn<QString>("said");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<double>("volume");
    QTest::addColumn<QString>("failure");

    const QString ready = u"{\"type\":\"ready\",\"voice\":\"Orus\"}"_s;
    const QString audio = u"{\"type\":\"audio\",\"data\":\""_s +
                          QString::fromLatin1(QByteArray(4800, '\x20').toBase64()) + u"\"}"_s;
    using P = Call::Phase;
    QTest::newRow("ready listens") << QStringList{ready} << P::Listening << ""
                                   << "" << QStringList{} << 1.0 << "";
    QTest::newRow("user text appends")
        << QStringList{ready, u"{\"type\":\"input_activity\",\"active\":true}"_s,
                       u"{\"type\":\"user_text\",\"text\":\"Hel\"}"_s,
                       u"{\"type\":\"user_text\",\"text\":\"lo\"}"_s}
        << P::Hearing << "Hello"
        << "" << QStringList{"user:Hello"} << 1.0 << "";
    QTest::newRow("user text replaces")
        << QStringList{ready, u"{\"type\":\"user_text\",\"text\":\"Hel\"}"_s,
                       u"{\"type\":\"user_text\",\"text\":\"Help\",\"replace\":true}"_s}
        << P::Listening << "Help"
        << "" << QStringList{"user:Help"} << 1.0 << "";
    QTest::newRow("new activity opens a new user line")
        << QStringList{ready, u"{\"type\":\"user_text\",\"text\":\"A\"}"_s,
                       u"{\"type\":\"input_activity\",\"active\":true}"_s,
                       u"{\"type\":\"user_text\",\"text\":\"B\"}"_s}
        << P::Hearing << "B"
        << "" << QStringList{"user:A", "user:B"} << 1.0 << "";
    QTest::newRow("turn started opens a new reply line")
        << QStringList{ready, u"{\"type\":\"bot_text\",\"text\":\"A\"}"_s,
                       u"{\"type\":\"turn_started\"}"_s,
                       u"{\"type\":\"bot_text\",\"text\":\"B\"}"_s,
                       u"{\"type\":\"bot_text\",\"text\":\"C\"}"_s}
        << P::Listening << ""
        << "BC" << QStringList{"assistant:A", "assistant:BC"} << 1.0 << "";
    QTest::newRow("turn ended: thinking")
        << QStringList{ready, u"{\"type\":\"input_activity\"}"_s} << P::Thinking << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("reply audio: speaking") << QStringList{ready, audio} << P::Speaking << ""
                                           << "" << QStringList{} << 1.0 << "";
    QTest::newRow("second reply chunk stays speaking")
        << QStringList{ready, audio, audio} << P::Speaking << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("interrupted drops the reply")
        << QStringList{ready, u"{\"type\":\"input_activity\"}"_s, audio,
                       u"{\"type\":\"bot_text\",\"text\":\"x\"}"_s, u"{\"type\":\"interrupted\"}"_s}
        << P::Listening << ""
        << "" << QStringList{"assistant:x"} << 1.0 << "";
    QTest::newRow("volume 500 plays at 3")
        << QStringList{ready, u"{\"type\":\"volume\",\"level\":500}"_s} << P::Listening << ""
        << "" << QStringList{} << 3.0 << "";
    QTest::newRow("negative volume plays at 0")
        << QStringList{ready, u"{\"type\":\"volume\",\"level\":-20}"_s} << P::Listening << ""
        << "" << QStringList{} << 0.0 << "";
    QTest::newRow("volume without level is 100")
        << QStringList{ready, u"{\"type\":\"volume\",\"level\":40}"_s, u"{\"type\":\"volume\"}"_s}
        << P::Listening << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("error that is not fatal goes on")
        << QStringList{ready, u"{\"type\":\"error\",\"error\":\"slow\",\"detail\":\"lag\"}"_s}
        << P::Listening << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("fatal error fails with its detail")
        << QStringList{ready,
                       u"{\"type\":\"error\",\"error\":\"x\",\"detail\":\"Quota used up\",\"fatal\":true}"_s}
        << P::Failed << ""
        << "" << QStringList{} << 1.0 << "Quota used up";
    QTest::newRow("missing key fails without detail")
        << QStringList{ready, u"{\"type\":\"error\",\"error\":\"voice_key_missing\"}"_s}
        << P::Failed << ""
        << "" << QStringList{} << 1.0 << "The call is unavailable. You can start a new call.";
    QTest::newRow("closed for another reason ends")
        << QStringList{ready, u"{\"type\":\"closed\",\"reason\":\"bye\"}"_s} << P::Idle << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("closed for rotation reconnects")
        << QStringList{ready, u"{\"type\":\"closed\",\"reason\":\"session_rotate\"}"_s}
        << P::Reconnecting << ""
        << "" << QStringList{} << 1.0 << "";
    QTest::newRow("unknown and broken frames are ignored")
        << QStringList{ready, u"{\"type\":\"sparkle\"}"_s, u"[1,2]"_s, u"{nope"_s} << P::Listening
        << ""
        << "" << QStringList{} << 1.0 << "";
}

void TestCall::absorb()
{
    QFETCH(QStringList, frames);
    QFETCH(Call::Phase, phase);
    QFETCH(QString, heard);
    QFETCH(QString, said);
    QFETCH(QStringList, lines);
    QFETCH(double, volume);
    QFETCH(QString, failure);

    Rig rig;
    QCOMPARE(rig.call.phase(), Call::Phase::Connecting);
    for (const QString &f : frames) {
        rig.serve(f);
    }
    QCOMPARE(rig.call.phase(), phase);
    QCOMPARE(rig.call.heard(), heard);
    QCOMPARE(rig.call.said(), said);
    QStringList actual;
    for (const auto &l : rig.call.lines()) {
        actual.append(l.role + u':' + l.text);
    }
    QCOMPARE(actual, lines);
    QCOMPARE(rig.call.audio().volume(), volume);
    QCOMPARE(rig.call.failure(), failure);
    // Interrupted reply audio never reaches the speaker.
    if (frames.last().contains(u"interrupted")) {
        QCOMPARE(rig.port.queuedBytes(), 0);
        rig.advance();
        QCOMPARE(rig.port.queuedBytes(), 0);
    }
}

void TestCall::microphoneBeforeReadyKeepsNewestThree()
{
    Rig rig;
    for (char c = 'a'; c <= 'e'; ++c) {
        rig.call.push(chunk(c));
    }
    QCOMPARE(rig.call.pendingChunks(), 3);
    QVERIFY(rig.sentAudio().isEmpty());
    rig.serve(u"{\"type\":\"ready\"}"_s);
    QCOMPARE(rig.sentAudio(), (QList{chunk('c'), chunk('d'), chunk('e')}));
    QCOMPARE(rig.link.sentTypes().first(), u"hello"_s);
}

void TestCall::backlogAfterReadyDropsOldest()
{
    Rig rig;
    rig.serve(u"{\"type\":\"ready\"}"_s);
    rig.link.holdSends = true;
    rig.call.push(chunk(0)); // taken by the sender, which waits on the socket
    for (int i = 1; i <= 60; ++i) {
        rig.call.push(chunk(char(i)));
    }
    QCOMPARE(rig.call.pendingChunks(), 50); // 48000 bytes
    rig.link.holdSends = false;
    rig.link.release();
    QCoreApplication::processEvents();
    const auto sent = rig.sentAudio();
    QCOMPARE(sent.size(), 51);
    QCOMPARE(sent.first(), chunk(0));
    QCOMPARE(sent.at(1), chunk(11));
    QCOMPARE(sent.last(), chunk(60));

    // One chunk larger than the whole backlog still goes: the newest always survives.
    rig.link.holdSends = true;
    rig.call.push(chunk(1));
    rig.call.push(chunk(2, 96000));
    QCOMPARE(rig.call.pendingChunks(), 1);
}

void TestCall::mutedSendsSilenceOfTheSameLength()
{
    Rig rig;
    rig.serve(u"{\"type\":\"ready\"}"_s);
    rig.call.setMuted(true);
    rig.call.push(chunk(0x40, 1440));
    QCOMPARE(rig.sentAudio(), QList{QByteArray(1440, '\0')});
    QCOMPARE(rig.call.microphoneDB(), -80.0);
}

void TestCall::fiveReconnectsThenDropped()
{
    Rig rig;
    rig.serve(u"{\"type\":\"ready\"}"_s);
    rig.link.refuseOpens = 100;
    rig.link.drop();
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(rig.call.phase(), Call::Phase::Reconnecting);
        rig.advance();
    }
    QCOMPARE(rig.delays(), (QList<qint64>{450, 900, 1800, 3600, 5000}));
    QCOMPARE(rig.call.phase(), Call::Phase::Failed);
    QCOMPARE(rig.call.failure(), u"Call dropped"_s);
    QCOMPARE(rig.call.failureCode(), u"reconnect_exhausted"_s);
    QCOMPARE(rig.link.paths.size(), 6); // the call and five attempts, no sixth
    QVERIFY(
        rig.link.paths.first().startsWith(u"webapi/voice-live/ws?provider=openai&app_language=en"));
}

void TestCall::rotateResumesWithTheHandle()
{
    Rig rig;
    rig.serve(u"{\"type\":\"ready\"}"_s);
    rig.link.drop(); // one failure before
    rig.advance();
    rig.serve(u"{\"type\":\"ready\"}"_s);
    QCOMPARE(rig.call.attempt(), 0);
    rig.serve(u"{\"type\":\"resume_handle\",\"handle\":\"h-7\"}"_s);
    const quint64 generation = rig.call.wireGeneration();
    rig.serve(u"{\"type\":\"closed\",\"reason\":\"session_rotate\"}"_s);
    rig.advance();
    QVERIFY(rig.call.wireGeneration() > generation);
    QCOMPARE(rig.link.sent.last().value(u"type"_s).toString(), u"hello"_s);
    QCOMPARE(rig.link.sent.last().value(u"resume"_s).toString(), u"h-7"_s);
    QCOMPARE(rig.delays(), (QList<qint64>{450, 450})); // attempts counted from the last ready
    rig.serve(u"{\"type\":\"turn_complete\"}"_s);
    QCOMPARE(rig.link.sentTypes().mid(rig.link.sent.size() - 2),
             (QStringList{"playback_stats", "gate_stats"}));
}

void TestCall::accountSwitchResetsToDefaults()
{
    Rig rig;
    rig.call.hangUp();
    rig.link.replies[u"webapi/voice-live/status"_s] = {{"available", true}, {"provider", "gemini"}};
    rig.link.replies[u"webapi/voice-live/journal"_s] =
        QJsonDocument::fromJson(
            R"({"messages":[{"role":"user","text":"hi"},{"role":"assistant","text":""}],
            "memory":{"short_term":2,"long_term":5,"status":"idle","message":"ok"},
            "preferences":{"voice":"Kore","language":"ru","selected_provider":"gemini"},
            "voices":["Kore","Orus"]})")
            .object();
    rig.call.checkAvailability(u"u1"_s);
    QVERIFY(rig.call.available());
    QCOMPARE(rig.call.voice(), u"Kore"_s);
    QCOMPARE(rig.call.provider(), u"gemini"_s);
    QCOMPARE(rig.call.lines().size(), 1);
    QCOMPARE(rig.call.longMemory(), 5);
    QCOMPARE(rig.call.voiceNames(), (QStringList{"Kore", "Orus"}));

    rig.link.replies.clear();
    rig.call.checkAvailability(u"u2"_s);
    QCOMPARE(rig.call.voice(), u"Orus"_s);
    QCOMPARE(rig.call.language(), u"auto"_s);
    QCOMPARE(rig.call.provider(), u"openai"_s);
    QVERIFY(rig.call.lines().isEmpty());
    QCOMPARE(rig.call.longMemory(), 0);
    QCOMPARE(rig.call.unavailableReason(),
             u"Could not check the connection. Reopen Voice to try again."_s);
    QCOMPARE(rig.tuning.account(), u"u2"_s);
}

void TestCall::route_data()
{
    QTest::addColumn<bool>("started");
    QTest::addColumn<bool>("headset");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QByteArray>("output"); // the device the port last opened

    QTest::newRow("bluetooth before the call")
        << false << true << "bluetooth"
        << "Bluetooth connects when the call starts" << QByteArray();
    QTest::newRow("bluetooth without a headset")
        << true << false << "bluetooth"
        << "Connect a Bluetooth headset, then choose Bluetooth." << QByteArray();
    QTest::newRow("bluetooth headset") << true << true << "bluetooth"
                                       << "Headset" << QByteArray("bluez_sink.1");
    QTest::newRow("receiver is the default output") << true << true << "receiver"
                                                    << "Memory" << QByteArray();
}

void TestCall::route()
{
    QFETCH(bool, started);
    QFETCH(bool, headset);
    QFETCH(QString, route);
    QFETCH(QString, detail);
    QFETCH(QByteArray, output);
    Rig rig(started);
    if (headset) {
        rig.port.outputList.append({"bluez_sink.1", u"Headset"_s});
        rig.port.inputList.append({"bluez_source.1", u"Headset microphone"_s});
    }
    rig.call.selectRoute(route);
    QCOMPARE(rig.call.route(), route);
    QCOMPARE(rig.call.routeDetail(), detail);
    QCOMPARE(rig.port.openedOutput, output);
    QCOMPARE(rig.port.openedInput, output.isEmpty() ? QByteArray() : QByteArray("bluez_source.1"));
    QCOMPARE(rig.call.gateStats().value(u"route"_s).toString(), route);
}

QTEST_GUILESS_MAIN(TestCall)
#include "tst_call.moc"
