// Video shrinking against the ffmpeg command line doing the same encode (libx264 "veryfast",
// main profile, the planned size and rate, AAC, index in front) on one 1080p clip.
// Reported: seconds of video per second of work ("x_realtime").

#include "chat/media/videocompress.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

constexpr int clipSeconds = 10;

struct Clip {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("1080p.mp4"));
    QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    bool ready = false;

    Clip()
    {
        if (ffmpeg.isEmpty())
            return;
        ready = QProcess::execute(
                    ffmpeg, {"-v", "error", "-y", "-f", "lavfi", "-i",
                             "testsrc2=size=1920x1080:rate=30", "-f", "lavfi", "-i",
                             "sine=frequency=440:sample_rate=48000", "-t",
                             QString::number(clipSeconds), "-c:v", "libx264", "-preset",
                             "ultrafast", "-b:v", "12M", "-c:a", "aac", "-ac", "2", path})
                == 0;
    }
};

Clip &clip()
{
    static Clip c;
    return c;
}

void BM_VideoCompress(benchmark::State &state)
{
    if (!clip().ready) {
        state.SkipWithError("no ffmpeg to make the clip");
        return;
    }
    const QString out = clip().dir.filePath(QStringLiteral("ours.mp4"));
    for (auto _ : state) {
        const auto result = VideoCompress::shrink(clip().path, out, {});
        if (!result.ok())
            state.SkipWithError(qPrintable(result.detail));
    }
    state.counters["x_realtime"] =
        benchmark::Counter(clipSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_FfmpegCommandLine(benchmark::State &state)
{
    if (!clip().ready) {
        state.SkipWithError("no ffmpeg to make the clip");
        return;
    }
    const VideoCompress::Plan plan = VideoCompress::plan(1920, 1080, clipSeconds, 0);
    const QString out = clip().dir.filePath(QStringLiteral("cli.mp4"));
    const QString rate = QString::number(plan.videoBitRate);
    for (auto _ : state) {
        QProcess::execute(clip().ffmpeg,
                          {"-v", "error", "-y", "-i", clip().path, "-c:v", "libx264", "-preset",
                           "veryfast", "-profile:v", "main", "-b:v", rate, "-maxrate",
                           QString::number(int(plan.videoBitRate * 1.5)), "-bufsize",
                           QString::number(plan.videoBitRate * 2), "-g", "60", "-vf",
                           QStringLiteral("scale=%1:%2").arg(plan.width).arg(plan.height), "-c:a",
                           "aac", "-b:a", "96k", "-movflags", "+faststart", out});
    }
    state.counters["x_realtime"] =
        benchmark::Counter(clipSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_VideoCompress)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_FfmpegCommandLine)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
