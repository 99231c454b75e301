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
    // What a muted call sends is tst_call's, the button and its key tst_callscreen.qml's;
    // here, the meter.
    void mute()
    {
        Rig rig;
        rig.controller.start();
        rig.serve(uR"({"type":"ready"})"_s);
        rig.controller.toggleMute();
        rig.call.push(QByteArray(960, '\x30'));
        QCoreApplication::processEvents();
        QCOMPARE(rig.controller.meterLevel(), 0.0); // the meter drops to its floor
    }

    void volume_data()
    {
        QTest::addColumn<int>("percent");
        QTest::addColumn<int>("shown");
        QTest::newRow("past the top") << 500 << 300;
        QTest::newRow("below silence") << -20 << 0;
    }

    void volume()
    {
        QFETCH(int, percent);
        QFETCH(int, shown);
        Rig rig;
        rig.controller.start();
        rig.serve(uR"({"type":"ready"})"_s);
        rig.controller.setVolume(percent);
        QCOMPARE(rig.controller.volume(), shown);
        QCOMPARE(rig.call.audio().volume(), shown / 100.0);
        // What the user set is what the server hears about after the turn.
        rig.serve(uR"({"type":"turn_complete"})"_s);
        QCoreApplication::processEvents();
        QCOMPARE(rig.link->sent.last().value(u"speaker_percent"_s).toInt(), shown);
        // The server's "volume" moves the same control.
        rig.serve(uR"({"type":"volume","level":70})"_s);
        QCOMPARE(rig.controller.volume(), 70);
    }

    // The devices closing and the notice are checked from the keyboard in tst_callscreen.qml.
    void hangUpEndsTheCall()
    {
        Rig rig;
        rig.controller.start();
        rig.serve(uR"({"type":"ready"})"_s);
        rig.serve(uR"({"type":"user_text","text":"What time is it?"})"_s);
        rig.controller.hangUp();
        QCOMPARE(rig.controller.phaseText(), u"Ready to call"_s);
        QVERIFY(!rig.link->isOpen());
        QCOMPARE(rig.call.lines().size(), 1); // the transcript stays on screen
        // Nothing is sent after the hang-up.
        const auto sent = rig.link->sent.size();
        rig.call.push(QByteArray(960, '\x30'));
        QCOMPARE(rig.link->sent.size(), sent);
    }

    void devices_data()
    {
        QTest::addColumn<bool>("during");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("route");
        QTest::addColumn<QString>("detail");
        QTest::newRow("before the call") << false << u"memory"_s << u"speaker"_s << u"Memory"_s;
        QTest::newRow("during the call") << true << u"memory"_s << u"speaker"_s << u"Memory"_s;
        QTest::newRow("a headset")
            << true << u"bluez_sink.headset"_s << u"bluetooth"_s << u"Headset"_s;
        QTest::newRow("back to the default") << true << QString() << u"speaker"_s << u"Speakers"_s;
    }

    void devices()
    {
        QFETCH(bool, during);
        QFETCH(QString, output);
        QFETCH(QString, route);
        QFETCH(QString, detail);
        Rig rig;
        rig.port->outputList = {{"speakers", u"Speakers"_s},
                                {"memory", u"Memory"_s},
                                {"bluez_sink.headset", u"Headset"_s}};
        rig.port->inputList = {{"file", u"File"_s}, {"bluez_source.headset", u"Headset mic"_s}};
        rig.controller.refreshDevices();
        // The default first, named (its place in the list is checked on screen).
        QCOMPARE(rig.controller.outputs().first().toMap().value(u"name"_s).toString(),
                 u"System default"_s);
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

    // The reason shown after a failed check is tst_call's (accountSwitchResetsToDefaults).
    void availabilityIsAskedAgainAfterAFailedCheck()
    {
        Rig rig;
        rig.controller.open(); // nothing answers
        QVERIFY(!rig.call.available());
        rig.link->replies.insert(u"webapi/voice-live/status"_s,
                                 QJsonObject{{u"available"_s, true}, {u"provider"_s, u"gemini"_s}});
        rig.link->replies.insert(
            u"webapi/voice-live/journal"_s,
            QJsonObject{{u"voices"_s, QJsonArray{u"Orus"_s, u"Kore"_s}},
                        {u"preferences"_s, QJsonObject{{u"voice"_s, u"Kore"_s}}}});
        rig.controller.recheck();
        QVERIFY(rig.call.available());
        QCOMPARE(rig.controller.providerText(), u"Gemini Live · Kore"_s);
        QCOMPARE(rig.controller.providers().last().toMap().value(u"label"_s).toString(),
                 u"Gemini Live · Kore"_s);
        QCOMPARE(rig.controller.languages().first().toMap().value(u"label"_s).toString(),
                 u"Follow app language"_s);
        // Once known, the answer stands until the window asks again on its own.
        rig.link->replies.clear();
        rig.controller.recheck();
        QVERIFY(rig.call.available());
    }
};

QTEST_GUILESS_MAIN(CallControllerTest)

#include "callcontrollertest.moc"
