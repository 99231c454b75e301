#include "platform/fileaudioport.h"
#include "support/fakeclock.h"
#include "support/fakesleeper.h"
#include "voice/callaudio.h"

#include <QTest>

#include <cmath>

using namespace std::chrono_literals;

namespace {

QByteArray square(double amplitude, int ms)
{
    QByteArray pcm(ms * 48, Qt::Uninitialized);
    auto *s = reinterpret_cast<qint16 *>(pcm.data());
    for (int i = 0; i < ms * 24; ++i) {
        s[i] = qint16(std::lround((i / 4 % 2 ? 1 : -1) * amplitude * 32767));
    }
    return pcm;
}

int peakOf(const QByteArray &pcm, qsizetype from, qsizetype to = -1)
{
    const auto *s = reinterpret_cast<const qint16 *>(pcm.constData());
    int peak = 0;
    for (qsizetype i = from / 2; i < (to < 0 ? pcm.size() : to) / 2; ++i) {
        peak = std::max(peak, std::abs(int(s[i])));
    }
    return peak;
}

struct Rig {
    FileAudioPort port;
    FakeSleeper sleeper;
    FakeClock clock;
    CallAudio audio{&port, sleeper, clock};

    Rig(WavFile input = {})
        : port(std::move(input))
    {}
    // Suspended tasks finish instead of waiting forever on the fake time.
    ~Rig()
    {
        audio.teardown();
        release();
    }
    void release()
    {
        sleeper.advance();
        QCoreApplication::processEvents();
    }
    // Plays a 100 ms reply and lets it finish, time moving with the port.
    void reply()
    {
        audio.play(square(0.3, 100));
        if (sleeper.waiting()) {
            release();
        }
        while (port.queuedBytes() > 0) {
            clock.advance(0.02);
            port.tick();
        }
    }
};

} // namespace

class TestCallAudio : public QObject
{
    Q_OBJECT

private slots:
    void cushion_data();
    void cushion();
    void flushDropsHeldAndScheduled();
    void gain_data();
    void gain();
    void recover_data();
    void recover();
    void captureTakesTheLoudestChannel();
};

void TestCallAudio::cushion_data()
{
    QTest::addColumn<bool>("openai");
    QTest::addColumn<QList<double>>("gaps"); // before each reply after the first
    QTest::addColumn<double>("cushion");
    QTest::addColumn<int>("underruns");
    QTest::addColumn<QList<int>>("delaysMs");

    QTest::newRow("first reply waits the cushion")
        << true << QList<double>{} << 0.36 << 0 << QList{360};
    QTest::newRow("underrun grows it, restarts after 0.15 s")
        << true << QList{0.1} << 0.44 << 1 << QList{360, 150};
    QTest::newRow("new reply never below 0.36")
        << true << QList{0.5, 0.3} << 0.36 << 0 << QList{360, 360, 360};
    QTest::newRow("capped at 0.7") << true << QList{0.1, 0.1, 0.1, 0.1, 0.1} << 0.7 << 5
                                   << QList{360, 150, 150, 150, 150, 150};
    QTest::newRow("shrinks by 0.02 per new reply")
        << true << QList{0.1, 0.1, 1.0, 1.0} << 0.48 << 2 << QList{360, 150, 150, 500, 480};
    QTest::newRow("other providers play at once")
        << false << QList{0.1, 0.1} << 0.36 << 0 << QList<int>{};
}

void TestCallAudio::cushion()
{
    QFETCH(bool, openai);
    QFETCH(QList<double>, gaps);
    QFETCH(double, cushion);
    QFETCH(int, underruns);
    QFETCH(QList<int>, delaysMs);

    Rig rig;
    QVERIFY(rig.audio.start(false));
    rig.audio.setOpenAI(openai);
    rig.reply();
    for (double gap : gaps) {
        rig.clock.advance(gap);
        rig.reply();
    }
    QCOMPARE(rig.audio.underruns(), underruns);
    QVERIFY(std::abs(rig.audio.cushion() - cushion) < 1e-9);
    QList<int> delays;
    for (auto d : rig.sleeper.requested) {
        delays << int(d.count());
    }
    QCOMPARE(delays, delaysMs);
    QVERIFY(!rig.audio.busy());
}

void TestCallAudio::flushDropsHeldAndScheduled()
{
    Rig rig;
    QVERIFY(rig.audio.start(false));
    rig.audio.setOpenAI(true);
    rig.audio.play(square(0.3, 100)); // held for the cushion
    rig.audio.play(square(0.3, 100));
    QVERIFY(rig.audio.busy());
    rig.audio.flush();
    QVERIFY(!rig.audio.busy());
    rig.release(); // the release after a flush schedules nothing
    QCOMPARE(rig.port.queuedBytes(), 0);

    rig.audio.play(square(0.3, 100));
    rig.release();
    QCOMPARE(rig.audio.queued(), 1);
    rig.port.tick();
    rig.audio.flush();
    QCOMPARE(rig.port.queuedBytes(), 0);
    QCOMPARE(rig.audio.queued(), 0);
    // Right after a flush the next reply is a new one, not an underrun.
    rig.clock.advance(0.05);
    rig.reply();
    QCOMPARE(rig.audio.underruns(), 0);
}

void TestCallAudio::gain_data()
{
    QTest::addColumn<double>("volume");
    QTest::addColumn<double>("amplitude");
    QTest::addColumn<double>("expected"); // steady output amplitude
    QTest::newRow("louder") << 3.0 << 0.2 << 0.6;
    QTest::newRow("held under 0.95") << 3.0 << 0.5 << 0.95;
    QTest::newRow("silent") << 0.0 << 0.5 << 0.0;
    QTest::newRow("above 3 acts as 3") << 7.0 << 0.1 << 0.3;
}

void TestCallAudio::gain()
{
    QFETCH(double, volume);
    QFETCH(double, amplitude);
    QFETCH(double, expected);
    Rig rig;
    QVERIFY(rig.audio.start(false));
    rig.audio.setVolume(volume);
    rig.audio.play(square(amplitude, 400));
    while (rig.port.queuedBytes() > 0) {
        rig.port.tick();
    }
    const QByteArray &out = rig.port.played();
    // It starts from silence and never jumps past the ceiling.
    QVERIFY(peakOf(out, 0, 20) < 0.05 * 32767);
    QVERIFY(peakOf(out, 0) <= std::lround(0.95 * 32767));
    const int steady = peakOf(out, 300 * 48, 400 * 48);
    QVERIFY2(std::abs(steady - expected * 32767) < 0.01 * 32767,
             qPrintable(QString::number(steady)));
}

void TestCallAudio::recover_data()
{
    QTest::addColumn<bool>("open");
    QTest::addColumn<double>("silentFor");
    QTest::addColumn<bool>("result");
    QTest::addColumn<int>("opens"); // port opens after the first, over two checks 0.2 s apart
    QTest::newRow("running and hearing") << true << 1.0 << true << 0;
    QTest::newRow("microphone stalled") << true << 2.0 << true << 1;
    QTest::newRow("devices closed") << false << 0.1 << true << 1;
    QTest::newRow("silent too long") << true << 12.5 << false << 0;
}

void TestCallAudio::recover()
{
    QFETCH(bool, open);
    QFETCH(double, silentFor);
    QFETCH(bool, result);
    QFETCH(int, opens);
    Rig rig;
    QVERIFY(rig.audio.start(false));
    rig.port.tick(); // one chunk heard
    if (!open) {
        rig.port.close();
    }
    rig.port.captureStalled = true;
    rig.clock.advance(silentFor);
    QCOMPARE(rig.audio.recoverIfNeeded(), result);
    rig.clock.advance(0.2);
    QCOMPARE(rig.audio.recoverIfNeeded(), result);
    QCOMPARE(rig.port.opens - 1, opens);
}

void TestCallAudio::captureTakesTheLoudestChannel()
{
    // 44.1 kHz stereo: quiet on the left, a 1 kHz tone at half scale on the right.
    WavFile input;
    input.sampleRate = 44100;
    input.channels = 2;
    input.samples.resize(44100 * 4);
    auto *s = reinterpret_cast<qint16 *>(input.samples.data());
    for (int i = 0; i < 44100; ++i) {
        s[2 * i] = qint16(i % 7 - 3);
        s[2 * i + 1] = qint16(std::lround(16384 * std::sin(2 * M_PI * 1000 * i / 44100.0)));
    }
    Rig rig(input);
    QVERIFY(rig.audio.start(false));
    QByteArray wire;
    connect(&rig.audio, &CallAudio::chunk, this, [&](const QByteArray &pcm) { wire += pcm; });
    for (int i = 0; i < 50; ++i) {
        rig.port.tick();
    }
    // One second in, 24 kHz out, within what the converter and the frames hold back.
    QVERIFY(std::abs(wire.size() - 48000) <= 4 * 480);
    // The noise suppressor takes part of a steady tone; the left channel would be silence.
    const int peak = peakOf(wire, 24000);
    QVERIFY2(peak > 4000 && peak <= 16384 + 200, qPrintable(QString::number(peak)));
    QVERIFY2(rig.audio.level() > 0.02 && rig.audio.level() <= peak / 32767.0,
             qPrintable(QString::number(rig.audio.level())));
}

QTEST_GUILESS_MAIN(TestCallAudio)
#include "tst_callaudio.moc"
