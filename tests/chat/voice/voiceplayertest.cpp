// Voice messages: the rules as tables, and the player against the reference service with a
// fake output, fake time and a clock that moves only with it.

#include "chat/voice/patience.h"
#include "chat/voice/voiceparts.h"
#include "chat/voice/voiceplayer.h"
#include "chat/voice/voicerate.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "support/voicerig.h"

#include <QSignalSpy>
#include <QTest>

class VoicePlayerTest : public QObject, public VoiceRig
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity;
    std::unique_ptr<VoicePlayer> player;

private slots:
    void initTestCase()
    {
        QVERIFY(service.running());
        identity.use(service);
        identity.signIn();
    }

    void init()
    {
        service.reset();
        identity.signIn();
        seq = post(service, u"Hello"_qs);
        sleeper.requested.clear();
        output.played.clear();
        player = std::make_unique<VoicePlayer>(identity.api(), dependencies(home.path()));
    }

    void rateCycles_data()
    {
        QTest::addColumn<double>("rate");
        QTest::addColumn<double>("next");
        QTest::newRow("1.0") << 1.0 << 1.5;
        QTest::newRow("1.25") << 1.25 << 1.5;
        QTest::newRow("2.0") << 2.0 << 1.0;
        QTest::newRow("3.0") << 3.0 << 1.0;
    }

    void rateCycles()
    {
        QFETCH(double, rate);
        QTEST(VoiceRate::next(rate), "next");
    }

    void seekAcrossParts_data()
    {
        QTest::addColumn<double>("at");
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("offset");
        // Parts of 2.0, 3.0 and 1.5 seconds.
        QTest::newRow("before the start") << -1.0 << 0 << 0.0;
        QTest::newRow("inside the first") << 1.2 << 0 << 1.2;
        QTest::newRow("just short of the edge") << 1.94 << 0 << 1.94;
        QTest::newRow("within the edge: next part") << 1.96 << 1 << 0.0;
        QTest::newRow("edge of the second") << 4.97 << 2 << 0.0;
        QTest::newRow("last part keeps its tail") << 6.47 << 2 << 1.47;
        QTest::newRow("past the end") << 9.0 << 2 << 1.5;
    }

    void seekAcrossParts()
    {
        QFETCH(double, at);
        const VoiceParts::Place place = VoiceParts::locate({2.0, 3.0, 1.5}, at);
        QTEST(place.index, "index");
        QFETCH(double, offset);
        QVERIFY2(qAbs(place.offset - offset) < 1e-9, qPrintable(QString::number(place.offset)));
    }

    void patienceGrowsThenGivesUp()
    {
        Patience patience;
        QList<qint64> waits;
        double since = 0;
        while (const auto wait = patience.next(since)) {
            waits.append(wait->count());
            since += wait->count() / 1000.0;
        }
        QCOMPARE(waits.mid(0, 7), (QList<qint64>{1000, 1500, 2250, 3375, 5063, 6000, 6000}));
        QVERIFY(since >= Patience::window && since < Patience::window + Patience::longest);
    }

    void pendingSpeechPlaysWhenItsFirstPartLands()
    {
        script(service, {{"seconds", QJsonArray{1.0, 2.0, 1.5}}, {"released", 0}});
        player->play(seq, ChatScope::main());
        QSignalSpy landed(player.get(), &VoicePlayer::partLanded);
        settle([&] { return sleeper.requested.size() >= 2; });
        QCOMPARE(player->phase(), VoicePlayer::Phase::Loading);
        QVERIFY(output.played.isEmpty());

        script(service, {{"released", 1}});
        settle([&] { return !landed.isEmpty(); });
        QCOMPARE(player->phase(), VoicePlayer::Phase::Playing);
        QCOMPARE(output.played.size(), 1);

        // The first part ends before the second is made: the player waits for it.
        output.end();
        QCOMPARE(player->phase(), VoicePlayer::Phase::Loading);
        script(service, {{"released", 3}, {"done", true}});
        settle([&] { return output.played.size() == 2; });
        QCOMPARE(player->phase(), VoicePlayer::Phase::Playing);
        QCOMPARE(player->total(), 4.5);
        output.at = 0.5;
        QCOMPARE(player->elapsed(), 1.5); // the first part's second plus half of this one
        output.end();
        settle([&] { return output.played.size() == 3; }); // plays the moment it lands
        QCOMPARE(output.played.size(), 3);
        output.end();
        QCOMPARE(player->phase(), VoicePlayer::Phase::Idle);
        QCOMPARE(player->active(), 0);
    }

    void partsThatWillNotPlayFallBackToTheWholeFile()
    {
        player->play(seq, ChatScope::main()); // unscripted: three parts at once, done
        settle([&] { return !output.played.isEmpty(); });
        output.at = 0.4;
        output.fail();
        settle([&] { return output.played.size() == 2; });
        QVERIFY(output.played.last().file.contains(u"whole"));
        QCOMPARE(output.played.last().from, 0.4);
        QCOMPARE(player->phase(), VoicePlayer::Phase::Playing);
        output.fail();
        QCOMPARE(player->phase(), VoicePlayer::Phase::Failed);
    }

    void fetchesPatientlyThenFails()
    {
        script(service, {{"seconds", QJsonArray{1.0}}, {"released", 1}, {"done", true}});
        service.fault({{"match", QStringLiteral("webapi/messages/%1/voice-part").arg(seq)},
                       {"status", 503}, {"times", -1}});
        player->play(seq, ChatScope::main());
        settle([&] { return player->phase() == VoicePlayer::Phase::Failed; });
        QCOMPARE(player->phase(), VoicePlayer::Phase::Failed);
        QVERIFY(fakeNow() >= Patience::window); // the waits themselves: patienceGrowsThenGivesUp
    }

    void anotherMessageStopsTheFirst()
    {
        const qint64 second = post(service, u"Again"_qs);
        player->play(seq, ChatScope::main());
        player->play(second, ChatScope::main());
        settle([&] { return !output.played.isEmpty(); });
        QCOMPARE(player->active(), second);
        QTest::qWait(50);
        for (const auto &p : output.played)
            QVERIFY2(p.file.contains(QString::number(second) + u'-'), qPrintable(p.file));
    }

    void recordingHoldsPlayback()
    {
        player->play(seq, ChatScope::main());
        settle([&] { return !output.played.isEmpty(); });
        player->holdForRecording();
        QCOMPARE(player->phase(), VoicePlayer::Phase::Paused);
        QVERIFY(output.paused);
        player->resume(); // nothing plays over a recording
        QVERIFY(output.paused);
        player->resumeAfterRecording();
        QCOMPARE(player->phase(), VoicePlayer::Phase::Playing);
        QVERIFY(!output.paused);
    }
};

QTEST_GUILESS_MAIN(VoicePlayerTest)
#include "voiceplayertest.moc"
