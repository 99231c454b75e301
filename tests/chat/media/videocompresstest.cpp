// Shrinking videos for upload: the plan's rules as a table, and real clips made by ffmpeg.

#include "chat/media/videocompress.h"
#include "support/sync.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

// What ffprobe, beside the ffmpeg that made the clip, reads in a file: its streams and length.
QJsonObject probe(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {"-v", "error", "-of", "json", "-show_entries",
                   "stream=codec_name,width,height:format=duration", path});
    ffprobe.waitForFinished();
    return QJsonDocument::fromJson(ffprobe.readAllStandardOutput()).object();
}

} // namespace

class VideoCompressTest : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    QString clip; // 30 s, 640x360 at 15 fps, 4 Mbit/s, with a 440 Hz tone

private slots:
    void initTestCase()
    {
        const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
        if (ffmpeg.isEmpty())
            QSKIP("ffmpeg is not installed (scripts/setup installs it)");
        clip = dir.filePath(QStringLiteral("clip.mp4"));
        const int code = QProcess::execute(
            ffmpeg, {"-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=640x360:rate=15",
                     "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000", "-t", "30",
                     "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "4M", "-c:a", "aac",
                     "-ac", "2", clip});
        QCOMPARE(code, 0);
    }

    void plan_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::addColumn<double>("seconds");
        QTest::addColumn<qint64>("source");
        QTest::addColumn<int>("outWidth");
        QTest::addColumn<int>("outHeight");
        QTest::addColumn<bool>("tooLong");

        QTest::newRow("4K landscape shrinks to the long side") << 3840 << 2160 << 20.0 << qint64(0) << 2046 << 1150 << false;
        QTest::newRow("4K portrait alike") << 2160 << 3840 << 20.0 << qint64(0) << 1150 << 2046 << false;
        QTest::newRow("1080p stays") << 1920 << 1080 << 20.0 << qint64(0) << 1920 << 1080 << false;
        QTest::newRow("odd sizes go down to even") << 641 << 361 << 5.0 << qint64(0) << 640 << 360 << false;
        QTest::newRow("lean source keeps its rate") << 1280 << 720 << 5.0 << qint64(200'000) << 1280 << 720 << false;
        QTest::newRow("at the limit") << 640 << 360 << 600.0 << qint64(0) << 640 << 360 << false;
        QTest::newRow("over the limit") << 640 << 360 << 600.5 << qint64(0) << 640 << 360 << true;
    }

    void plan()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QFETCH(double, seconds);
        QFETCH(qint64, source);
        const VideoCompress::Limits limits;
        const VideoCompress::Plan p = VideoCompress::plan(width, height, seconds, source, limits);
        QTEST(p.width, "outWidth");
        QTEST(p.height, "outHeight");
        QTEST(p.tooLong, "tooLong");
        QVERIFY(p.videoBitRate <= limits.topBitRate);
        if (source > 0)
            QVERIFY(p.videoBitRate <= source);
        else
            QVERIFY(p.videoBitRate >= limits.floorBitRate);
    }

    void ratesGrowWithThePicture()
    {
        int previous = 0;
        for (int side : {320, 640, 1280, 1920, 2046, 4096}) {
            const int rate = VideoCompress::plan(side, side * 9 / 16, 10, 0).videoBitRate;
            QVERIFY2(rate >= previous, qPrintable(QString::number(side)));
            previous = rate;
        }
        QCOMPARE(previous, VideoCompress::Limits().topBitRate);
    }

    void shrinksKeepingItsAudio()
    {
        const QString out = dir.filePath(QStringLiteral("small.mp4"));
        QList<double> seen;
        const auto result = Sync::run(VideoCompress::shrinkAsync(
            clip, out, [&](double f) { seen.append(f); }), 120'000);
        QVERIFY2(result.ok(), qPrintable(result.detail));
        const QJsonObject p = probe(out);
        QStringList codecs;
        int longest = 0;
        for (const QJsonValue &stream : p[u"streams"_qs].toArray()) {
            codecs << stream[u"codec_name"_qs].toString();
            longest =
                std::max({longest, stream[u"width"_qs].toInt(), stream[u"height"_qs].toInt()});
        }
        codecs.sort();
        QCOMPARE(codecs, QStringList({"aac", "h264"}));
        const double seconds = p[u"format"_qs][u"duration"_qs].toString().toDouble();
        QVERIFY2(qAbs(seconds - 30) < 0.5, qPrintable(QString::number(seconds)));
        QVERIFY(longest > 0 && longest <= VideoCompress::Limits().longSide);
        // Video at the plan's rate plus AAC, with room for the encoder's peaks and the container.
        const VideoCompress::Limits limits;
        const double budget = (limits.topBitRate + limits.audioBitRate) * 30 / 8.0 * 1.25;
        QVERIFY2(QFileInfo(out).size() < budget, qPrintable(QString::number(QFileInfo(out).size())));
        QVERIFY(QFileInfo(out).size() < QFileInfo(clip).size());
        QVERIFY(!seen.isEmpty());
        QVERIFY(std::is_sorted(seen.begin(), seen.end()));
        QCOMPARE(seen.last(), 1.0);
    }

    void failures_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<int>("failure");
        QTest::newRow("not a video") << "text" << int(VideoCompress::Failure::Unreadable);
        QTest::newRow("missing file") << "missing" << int(VideoCompress::Failure::Unreadable);
        QTest::newRow("too long") << "long" << int(VideoCompress::Failure::TooLong);
        QTest::newRow("cancelled") << "cancel" << int(VideoCompress::Failure::Cancelled);
        QTest::newRow("target folder missing") << "target" << int(VideoCompress::Failure::Unwritable);
    }

    void failures()
    {
        QFETCH(QString, what);
        QString source = clip;
        QString target = dir.filePath(what + QStringLiteral(".mp4"));
        VideoCompress::Limits limits;
        VideoCompress::Stopped stopped;
        if (what == u"text") {
            source = dir.filePath(QStringLiteral("notes.txt"));
            QFile f(source);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("not a video at all\n");
        } else if (what == u"missing") {
            source = dir.filePath(QStringLiteral("nowhere.mp4"));
        } else if (what == u"long") {
            limits.longestSeconds = 10;
        } else if (what == u"cancel") {
            stopped = [] { return true; };
        } else if (what == u"target") {
            target = dir.filePath(QStringLiteral("no/such/folder/out.mp4"));
        }
        const auto result = VideoCompress::shrink(source, target, {}, stopped, limits);
        QTEST(int(result.failure), "failure");
        QVERIFY(!QFile::exists(target)); // nothing half-written is left
        QVERIFY(!VideoCompress::text(result.failure).isEmpty());
    }
};

QTEST_GUILESS_MAIN(VideoCompressTest)
#include "videocompresstest.moc"
