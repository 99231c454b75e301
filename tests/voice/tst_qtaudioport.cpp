// The QtMultimedia adapter against a private PulseAudio: a null sink as the speaker and a
// pipe source as the microphone. Skipped where pulseaudio is not installed.
#include "platform/qtaudioport.h"

#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

#include <cmath>

using namespace Qt::StringLiterals;

class TestQtAudioPort : public QObject
{
    Q_OBJECT

private slots:
    void chunksToFeed_data();
    void chunksToFeed();
    void initTestCase();
    void cleanupTestCase();
    void capturesAndPlays();
    void aDeviceThatComesAndGoesIsNoticed();

private:
    QTemporaryDir m_dir;
    QProcess m_server;
    int m_fifo = -1;
};

// 10 ms chunks of 480 bytes, 40 ms (1,920 bytes) kept ahead.
void TestQtAudioPort::chunksToFeed_data()
{
    QTest::addColumn<qint64>("ahead");
    QTest::addColumn<qint64>("room");
    QTest::addColumn<int>("chunks");
    QTest::newRow("behind: up to the target") << qint64(0) << qint64(100'000) << 4;
    QTest::newRow("part way") << qint64(1'000) << qint64(100'000) << 1;
    QTest::newRow("at the target: one keeps the sink clocked") << qint64(1'920) << qint64(100'000) << 1;
    QTest::newRow("room for two") << qint64(0) << qint64(960) << 2;
    QTest::newRow("room for less than one: none") << qint64(0) << qint64(479) << 0;
    QTest::newRow("full") << qint64(1'920) << qint64(0) << 0;
}

void TestQtAudioPort::chunksToFeed()
{
    QFETCH(qint64, ahead);
    QFETCH(qint64, room);
    QTEST(QtAudioPort::chunksToFeed(ahead, 1'920, room, 480), "chunks");
}

void TestQtAudioPort::initTestCase()
{
    const QString pulseaudio = QStandardPaths::findExecutable(QStringLiteral("pulseaudio"));
    if (pulseaudio.isEmpty()) {
        QSKIP("pulseaudio is not installed");
    }
    const QString dir = m_dir.path();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), dir);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
    m_server.setProcessEnvironment(env);
    m_server.setStandardErrorFile(dir + u"/pulse.log"_s);
    const QStringList modules{u"module-native-protocol-unix socket="_s + dir +
                                  u"/pulse.sock auth-anonymous=1"_s,
                              u"module-null-sink sink_name=speaker"_s,
                              u"module-pipe-source source_name=mic file="_s + dir +
                                  u"/mic.fifo format=s16le rate=48000 channels=1"_s};
    QStringList args =
        u"-n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes"_s.split(u' ');
    for (const QString &m : modules) {
        args << u"-L"_s << m;
    }
    m_server.start(pulseaudio, args);
    QVERIFY(m_server.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir + u"/pulse.sock"_s), 10000);
    qputenv("PULSE_SERVER", QByteArray("unix:") + QFile::encodeName(dir) + "/pulse.sock");
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir + u"/mic.fifo"_s), 10000);
    m_fifo = ::open(qPrintable(dir + u"/mic.fifo"_s), O_WRONLY | O_NONBLOCK);
    QVERIFY(m_fifo >= 0);
}

void TestQtAudioPort::cleanupTestCase()
{
    if (m_fifo >= 0) {
        ::close(m_fifo);
    }
    if (m_server.state() != QProcess::NotRunning) {
        m_server.terminate();
        m_server.waitForFinished(5000);
    }
}

// Captures the chosen microphone; plays from its own queue and drops it at once.
void TestQtAudioPort::capturesAndPlays()
{
    QtAudioPort port;
    bool listed = false;
    for (const auto &d : port.inputs()) {
        listed = listed || d.id == "mic";
    }
    QVERIFY(listed);
    QVERIFY2(port.open("mic", "speaker"), qPrintable(port.error()));
    QCOMPARE(port.captureFormat().sampleRate, 48000);
    QCOMPARE(port.captureFormat().channels, 1);

    // A pipe source is not clocked: 10 ms of a loud tone every 10 ms.
    int written = 0;
    QTimer pace;
    connect(&pace, &QTimer::timeout, this, [&] {
        qint16 tone[480];
        for (int i = 0; i < 480; ++i) {
            tone[i] = qint16(16000 * std::sin(2 * M_PI * 1000 * (written + i) / 48000.0));
        }
        if (::write(m_fifo, tone, sizeof tone) == qsizetype(sizeof tone)) {
            written += 480;
        }
    });
    pace.start(10);
    QByteArray heard;
    connect(&port, &AudioPort::captured, this, [&](const QByteArray &data) { heard += data; });
    QTRY_VERIFY_WITH_TIMEOUT(heard.size() > 48000, 10000);
    const auto *s = reinterpret_cast<const qint16 *>(heard.constData());
    int peak = 0;
    for (qsizetype i = 0; i < heard.size() / 2; ++i) {
        peak = std::max(peak, std::abs(int(s[i])));
    }
    QVERIFY2(peak > 15000, qPrintable(QString::number(peak)));
    pace.stop();

    QSignalSpy done(&port, &AudioPort::bufferDone);
    qint64 rendered = 0;
    connect(&port, &AudioPort::rendered, this,
            [&](const QByteArray &pcm) { rendered += pcm.size(); });
    port.enqueue(QByteArray(9600, '\x10'), 1); // 0.2 s
    port.enqueue(QByteArray(9600, '\x10'), 2);
    QTRY_COMPARE_WITH_TIMEOUT(done.count(), 2, 10000);
    QCOMPARE(done.at(1).first().toULongLong(), 2ull);
    QVERIFY(rendered >= 19200);

    // Dropped audio never reports done, and silence keeps flowing.
    port.enqueue(QByteArray(48000 * 5, '\x10'), 3);
    port.dropQueued();
    const qint64 before = rendered;
    QTRY_VERIFY_WITH_TIMEOUT(rendered > before + 9600, 10000);
    QCOMPARE(done.count(), 2);
    QVERIFY(port.isOpen());
    port.close();
    QVERIFY(!port.isOpen());
}

QTEST_GUILESS_MAIN(TestQtAudioPort)
#include "tst_qtaudioport.moc"

// What the call's route handling hears of a headset being plugged in and pulled out.
void TestQtAudioPort::aDeviceThatComesAndGoesIsNoticed()
{
    QtAudioPort port;
    QSignalSpy changed(&port, &AudioPort::devicesChanged);
    const qsizetype before = port.outputs().size();
    QProcess pactl;
    pactl.start(u"pactl"_s, {u"load-module"_s, u"module-null-sink"_s, u"sink_name=headset"_s});
    QVERIFY(pactl.waitForFinished(5000));
    QCOMPARE(pactl.exitCode(), 0);
    const QString module = QString::fromUtf8(pactl.readAllStandardOutput()).trimmed();
    QTRY_VERIFY_WITH_TIMEOUT(port.outputs().size() == before + 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(changed.size() > 0, 5000);
    changed.clear();
    pactl.start(u"pactl"_s, {u"unload-module"_s, module});
    QVERIFY(pactl.waitForFinished(5000));
    QTRY_VERIFY_WITH_TIMEOUT(changed.size() > 0, 5000);
}
