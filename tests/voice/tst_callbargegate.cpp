#include "voice/callbargegate.h"

#include <QRandomGenerator>
#include <QTest>

#include <cmath>

namespace {

// A square wave whose level is exactly db (digital silence at -80 and below).
QByteArray chunk(double db, int ms = 20)
{
    QByteArray bytes(ms * 48, Qt::Uninitialized);
    auto *s = reinterpret_cast<qint16 *>(bytes.data());
    const auto amplitude = db <= -80 ? 0 : qint16(std::lround(32768 * std::pow(10, db / 20)));
    for (int i = 0; i < ms * 24; ++i) {
        s[i] = qint16(i % 2 ? amplitude : -amplitude);
    }
    return bytes;
}

} // namespace

class TestCallBargeGate : public QObject
{
    Q_OBJECT

private slots:
    void script_data();
    void script();
    void releasesWholeCandidateAtOnce();
};

// A script is space-separated steps: "@T" sets the clock, "r" resets the gate, "p-20*9" sends
// nine 20 ms chunks at -20 dBFS while reply audio plays ("q" while it does not), "o" sends
// broken input (odd, then empty). Each chunk advances 20 ms; sent lists the milliseconds
// returned per chunk step.
void TestCallBargeGate::script_data()
{
    QTest::addColumn<double>("threshold");
    QTest::addColumn<double>("floor"); // NaN: none learned yet
    QTest::addColumn<QString>("script");
    QTest::addColumn<QList<int>>("sent");
    QTest::addColumn<int>("opened");
    QTest::addColumn<bool>("admitted");

    const double none = std::nan("");
    QTest::newRow("-10 acts as -20: -21 held, -19 opens")
        << -10.0 << -80.0 << "p-21*20 p-19*9" << QList{0, 180} << 1 << true;
    QTest::newRow("-70 acts as -50: -51 held, -49 opens")
        << -70.0 << -80.0 << "p-51*20 p-49*9" << QList{0, 180} << 1 << true;
    QTest::newRow("release at -56: -55 holds the floor")
        << -70.0 << -80.0 << "p-40*9 q-55*50" << QList{180, 1000} << 1 << true;
    QTest::newRow("release at -56: 0.8 s at -57 closes")
        << -70.0 << -80.0 << "p-40*9 q-57*40" << QList{180, 800} << 1 << false;
    QTest::newRow("steady echo never opens")
        << -50.0 << none << "p-20*100" << QList{0} << 0 << false;
    QTest::newRow("0.1 s burst then quiet never opens")
        << -33.0 << -60.0 << "p-20*5 p-60*1 p-20*5 p-60*1" << QList{0, 0, 0, 0} << 0 << false;
    QTest::newRow("just under 0.18 s waits")
        << -33.0 << -60.0 << "p-20*8" << QList{0} << 0 << false;
    QTest::newRow("bar is 9 dB over the floor")
        << -50.0 << -40.0 << "p-32*1 p-30*9" << QList{0, 180} << 1 << true;
    QTest::newRow("0.2 s after playback still gated")
        << -33.0 << -60.0 << "@1 p-60*1 @1.2 q-20*1" << QList{0, 0} << 0 << false;
    QTest::newRow("0.25 s after playback passes")
        << -33.0 << -60.0 << "@1 p-60*1 @1.25 q-20*1" << QList{0, 20} << 0 << false;
    QTest::newRow("tail rises over the floor and opens")
        << -33.0 << -60.0 << "@1 p-60*1 @1.02 q-30*9" << QList{0, 180} << 1 << true;
    QTest::newRow("no playback ever: straight through")
        << -33.0 << none << "q-20*3 q-70*3" << QList{60, 60} << 0 << false;
    QTest::newRow("during playback 0.48 s below release stays open, 0.5 s closes")
        << -33.0 << -60.0 << "p-20*9 p-45*24 p-20*1 p-45*25" << QList{180, 480, 20, 500} << 1
        << false;
    QTest::newRow("release bar is the floor + 5 during playback")
        << -33.0 << -40.0 << "p-20*9 p-36*25" << QList{180, 500} << 1 << false;
    QTest::newRow("speech after closing needs a new candidate")
        << -33.0 << -60.0 << "p-20*9 p-45*25 p-20*8 p-20*1" << QList{180, 500, 0, 180} << 2 << true;
    QTest::newRow("reset keeps the learned floor")
        << -50.0 << none << "p-60*50 r p-45*9" << QList{0, 180} << 1 << true;
    QTest::newRow("reset drops the candidate")
        << -33.0 << -60.0 << "p-20*8 r p-20*1" << QList{0, 0} << 0 << false;
    QTest::newRow("reset closes, keeps the count")
        << -33.0 << -60.0 << "p-20*9 r p-20*9" << QList{180, 180} << 2 << true;
    QTest::newRow("reset forgets playback")
        << -33.0 << -60.0 << "p-60*1 r q-20*1" << QList{0, 20} << 0 << false;
    QTest::newRow("broken input is dropped, not taken as playback")
        << -33.0 << -60.0 << "o q-20*1" << QList{0, 20} << 0 << false;
}

void TestCallBargeGate::script()
{
    QFETCH(double, threshold);
    QFETCH(double, floor);
    QFETCH(QString, script);
    QFETCH(QList<int>, sent);
    QFETCH(int, opened);
    QFETCH(bool, admitted);

    CallBargeGate gate;
    gate.thresholdDB = threshold;
    if (!std::isnan(floor)) {
        gate.echoFloor = floor;
    }
    double now = 0;
    QList<int> actual;
    for (const QString &step : script.split(u' ')) {
        if (step.startsWith(u'@')) {
            now = step.mid(1).toDouble();
        } else if (step == u"r") {
            gate.reset();
        } else if (step == u"o") {
            const auto odd = gate.process(QByteArray(961, 'x'), true, now).pcm.size();
            actual << int(odd + gate.process({}, true, now).pcm.size());
        } else {
            const auto parts = step.mid(1).split(u'*');
            const QByteArray pcm = chunk(parts[0].toDouble());
            qsizetype bytes = 0;
            for (int i = 0; i < parts[1].toInt(); ++i, now += 0.02) {
                bytes += gate.process(pcm, step.startsWith(u'p'), now).pcm.size();
            }
            actual << int(bytes / 48);
        }
    }
    QCOMPARE(actual, sent);
    QCOMPARE(gate.opened, opened);
    QCOMPARE(gate.admitted, admitted);
    QVERIFY(gate.openedWhilePlaying <= gate.opened);
}

// Chunks of any size: nothing leaks before the gate opens, then the whole candidate at once.
void TestCallBargeGate::releasesWholeCandidateAtOnce()
{
    QRandomGenerator random(5);
    for (int trial = 0; trial < 200; ++trial) {
        CallBargeGate gate;
        gate.echoFloor = -70;
        gate.thresholdDB = -40;
        QByteArray held;
        double now = 0;
        qsizetype last = 0;
        int chunks = 0;
        for (bool opened = false; !opened; ++chunks) {
            QByteArray pcm(random.bounded(1, 481) * 4, Qt::Uninitialized); // 2 to 40 ms
            auto *s = reinterpret_cast<qint16 *>(pcm.data());
            for (qsizetype i = 0; i < pcm.size() / 2; ++i) {
                s[i] = qint16(random.bounded(-8000, 8001));
            }
            held += pcm;
            last = pcm.size();
            const auto result = gate.process(pcm, true, now);
            now += pcm.size() / 48000.0;
            opened = result.barge;
            QCOMPARE(result.pcm, opened ? held : QByteArray());
        }
        QVERIFY(held.size() >= 0.18 * 48000 - 1);
        QVERIFY(held.size() - last < 0.18 * 48000);
        QCOMPARE(gate.openedWhilePlaying, 1);
        QCOMPARE(gate.suppressedFrames, chunks - 1);
    }
}

QTEST_GUILESS_MAIN(TestCallBargeGate)
#include "tst_callbargegate.moc"
