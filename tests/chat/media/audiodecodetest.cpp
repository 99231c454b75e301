// Voice files of every kind the server sends, decoded into one WAV recording.

#include "chat/media/audiodecode.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

class AudioDecodeTest : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    QString make(const QString &name, const QStringList &codec, double seconds, int rate, int channels)
    {
        const QString path = dir.filePath(name);
        QStringList args{"-v", "error", "-y", "-f", "lavfi", "-i",
                         QStringLiteral("sine=frequency=500:sample_rate=%1").arg(rate),
                         "-t", QString::number(seconds), "-ac", QString::number(channels)};
        args << codec << path;
        return QProcess::execute(QStringLiteral("ffmpeg"), args) == 0 ? path : QString();
    }

private slots:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty())
            QSKIP("ffmpeg is not installed (scripts/setup installs it)");
        QVERIFY(!make("a.ogg", {"-c:a", "libopus"}, 1.0, 48000, 1).isEmpty());
        QVERIFY(!make("b.m4a", {"-c:a", "aac"}, 0.5, 44100, 2).isEmpty());
        QVERIFY(!make("c.wav", {"-c:a", "pcm_s16le"}, 0.25, 16000, 1).isEmpty());
        QFile junk(dir.filePath("junk.ogg"));
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write("OggS but nothing after it");
    }

    void decodes_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<double>("seconds");
        QTest::newRow("opus") << QStringList{"a.ogg"} << 48000 << 1 << 1.0;
        QTest::newRow("aac stereo") << QStringList{"b.m4a"} << 44100 << 2 << 0.5;
        QTest::newRow("parts of mixed kinds follow the first") << QStringList{"c.wav", "a.ogg", "b.m4a"} << 16000 << 1 << 1.75;
    }

    void decodes()
    {
        QFETCH(QStringList, files);
        QStringList paths;
        for (const QString &f : files)
            paths << dir.filePath(f);
        const QString out = dir.filePath(QStringLiteral("out.wav"));
        const AudioDecode::Result r = AudioDecode::toWav(paths, out);
        QVERIFY2(r.ok, qPrintable(r.error));
        QTEST(r.rate, "rate");
        QTEST(r.channels, "channels");
        QFETCH(double, seconds);
        // Codecs pad to whole frames: a few tens of milliseconds either way.
        QVERIFY2(qAbs(r.seconds - seconds) < 0.06, qPrintable(QString::number(r.seconds)));
        QFile wav(out);
        QVERIFY(wav.open(QIODevice::ReadOnly));
        const QByteArray bytes = wav.readAll();
        QVERIFY(bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WAVE");
        QCOMPARE(qFromLittleEndian<quint32>(bytes.constData() + 24), quint32(r.rate));
        QCOMPARE(qint64(qFromLittleEndian<quint32>(bytes.constData() + 40)), bytes.size() - 44);
    }

    void namesTheFileItCannotRead()
    {
        const QString out = dir.filePath(QStringLiteral("never.wav"));
        const AudioDecode::Result r =
            AudioDecode::toWav({dir.filePath("c.wav"), dir.filePath("junk.ogg")}, out);
        QVERIFY(!r.ok);
        QVERIFY(r.error.contains(QStringLiteral("junk.ogg")));
        QVERIFY(!QFile::exists(out));
    }
};

QTEST_GUILESS_MAIN(AudioDecodeTest)
#include "audiodecodetest.moc"
