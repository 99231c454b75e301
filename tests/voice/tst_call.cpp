#include "fakecalllink.h"
#include "platform/fileaudioport.h"
#include "support/fakeclock.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "text/l.h"
#include "voice/call.h"
#include "voice/callaudio.h"
#include "voice/voicetuning.h"

#include <QCoreApplication>
#include <QMetaEnum>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Rig {
    TestHome home;
    FakeCallLink link;
    FileAudioPort port;
    FakeSleeper sleeper;
    VoiceTuning tuning;
    FakeClock clock;
    Call call{ChatScope::main(), &link, &port, sleeper, clock, tuning};

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
    void serve(const char *json) { link.serve(json); }
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
    // What the screen shows: the phase, what differs from a fresh call, then the lines.
    QString state()
    {
        const double volume = call.audio().volume();
        QStringList out{
            QString::fromLatin1(QMetaEnum::fromType<Call::Phase>().valueToKey(int(call.phase()))),
            call.heard().isEmpty() ? QString() : u"heard="_s + call.heard(),
            call.said().isEmpty() ? QString() : u"said="_s + call.said(),
            volume == 1.0 ? QString() : u"volume="_s + QString::number(volume),
            call.failure().isEmpty() ? QString() : u"failure="_s + call.failure()};
        out.removeAll(QString());
        for (const auto &l : call.lines()) {
            out << l.role + u':' + l.text;
        }
        return out.join(u' ');
    }
};

} // namespace

class TestCall : public QObject
{
    Q_OBJECT

private slots:
    void absorb_data();
    void absorb();
    void backlog_data();
    void backlog();
    void mutedSendsSilenceOfTheSameLength();
    void fiveReconnectsThenDropped();
    void rotateResumesWithTheHandle();
    void accountSwitchResetsToDefaults();
    void route_data();
    void route();
    void devicesChange_data();
    void devicesChange();
};

void TestCall::absorb_data()
{
    QTest::addColumn<QStringList>("frames"); // after "ready"
    QTest::addColumn<QString>("state");

    const QString audio = uR"({"type":"audio","data":")"_s +
                          QString::fromLatin1(QByteArray(4800, '\x20').toBase64()) + u"\"}"_s;
    QTest::newRow("ready listens") << QStringList{} << "Listening";
    QTest::newRow("user text appends") << QStringList{R"({"type":"input_activity","active":true})",
                                                      R"({"type":"user_text","text":"Hel"})",
                                                      R"({"type":"user_text","text":"lo"})"}
                                       << "Hearing heard=Hello user:Hello";
    QTest::newRow("user text replaces")
        << QStringList{R"({"type":"user_text","text":"Hel"})",
                       R"({"type":"user_text","text":"Help","replace":true})"}
        << "Listening heard=Help user:Help";
    QTest::newRow("new activity opens a new user line")
        << QStringList{R"({"type":"user_text","text":"A"})",
                       R"({"type":"input_activity","active":true})",
                       R"({"type":"user_text","text":"B"})"}
        << "Hearing heard=B user:A user:B";
    QTest::newRow("turn started opens a new reply line")
        << QStringList{R"({"type":"bot_text","text":"A"})", R"({"type":"turn_started"})",
                       R"({"type":"bot_text","text":"B"})", R"({"type":"bot_text","text":"C"})"}
        << "Listening said=BC assistant:A assistant:BC";
    QTest::newRow("turn ended: thinking")
        << QStringList{R"({"type":"input_activity"})"} << "Thinking";
    QTest::newRow("reply audio: speaking") << QStringList{audio, audio} << "Speaking";
    QTest::newRow("interrupted drops the reply")
        << QStringList{R"({"type":"input_activity"})", audio, R"({"type":"bot_text","text":"x"})",
                       R"({"type":"interrupted"})"}
        << "Listening assistant:x";
    QTest::newRow("volume 500 plays at 3")
        << QStringList{R"({"type":"volume","level":500})"} << "Listening volume=3";
    QTest::newRow("volume without level is 100")
        << QStringList{R"({"type":"volume","level":40})", R"({"type":"volume"})"} << "Listening";
    QTest::newRow("error that is not fatal goes on")
        << QStringList{R"({"type":"error","error":"slow","detail":"lag"})"} << "Listening";
    QTest::newRow("fatal error fails with its detail")
        << QStringList{R"({"type":"error","error":"x","detail":"Quota used up","fatal":true})"}
        << "Failed failure=Quota used up";
    QTest::newRow("missing key fails without detail")
        << QStringList{R"({"type":"error","error":"voice_key_missing"})"}
        << "Failed failure=The call is unavailable. You can start a new call.";
    QTest::newRow("closed for another reason ends")
        << QStringList{R"({"type":"closed","reason":"bye"})"} << "Idle";
    QTest::newRow("closed for rotation reconnects")
        << QStringList{R"({"type":"closed","reason":"session_rotate"})"} << "Reconnecting";
    QTest::newRow("unknown and broken frames are ignored")
        << QStringList{R"({"type":"sparkle"})", "[1,2]", "{nope"} << "Listening";
}

void TestCall::absorb()
{
    QFETCH(QStringList, frames);
    QFETCH(QString, state);
    Rig rig;
    QCOMPARE(rig.call.phase(), Call::Phase::Connecting);
    rig.serve(R"({"type":"ready","voice":"Orus"})");
    for (const QString &f : frames) {
        rig.link.serve(f.toUtf8());
    }
    QCOMPARE(rig.state(), state);
    // Interrupted reply audio never reaches the speaker.
    rig.advance();
    QCOMPARE(rig.port.queuedBytes() > 0, state == u"Speaking");
}

void TestCall::backlog_data()
{
    QTest::addColumn<bool>("ready");
    QTest::addColumn<QList<int>>("sizes"); // chunk i is filled with byte i
    QTest::addColumn<int>("pending");
    QTest::addColumn<QList<int>>("sent");

    QList<int> second(61, 960);
    QList<int> newest{0};
    for (int i = 11; i <= 60; ++i) {
        newest << i;
    }
    QTest::newRow("before ready the newest three wait")
        << false << QList<int>(5, 960) << 3 << QList{2, 3, 4};
    QTest::newRow("after ready a second waits, oldest dropped") << true << second << 50 << newest;
    QTest::newRow("the newest goes even when larger than the backlog")
        << true << QList{960, 960, 96000} << 1 << QList{0, 2};
}

void TestCall::backlog()
{
    QFETCH(bool, ready);
    QFETCH(QList<int>, sizes);
    QFETCH(int, pending);
    QFETCH(QList<int>, sent);
    Rig rig;
    if (ready) {
        rig.serve(R"({"type":"ready"})");
        rig.link.holdSends = true; // the first chunk waits on the socket
    }
    for (int i = 0; i < sizes.size(); ++i) {
        rig.call.push(QByteArray(sizes[i], char(i)));
    }
    QCOMPARE(rig.call.pendingChunks(), pending);
    QCOMPARE(rig.sentAudio().size(), 0);
    rig.link.holdSends = false;
    if (ready) {
        rig.link.release();
        QCoreApplication::processEvents();
    } else {
        rig.serve(R"({"type":"ready"})");
    }
    QList<QByteArray> expected;
    for (int i : sent) {
        expected << QByteArray(sizes[i], char(i));
    }
    QCOMPARE(rig.sentAudio(), expected);
    QCOMPARE(rig.link.sentTypes().first(), u"hello"_s);
}

void TestCall::mutedSendsSilenceOfTheSameLength()
{
    Rig rig;
    rig.serve(R"({"type":"ready"})");
    rig.call.setMuted(true);
    rig.call.push(QByteArray(1440, 0x40));
    QCOMPARE(rig.sentAudio(), QList{QByteArray(1440, '\0')});
    QCOMPARE(rig.call.microphoneDB(), -80.0);
}

void TestCall::fiveReconnectsThenDropped()
{
    Rig rig;
    rig.serve(R"({"type":"ready"})");
    rig.link.refuseOpens = 100;
    rig.link.drop();
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(rig.call.phase(), Call::Phase::Reconnecting);
        QVERIFY(rig.call.isActive()); // a second call cannot start over it
        rig.advance();
    }
    QCOMPARE(rig.delays(), (QList<qint64>{450, 900, 1800, 3600, 5000}));
    QCOMPARE(rig.state(), u"Failed failure=Call dropped"_s);
    QCOMPARE(rig.call.failureCode(), u"reconnect_exhausted"_s);
    QCOMPARE(rig.link.paths.size(), 6); // the call and five attempts, no sixth
    QVERIFY(
        rig.link.paths.first().startsWith(u"webapi/voice-live/ws?provider=openai&app_language=en"));
}

void TestCall::rotateResumesWithTheHandle()
{
    Rig rig;
    rig.serve(R"({"type":"ready"})");
    rig.link.drop(); // one failure before
    rig.advance();
    rig.serve(R"({"type":"ready"})");
    QCOMPARE(rig.call.attempt(), 0);
    rig.serve(R"({"type":"resume_handle","handle":"h-7"})");
    const quint64 generation = rig.call.wireGeneration();
    rig.serve(R"({"type":"closed","reason":"session_rotate"})");
    rig.advance();
    QVERIFY(rig.call.wireGeneration() > generation);
    QCOMPARE(rig.link.sent.last().value(u"type"_s).toString(), u"hello"_s);
    QCOMPARE(rig.link.sent.last().value(u"resume"_s).toString(), u"h-7"_s);
    QCOMPARE(rig.delays(), (QList<qint64>{450, 450})); // attempts counted from the last ready
    rig.serve(R"({"type":"turn_complete"})");
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
    QVERIFY(rig.call.available() && rig.call.longMemory() == 5);
    QCOMPARE(QStringList({rig.call.voice(), rig.call.provider(), rig.state()}) +
                 rig.call.voiceNames(),
             (QStringList{"Kore", "gemini", "Idle user:hi", "Kore", "Orus"}));

    rig.link.replies.clear();
    rig.call.checkAvailability(u"u2"_s);
    QCOMPARE(QStringList({rig.call.voice(), rig.call.language(), rig.call.provider(), rig.state(),
                          rig.tuning.account()}),
             (QStringList{"Orus", "auto", "openai", "Idle", "u2"}));
    QCOMPARE(rig.call.longMemory(), 0);
    QCOMPARE(rig.call.unavailableReason(),
             u"Could not check the connection. Reopen Voice to try again."_s);
}

void TestCall::route_data()
{
    QTest::addColumn<bool>("started");
    QTest::addColumn<bool>("headset");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QByteArray>("output"); // the device the port last opened

    const QByteArray none;
    QTest::newRow("bluetooth before the call") << false << true << "bluetooth"
                                               << "Bluetooth connects when the call starts" << none;
    QTest::newRow("bluetooth without a headset")
        << true << false << "bluetooth"
        << "Connect a Bluetooth headset, then choose Bluetooth." << none;
    QTest::newRow("bluetooth headset") << true << true << "bluetooth"
                                       << "Headset" << QByteArray("bluez_sink.1");
    QTest::newRow("receiver is the default output") << true << true << "receiver"
                                                    << "Memory" << none;
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

void TestCall::devicesChange_data()
{
    QTest::addColumn<bool>("started");
    QTest::addColumn<bool>("headsetBefore");
    QTest::addColumn<bool>("headsetAfter");
    QTest::addColumn<QByteArray>("output"); // the device the port last opened
    QTest::addColumn<QString>("detail");

    const QString connect = u"Connect a Bluetooth headset, then choose Bluetooth."_s;
    QTest::newRow("headset plugged in mid-call moves the call to it")
        << true << false << true << QByteArray("bluez_sink.1") << "Headset";
    QTest::newRow("headset pulled out mid-call falls back to the defaults")
        << true << true << false << QByteArray() << connect;
    QTest::newRow("between calls nothing opens")
        << false << false << true << QByteArray("unopened") << "Headset";
}

void TestCall::devicesChange()
{
    QFETCH(bool, started);
    QFETCH(bool, headsetBefore);
    QFETCH(bool, headsetAfter);
    QFETCH(QByteArray, output);
    QFETCH(QString, detail);
    Rig rig(started);
    const auto plug = [&rig](bool in) {
        rig.port.outputList = {{"memory", u"Memory"_s}};
        if (in) {
            rig.port.outputList.append({"bluez_sink.1", u"Headset"_s});
        }
    };
    plug(headsetBefore);
    rig.call.selectRoute(u"bluetooth"_s);
    rig.port.openedOutput = "unopened";
    const int opens = rig.port.opens;
    plug(headsetAfter);
    emit rig.port.devicesChanged(); // the speaker and the microphone, one after the other
    emit rig.port.devicesChanged();
    rig.advance();
    QCOMPARE(rig.port.openedOutput, output);
    QCOMPARE(rig.port.opens, opens + int(started));
    QCOMPARE(rig.call.routeDetail(), detail);
    QCOMPARE(rig.call.isActive(), started);
}

QTEST_GUILESS_MAIN(TestCall)
#include "tst_call.moc"
