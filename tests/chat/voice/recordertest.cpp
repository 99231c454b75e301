// Recording a voice note through the file-backed sound devices: the file written, its peak,
// the settling pause, and nothing left behind by a cancel or a device that will not open.

#include "chat/voice/recorder.h"
#include "platform/clock.h"
#include "platform/fileaudioport.h"
#include "support/fakesleeper.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QDir>
#include <QTest>
#include <QtEndian>

using namespace std::chrono_literals;

class RecorderTest : public QObject
{
    Q_OBJECT

    TestHome home;
    FakeSleeper sleeper;

    // Frames of `channels` samples; sample i of each frame is value * (i + 1).
    static WavFile source(int rate, int channels, qint16 value, int frames)
    {
        WavFile wav{rate, channels, {}};
        for (int f = 0; f < frames; ++f) {
            for (int c = 0; c < channels; ++c) {
                char bytes[2];
                qToLittleEndian(qint16(value * (c + 1)), bytes);
                wav.samples.append(bytes, 2);
            }
        }
        return wav;
    }

    bool start(Recorder &recorder)
    {
        auto task = recorder.start();
        sleeper.advance();
        return Sync::run(std::move(task));
    }

    QStringList notes(const QString &folder) const
    {
        return QDir(folder).entryList({QStringLiteral("*.wav")}, QDir::Files);
    }

private slots:
    void recordsMonoWithItsPeak_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<qint16>("value");
        QTest::addColumn<float>("peak");
        QTest::newRow("mono") << 16000 << 1 << qint16(16384) << 0.5f;
        // Channels are averaged: 8192 and 16384 give 12288.
        QTest::newRow("stereo") << 48000 << 2 << qint16(8192) << 0.375f;
        QTest::newRow("negative full scale") << 24000 << 1 << qint16(-32768) << 1.0f;
        QTest::newRow("silence") << 16000 << 1 << qint16(0) << 0.0f;
    }

    void recordsMonoWithItsPeak()
    {
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(qint16, value);
        QFETCH(float, peak);
        FileAudioPort port(source(rate, channels, value, rate / 10)); // 0.1 s, then silence
        const QString folder = home.path() + QStringLiteral("/notes");
        Recorder recorder({&port, sleeper, Clock::system(), nullptr, folder});
        sleeper.requested.clear();

        QVERIFY(start(recorder));
        QCOMPARE(sleeper.requested, QList<std::chrono::milliseconds>{80ms});
        for (int i = 0; i < 10; ++i) // 10 × 20 ms
            port.tick();
        const std::optional<Recorder::Take> take = recorder.stop();
        QVERIFY(take);
        QVERIFY(!port.isOpen());
        QCOMPARE(QFileInfo(take->path).absolutePath(), folder);
        QCOMPARE(take->peak, peak);
        QCOMPARE(take->seconds, 0.2);

        QString error;
        const WavFile wav = WavFile::read(take->path, &error);
        QVERIFY2(wav.isValid(), qPrintable(error));
        QCOMPARE(wav.sampleRate, rate);
        QCOMPARE(wav.channels, 1);
        QCOMPARE(wav.samples.size(), qsizetype(rate / 5 * 2));
    }

    void cancelLeavesNothing()
    {
        FileAudioPort port(source(16000, 1, 1000, 1600));
        const QString folder = home.path() + QStringLiteral("/cancelled");
        Recorder recorder({&port, sleeper, Clock::system(), nullptr, folder});
        QVERIFY(start(recorder));
        port.tick();
        QCOMPARE(notes(folder).size(), 1);
        recorder.cancel();
        QVERIFY(notes(folder).isEmpty());
        QVERIFY(!recorder.recording());
        QVERIFY(!recorder.stop());

        // Two notes in a row never share a name.
        QVERIFY(start(recorder));
        const QString first = recorder.stop()->path;
        QVERIFY(start(recorder));
        QVERIFY(recorder.stop()->path != first);
    }

    void aDeviceThatWillNotOpen()
    {
        FileAudioPort port;
        port.failNextOpen = true;
        const QString folder = home.path() + QStringLiteral("/refused");
        Recorder recorder({&port, sleeper, Clock::system(), nullptr, folder});
        QVERIFY(!start(recorder));
        QVERIFY(recorder.error().contains(u"device unavailable"));
        QVERIFY(!recorder.recording());
        QVERIFY(notes(folder).isEmpty());
    }
};

QTEST_GUILESS_MAIN(RecorderTest)
#include "recordertest.moc"
