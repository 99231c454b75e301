// The call screen's controller over the in-process server and the file-backed devices.

#include "callcontroller.h"
#include "fakecalllink.h"

#include "platform/fileaudioport.h"
#include "support/fakeclock.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "text/l.h"
#include "voice/callaudio.h"
#include "voice/voicetuning.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Rig {
    TestHome home;
    FakeSleeper sleeper;
    VoiceTuning tuning;
    FakeCallLink *link = new FakeCallLink;
    FileAudioPort *port = new FileAudioPort;
    FakeClock clock;
    CallController controller{ChatScope::main(),
                              u"tester"_s,
                              std::unique_ptr<CallLink>(link),
                              std::unique_ptr<AudioPort>(port),
                              sleeper,
                              clock,
                              tuning};
    Call &call = *controller.call();

    Rig() { L::pin(u"en"_s); }
    // Suspended tasks finish instead of waiting forever on the fake time.
    ~Rig()
    {
        controller.hangUp();
        sleeper.advance();
        QCoreApplication::processEvents();
    }
    void serve(const QString &json) { link->serve(json.toUtf8()); }
};

} // namespace

class CallControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void phase_data();
    void phase();
    void mute();
    void volume_data();
    void volume();
    void hangUpEndsTheCall();
    void devices_data();
    void devices();
    void availabilityIsAskedAgainAfterAFailedCheck();
};

void CallControllerTest::phase_data()
{
    QTest::addColumn<QStringList>("frames");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("active");
    QTest::addColumn<QString>("failure");

    // How frames move the phase is tst_call's; here, what the controller makes of the phases
    // that start, hold or end a call.
    const QString ready = uR"({"type":"ready","voice":"Orus","provider":"openai"})"_s;
    QTest::newRow("opening") << QStringList{} << "Connecting…" << true << "";
    QTest::newRow("socket lost") << QStringList{ready, u"drop"_s} << "Reconnecting…" << true << "";
    QTest::newRow("fatal error")
        << QStringList{ready, R"({"type":"error","error":"x","detail":"Key revoked","fatal":true})"}
        << "The call failed" << false << "Key revoked";
    QTest::newRow("server closes") << QStringList{ready, R"({"type":"closed","reason":"bye"})"}
                                   << "Ready to call" << false << "";
}

void CallControllerTest::phase()
{
    QFETCH(QStringList, frames);
    QFETCH(QString, text);
    QFETCH(bool, active);
    QFETCH(QString, failure);

    Rig rig;
    QSignalSpy changes(&rig.controller, &CallController::phaseChanged);
    rig.controller.start();
    for (const QString &f : frames) {
        if (f == u"drop") {
            rig.link->drop();
        } else {
            rig.serve(f);
        }
    }
    QCOMPARE(rig.controller.phaseText(), text);
    QCOMPARE(rig.controller.active(), active);
    QCOMPARE(rig.controller.failed(), !failure.isEmpty());
    QCOMPARE(rig.call.failure(), failure);
    QVERIFY(!changes.isEmpty());
}

// What a muted call sends is tst_call's; here, the button and the meter.
void CallControllerTest::mute()
{
    Rig rig;
    rig.controller.start();
    rig.serve(uR"({"type":"ready"})"_s);
    rig.controller.toggleMute();
    QVERIFY(rig.call.muted());
    rig.call.push(QByteArray(960, '\x30'));
    QCoreApplication::processEvents();
    QCOMPARE(rig.controller.meterLevel(), 0.0); // the meter drops to its floor
    rig.controller.toggleMute();
    QVERIFY(!rig.call.muted());
}

void CallControllerTest::volume_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<int>("shown");
    QTest::addColumn<double>("gain");
    QTest::newRow("quieter") << 40 << 40 << 0.4;
    QTest::newRow("louder than the server") << 250 << 250 << 2.5;
    QTest::newRow("past the top") << 500 << 300 << 3.0;
    QTest::newRow("below silence") << -20 << 0 << 0.0;
}

void CallControllerTest::volume()
{
    QFETCH(int, percent);
    QFETCH(int, shown);
    QFETCH(double, gain);
    Rig rig;
    rig.controller.start();
    rig.serve(uR"({"type":"ready"})"_s);
    rig.controller.setVolume(percent);
    QCOMPARE(rig.controller.volume(), shown);
    QCOMPARE(rig.call.audio().volume(), gain);
    // What the user set is what the server hears about after the turn.
    rig.serve(uR"({"type":"turn_complete"})"_s);
    QCoreApplication::processEvents();
    QCOMPARE(rig.link->sent.last().value(u"speaker_percent"_s).toInt(), shown);
    // The server's "volume" moves the same control.
    rig.serve(uR"({"type":"volume","level":70})"_s);
    QCOMPARE(rig.controller.volume(), 70);
}

void CallControllerTest::hangUpEndsTheCall()
{
    Rig rig;
    rig.controller.start();
    rig.serve(uR"({"type":"ready"})"_s);
    rig.serve(uR"({"type":"user_text","text":"What time is it?"})"_s);
    QVERIFY(rig.port->isOpen());
    rig.controller.hangUp();
    QVERIFY(!rig.controller.active());
    QCOMPARE(rig.controller.phaseText(), u"Ready to call"_s);
    QVERIFY(!rig.link->isOpen());
    QVERIFY(!rig.port->isOpen());
    QCOMPARE(rig.call.notice(), u"Call ended. Background tasks keep running."_s);
    QCOMPARE(rig.call.lines().size(), 1); // the transcript stays on screen
    // Nothing is sent after the hang-up.
    const auto sent = rig.link->sent.size();
    rig.call.push(QByteArray(960, '\x30'));
    QCOMPARE(rig.link->sent.size(), sent);
}

void CallControllerTest::devices_data()
{
    QTest::addColumn<bool>("during");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("route");
    QTest::addColumn<QString>("detail");
    QTest::newRow("before the call") << false << u"memory"_s << u"speaker"_s << u"Memory"_s;
    QTest::newRow("during the call") << true << u"memory"_s << u"speaker"_s << u"Memory"_s;
    QTest::newRow("a headset") << true << u"bluez_sink.headset"_s << u"bluetooth"_s << u"Headset"_s;
    QTest::newRow("back to the default") << true << QString() << u"speaker"_s << u"Speakers"_s;
}

void CallControllerTest::devices()
{
    QFETCH(bool, during);
    QFETCH(QString, output);
    QFETCH(QString, route);
    QFETCH(QString, detail);
    Rig rig;
    rig.port->outputList = {
        {"speakers", u"Speakers"_s}, {"memory", u"Memory"_s}, {"bluez_sink.headset", u"Headset"_s}};
    rig.port->inputList = {{"file", u"File"_s}, {"bluez_source.headset", u"Headset mic"_s}};
    rig.controller.refreshDevices();
    const QVariantList outputs = rig.controller.outputs();
    QCOMPARE(outputs.size(), 4);
    QCOMPARE(outputs.first().toMap().value(u"id"_s).toString(), QString()); // the default first
    QCOMPARE(outputs.first().toMap().value(u"name"_s).toString(), u"System default"_s);
    rig.controller.chooseInput(u"file"_s);
    if (during) {
        rig.controller.start();
        rig.controller.chooseOutput(u"memory"_s);
    }
    rig.controller.chooseOutput(output);
    if (!during) {
        rig.controller.start();
    }
    QCOMPARE(rig.controller.outputId(), output);
    QCOMPARE(rig.port->openedOutput, output.toUtf8());
    QCOMPARE(rig.port->openedInput, QByteArray("file")); // a chosen microphone stays
    QCOMPARE(rig.call.route(), route);
    QCOMPARE(rig.call.routeDetail(), detail);
    QVERIFY(rig.controller.active());
}

void CallControllerTest::availabilityIsAskedAgainAfterAFailedCheck()
{
    Rig rig;
    rig.controller.open(); // nothing answers
    QVERIFY(!rig.call.available());
    QCOMPARE(rig.call.unavailableReason(),
             u"Could not check the connection. Reopen Voice to try again."_s);
    rig.link->replies.insert(u"webapi/voice-live/status"_s,
                             QJsonObject{{u"available"_s, true}, {u"provider"_s, u"gemini"_s}});
    rig.link->replies.insert(u"webapi/voice-live/journal"_s,
                             QJsonObject{{u"voices"_s, QJsonArray{u"Orus"_s, u"Kore"_s}},
                                         {u"preferences"_s, QJsonObject{{u"voice"_s, u"Kore"_s}}}});
    rig.controller.recheck();
    QVERIFY(rig.call.available());
    QCOMPARE(rig.controller.providerText(), u"Gemini Live · Kore"_s);
    const auto texts = [](const QVariantList &list) {
        QStringList out;
        for (const auto &v : list) {
            out << v.toMap().value(u"label"_s).toString();
        }
        return out;
    };
    QVERIFY(texts(rig.controller.providers()).contains(u"Gemini Live · Kore"_s));
    QCOMPARE(texts(rig.controller.languages()).first(), u"Follow app language"_s);
    // Once known, the answer stands until the window asks again on its own.
    rig.link->replies.clear();
    rig.controller.recheck();
    QVERIFY(rig.call.available());
}

QTEST_GUILESS_MAIN(CallControllerTest)

#include "callcontrollertest.moc"
