// Shrinking videos for upload: the plan's rules as a table, and real clips made by ffmpeg.

#include "chat/media/videocompress.h"
#include "support/sync.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

struct Probe {
    bool opened = false;
    double seconds = 0;
    int width = 0, height = 0;
    AVCodecID video = AV_CODEC_ID_NONE;
    AVCodecID audio = AV_CODEC_ID_NONE;
};

Probe probe(const QString &path)
{
    Probe out;
    AVFormatContext *in = nullptr;
    if (avformat_open_input(&in, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return out;
    if (avformat_find_stream_info(in, nullptr) >= 0) {
        out.opened = true;
        out.seconds = double(in->duration) / AV_TIME_BASE;
        for (unsigned i = 0; i < in->nb_streams; ++i) {
            const AVCodecParameters *p = in->streams[i]->codecpar;
            if (p->codec_type == AVMEDIA_TYPE_VIDEO) {
                out.video = p->codec_id;
                out.width = p->width;
                out.height = p->height;
            } else if (p->codec_type == AVMEDIA_TYPE_AUDIO) {
                out.audio = p->codec_id;
            }
        }
    }
    avformat_close_input(&in);
    return out;
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
        const Probe p = probe(out);
        QVERIFY(p.opened);
        QCOMPARE(p.video, AV_CODEC_ID_H264);
        QCOMPARE(p.audio, AV_CODEC_ID_AAC);
        QVERIFY2(qAbs(p.seconds - 30) < 0.5, qPrintable(QString::number(p.seconds)));
        QVERIFY(std::max(p.width, p.height) <= VideoCompress::Limits().longSide);
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
