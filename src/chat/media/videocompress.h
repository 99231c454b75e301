#pragma once

#include <QCoroTask>
#include <QString>

#include <functional>
#include <optional>

// How far a video is shrunk, and how long it may be.
struct VideoLimits {
    int longSide = 2046;            // pixels, the picture's longer side at most
    int topBitRate = 1'199'999;     // bits/s for a picture of the full long side
    int floorBitRate = 349'999;     // bits/s below which a picture turns to mush
    int audioBitRate = 96'000;      // bits/s for stereo; mono gets two thirds
    double longestSeconds = 600;    // longer videos are refused (TooLong)
};

// Shrinks a video before it is uploaded: H.264 and AAC in an MP4, the picture scaled down to
// fit and the bit rates chosen by plan(). The work is CPU-bound and blocking, so the
// asynchronous form runs it on a worker thread; progress is the fraction of the duration
// written (0.0 to 1.0), reported on the thread that asked.
class VideoCompress
{
public:
    enum class Failure {
        None,
        TooLong,    // longer than the limit: not worth shrinking, nor sending
        Unreadable, // not a video we can decode
        Unwritable, // the result could not be written
        Cancelled,
    };

    using Limits = VideoLimits;

    // What one source becomes. Pure: the rules in one place, tested as a table.
    struct Plan {
        int width = 0;  // even, at most Limits::longSide on the longer side
        int height = 0;
        int videoBitRate = 0;
        bool tooLong = false;
    };
    // sourceBitRate is the source video's own rate (0 when unknown): a plan never asks for more.
    static Plan plan(int width, int height, double seconds, qint64 sourceBitRate,
                     const Limits &limits = {});

    struct Result {
        Failure failure = Failure::None;
        QString detail; // what the decoder or encoder said, for the log
        double seconds = 0;
        bool ok() const { return failure == Failure::None; }
    };

    using Progress = std::function<void(double)>;
    // Asked between packets: true ends the job with Cancelled.
    using Stopped = std::function<bool()>;

    // Blocking; call it off the main thread. progress runs on the calling thread.
    static Result shrink(const QString &source, const QString &target, const Progress &progress,
                         const Stopped &stopped = {}, const Limits &limits = {});
    // The same on the worker pool; progress arrives on the calling thread's event loop.
    // stopped is asked on the worker thread: it must be safe to call from there.
    static QCoro::Task<Result> shrinkAsync(QString source, QString target, Progress progress,
                                           Limits limits = {}, Stopped stopped = {});

    // The message a person sees for a failure, in the current language.
    static QString text(Failure failure);
};
