#include "videocompress.h"

#include "text/l.h"

#include <QCoroFuture>
#include <QFile>
#include <QLoggingCategory>
#include <QFutureWatcher>
#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <memory>

Q_LOGGING_CATEGORY(lcMedia, "halvenmark.media", QtWarningMsg)

using namespace Qt::StringLiterals;

namespace {

// Owners for FFmpeg's objects, so every early return frees what was made.
struct InputCloser {
    void operator()(AVFormatContext *c) const { avformat_close_input(&c); }
};
struct OutputCloser {
    void operator()(AVFormatContext *c) const
    {
        if (c && c->pb && !(c->oformat->flags & AVFMT_NOFILE))
            avio_closep(&c->pb);
        avformat_free_context(c);
    }
};
struct CodecCloser {
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct FrameCloser {
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};
struct PacketCloser {
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct SwsCloser {
    void operator()(SwsContext *c) const { sws_freeContext(c); }
};
struct SwrCloser {
    void operator()(SwrContext *c) const { swr_free(&c); }
};
struct FifoCloser {
    void operator()(AVAudioFifo *f) const { av_audio_fifo_free(f); }
};

using Input = std::unique_ptr<AVFormatContext, InputCloser>;
using Output = std::unique_ptr<AVFormatContext, OutputCloser>;
using Codec = std::unique_ptr<AVCodecContext, CodecCloser>;
using Frame = std::unique_ptr<AVFrame, FrameCloser>;
using Packet = std::unique_ptr<AVPacket, PacketCloser>;

QString errorText(int code)
{
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return QString::fromUtf8(buffer);
}

// Down to an even number: the encoder's chroma needs it, and a picture never grows.
int even(double value)
{
    return std::max(2, int(value / 2.0) * 2);
}

// Thrown inside the job and turned into a Result at its edge.
struct Stop {
    VideoCompress::Failure failure;
    QString detail;
};

void check(int code, VideoCompress::Failure failure, const char *what)
{
    if (code < 0)
        throw Stop{failure, QString::fromLatin1(what) + u": "_s + errorText(code)};
}

Codec openDecoder(const AVStream *stream)
{
    const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec)
        throw Stop{VideoCompress::Failure::Unreadable, u"no decoder for this stream"_s};
    Codec context(avcodec_alloc_context3(codec));
    check(avcodec_parameters_to_context(context.get(), stream->codecpar),
          VideoCompress::Failure::Unreadable, "decoder parameters");
    context->pkt_timebase = stream->time_base;
    context->thread_count = 0; // as many as the machine has
    check(avcodec_open2(context.get(), codec, nullptr), VideoCompress::Failure::Unreadable,
          "open decoder");
    return context;
}

// One re-encoding job: the state of the demuxer, both codecs and the muxer.
class Job
{
public:
    Job(const VideoCompress::Limits &limits, const VideoCompress::Progress &progress,
        const VideoCompress::Stopped &stopped)
        : m_limits(limits)
        , m_progress(progress)
        , m_stopped(stopped)
    {
    }

    double run(const QString &source, const QString &target);

private:
    void openInput(const QString &source);
    void openVideoEncoder();
    void openAudioEncoder();
    void openOutput(const QString &target);
    void decode(AVCodecContext *decoder, const AVPacket *packet, bool video);
    void encodeVideo(const AVFrame *decoded);
    void encodeAudio(const AVFrame *decoded);
    void drainFifo(bool last);
    void write(AVCodecContext *encoder, AVStream *stream, const AVFrame *frame);
    void report(double seconds);

    VideoCompress::Limits m_limits;
    const VideoCompress::Progress &m_progress;
    const VideoCompress::Stopped &m_stopped;

    Input m_in;
    Output m_out;
    AVStream *m_videoIn = nullptr;
    AVStream *m_audioIn = nullptr;
    AVStream *m_videoOut = nullptr;
    AVStream *m_audioOut = nullptr;
    Codec m_videoDecoder, m_audioDecoder, m_videoEncoder, m_audioEncoder;
    std::unique_ptr<SwsContext, SwsCloser> m_scaler;
    std::unique_ptr<SwrContext, SwrCloser> m_resampler;
    std::unique_ptr<AVAudioFifo, FifoCloser> m_fifo;
    Frame m_scaled;
    Frame m_decoded{av_frame_alloc()};
    Packet m_packet{av_packet_alloc()};
    VideoCompress::Plan m_plan;
    double m_duration = 0;
    int64_t m_firstVideoPts = AV_NOPTS_VALUE;
    int64_t m_audioSamples = 0;
    double m_videoWritten = 0;
    double m_audioWritten = 0;
    double m_reported = -1;
};

void Job::openInput(const QString &source)
{
    AVFormatContext *raw = nullptr;
    check(avformat_open_input(&raw, QFile::encodeName(source).constData(), nullptr, nullptr),
          VideoCompress::Failure::Unreadable, "open");
    m_in.reset(raw);
    check(avformat_find_stream_info(m_in.get(), nullptr), VideoCompress::Failure::Unreadable,
          "stream info");
    const int video = av_find_best_stream(m_in.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video < 0)
        throw Stop{VideoCompress::Failure::Unreadable, u"no video stream"_s};
    m_videoIn = m_in->streams[video];
    const int audio = av_find_best_stream(m_in.get(), AVMEDIA_TYPE_AUDIO, -1, video, nullptr, 0);
    if (audio >= 0)
        m_audioIn = m_in->streams[audio];

    if (m_in->duration > 0)
        m_duration = double(m_in->duration) / AV_TIME_BASE;
    else if (m_videoIn->duration > 0)
        m_duration = double(m_videoIn->duration) * av_q2d(m_videoIn->time_base);

    m_videoDecoder = openDecoder(m_videoIn);
    if (m_audioIn)
        m_audioDecoder = openDecoder(m_audioIn);
    m_plan = VideoCompress::plan(m_videoDecoder->width, m_videoDecoder->height, m_duration,
                                 m_videoIn->codecpar->bit_rate, m_limits);
    if (m_plan.tooLong)
        throw Stop{VideoCompress::Failure::TooLong,
                   u"%1 s over the limit of %2 s"_s.arg(m_duration).arg(m_limits.longestSeconds)};
}

void Job::openVideoEncoder()
{
    const AVCodec *codec = avcodec_find_encoder_by_name("libx264");
    if (!codec)
        codec = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (!codec)
        throw Stop{VideoCompress::Failure::Unwritable, u"no H.264 encoder"_s};
    m_videoEncoder.reset(avcodec_alloc_context3(codec));
    AVCodecContext *e = m_videoEncoder.get();
    e->width = m_plan.width;
    e->height = m_plan.height;
    e->pix_fmt = AV_PIX_FMT_YUV420P;
    e->sample_aspect_ratio = m_videoDecoder->sample_aspect_ratio;
    e->time_base = m_videoIn->time_base;
    AVRational rate = av_guess_frame_rate(m_in.get(), m_videoIn, nullptr);
    if (rate.num <= 0 || rate.den <= 0)
        rate = AVRational{30, 1};
    e->framerate = rate;
    e->bit_rate = m_plan.videoBitRate;
    // A bounded peak keeps the upload's size close to what the plan promised.
    e->rc_max_rate = int64_t(m_plan.videoBitRate * 1.5);
    e->rc_buffer_size = int(m_plan.videoBitRate * 2);
    e->gop_size = std::max(1, int(std::lround(2 * av_q2d(rate))));
    e->thread_count = 0;
    if (m_out->oformat->flags & AVFMT_GLOBALHEADER)
        e->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // A phone-sized job: quick enough to wait for, still far smaller than the camera's file.
    av_opt_set(e->priv_data, "preset", "veryfast", 0);
    av_opt_set(e->priv_data, "profile", "main", 0);
    check(avcodec_open2(e, codec, nullptr), VideoCompress::Failure::Unwritable, "open encoder");

    m_videoOut = avformat_new_stream(m_out.get(), nullptr);
    check(avcodec_parameters_from_context(m_videoOut->codecpar, e),
          VideoCompress::Failure::Unwritable, "video parameters");
    m_videoOut->time_base = e->time_base;
    // The picture is not turned: players turn it by the source's display matrix, kept here.
    size_t size = 0;
    if (const uint8_t *matrix = av_stream_get_side_data(m_videoIn, AV_PKT_DATA_DISPLAYMATRIX, &size)) {
        if (uint8_t *copy = av_stream_new_side_data(m_videoOut, AV_PKT_DATA_DISPLAYMATRIX, size))
            std::copy(matrix, matrix + size, copy);
    }

    m_scaler.reset(sws_getContext(m_videoDecoder->width, m_videoDecoder->height,
                                  m_videoDecoder->pix_fmt, e->width, e->height, e->pix_fmt,
                                  SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!m_scaler)
        throw Stop{VideoCompress::Failure::Unreadable, u"no scaler for this picture format"_s};
    m_scaled.reset(av_frame_alloc());
    m_scaled->format = e->pix_fmt;
    m_scaled->width = e->width;
    m_scaled->height = e->height;
    check(av_frame_get_buffer(m_scaled.get(), 0), VideoCompress::Failure::Unwritable, "frame");
}

void Job::openAudioEncoder()
{
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!codec)
        throw Stop{VideoCompress::Failure::Unwritable, u"no AAC encoder"_s};
    m_audioEncoder.reset(avcodec_alloc_context3(codec));
    AVCodecContext *e = m_audioEncoder.get();
    const int channels = std::clamp(m_audioDecoder->ch_layout.nb_channels, 1, 2);
    av_channel_layout_default(&e->ch_layout, channels);
    e->sample_fmt = AV_SAMPLE_FMT_FLTP;
    e->sample_rate = std::min(m_audioDecoder->sample_rate > 0 ? m_audioDecoder->sample_rate : 48000,
                              48000);
    e->bit_rate = channels == 1 ? m_limits.audioBitRate * 2 / 3 : m_limits.audioBitRate;
    e->time_base = AVRational{1, e->sample_rate};
    if (m_out->oformat->flags & AVFMT_GLOBALHEADER)
        e->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    check(avcodec_open2(e, codec, nullptr), VideoCompress::Failure::Unwritable, "open AAC");

    m_audioOut = avformat_new_stream(m_out.get(), nullptr);
    check(avcodec_parameters_from_context(m_audioOut->codecpar, e),
          VideoCompress::Failure::Unwritable, "audio parameters");
    m_audioOut->time_base = e->time_base;

    SwrContext *swr = nullptr;
    check(swr_alloc_set_opts2(&swr, &e->ch_layout, e->sample_fmt, e->sample_rate,
                              &m_audioDecoder->ch_layout, m_audioDecoder->sample_fmt,
                              m_audioDecoder->sample_rate, 0, nullptr),
          VideoCompress::Failure::Unreadable, "resampler");
    m_resampler.reset(swr);
    check(swr_init(swr), VideoCompress::Failure::Unreadable, "resampler");
    m_fifo.reset(av_audio_fifo_alloc(e->sample_fmt, channels, e->frame_size > 0 ? e->frame_size : 1024));
}

void Job::openOutput(const QString &target)
{
    AVFormatContext *raw = nullptr;
    // Named, since moving the index to the front reopens the file by its name.
    const QByteArray name = QFile::encodeName(target);
    check(avformat_alloc_output_context2(&raw, nullptr, "mp4", name.constData()),
          VideoCompress::Failure::Unwritable, "mp4 muxer");
    m_out.reset(raw);
    openVideoEncoder();
    if (m_audioDecoder)
        openAudioEncoder();
    check(avio_open(&m_out->pb, name.constData(), AVIO_FLAG_WRITE),
          VideoCompress::Failure::Unwritable, "open target");
    AVDictionary *options = nullptr;
    // The index at the front: the server can read the file while it still arrives.
    av_dict_set(&options, "movflags", "+faststart", 0);
    const int written = avformat_write_header(m_out.get(), &options);
    av_dict_free(&options);
    check(written, VideoCompress::Failure::Unwritable, "header");
}

void Job::report(double seconds)
{
    if (!m_progress || m_duration <= 0)
        return;
    const double fraction = std::clamp(seconds / m_duration, 0.0, 1.0);
    if (fraction - m_reported < 0.005)
        return;
    m_reported = fraction;
    m_progress(fraction);
}

void Job::write(AVCodecContext *encoder, AVStream *stream, const AVFrame *frame)
{
    check(avcodec_send_frame(encoder, frame), VideoCompress::Failure::Unwritable, "encode");
    for (;;) {
        const int got = avcodec_receive_packet(encoder, m_packet.get());
        if (got == AVERROR(EAGAIN) || got == AVERROR_EOF)
            return;
        check(got, VideoCompress::Failure::Unwritable, "encode");
        av_packet_rescale_ts(m_packet.get(), encoder->time_base, stream->time_base);
        m_packet->stream_index = stream->index;
        const double at = m_packet->pts == AV_NOPTS_VALUE
                              ? 0
                              : double(m_packet->pts + m_packet->duration) * av_q2d(stream->time_base);
        double &written = stream == m_videoOut ? m_videoWritten : m_audioWritten;
        written = std::max(written, at);
        check(av_interleaved_write_frame(m_out.get(), m_packet.get()),
              VideoCompress::Failure::Unwritable, "write");
        // Both tracks must be written for that much of the film to be done.
        report(m_audioOut ? std::min(m_videoWritten, m_audioWritten) : m_videoWritten);
    }
}

void Job::encodeVideo(const AVFrame *decoded)
{
    check(av_frame_make_writable(m_scaled.get()), VideoCompress::Failure::Unwritable, "frame");
    sws_scale(m_scaler.get(), decoded->data, decoded->linesize, 0, decoded->height,
              m_scaled->data, m_scaled->linesize);
    int64_t pts = decoded->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE)
        pts = decoded->pts;
    if (m_firstVideoPts == AV_NOPTS_VALUE)
        m_firstVideoPts = pts;
    m_scaled->pts = pts == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : pts - m_firstVideoPts;
    write(m_videoEncoder.get(), m_videoOut, m_scaled.get());
}

void Job::encodeAudio(const AVFrame *decoded)
{
    AVCodecContext *e = m_audioEncoder.get();
    const int room = swr_get_out_samples(m_resampler.get(), decoded ? decoded->nb_samples : 0);
    if (room <= 0)
        return;
    uint8_t **buffer = nullptr;
    check(av_samples_alloc_array_and_samples(&buffer, nullptr, e->ch_layout.nb_channels, room,
                                             e->sample_fmt, 0),
          VideoCompress::Failure::Unwritable, "samples");
    const int made = swr_convert(m_resampler.get(), buffer, room,
                                 decoded ? const_cast<const uint8_t **>(decoded->extended_data)
                                         : nullptr,
                                 decoded ? decoded->nb_samples : 0);
    if (made > 0)
        av_audio_fifo_write(m_fifo.get(), reinterpret_cast<void **>(buffer), made);
    av_freep(&buffer[0]);
    av_freep(&buffer);
    check(made, VideoCompress::Failure::Unreadable, "resample");
    drainFifo(false);
}

void Job::drainFifo(bool last)
{
    AVCodecContext *e = m_audioEncoder.get();
    const int size = e->frame_size > 0 ? e->frame_size : 1024;
    while (av_audio_fifo_size(m_fifo.get()) >= size
           || (last && av_audio_fifo_size(m_fifo.get()) > 0)) {
        const int n = std::min(size, av_audio_fifo_size(m_fifo.get()));
        Frame frame(av_frame_alloc());
        frame->nb_samples = n;
        frame->format = e->sample_fmt;
        frame->sample_rate = e->sample_rate;
        check(av_channel_layout_copy(&frame->ch_layout, &e->ch_layout),
              VideoCompress::Failure::Unwritable, "layout");
        check(av_frame_get_buffer(frame.get(), 0), VideoCompress::Failure::Unwritable, "frame");
        av_audio_fifo_read(m_fifo.get(), reinterpret_cast<void **>(frame->data), n);
        frame->pts = m_audioSamples;
        m_audioSamples += n;
        write(e, m_audioOut, frame.get());
    }
}

void Job::decode(AVCodecContext *decoder, const AVPacket *packet, bool video)
{
    const int sent = avcodec_send_packet(decoder, packet);
    // A damaged packet in the middle costs a few frames, not the whole video.
    if (sent < 0 && sent != AVERROR_EOF) {
        qCDebug(lcMedia) << "skipping a packet:" << errorText(sent);
        return;
    }
    for (;;) {
        const int got = avcodec_receive_frame(decoder, m_decoded.get());
        if (got == AVERROR(EAGAIN) || got == AVERROR_EOF)
            return;
        check(got, VideoCompress::Failure::Unreadable, "decode");
        if (video)
            encodeVideo(m_decoded.get());
        else
            encodeAudio(m_decoded.get());
        av_frame_unref(m_decoded.get());
    }
}

double Job::run(const QString &source, const QString &target)
{
    openInput(source);
    openOutput(target);
    report(0);
    while (true) {
        if (m_stopped && m_stopped())
            throw Stop{VideoCompress::Failure::Cancelled, {}};
        const int read = av_read_frame(m_in.get(), m_packet.get());
        if (read == AVERROR_EOF)
            break;
        check(read, VideoCompress::Failure::Unreadable, "read");
        // The packet is ours until unref; decoding copies what it keeps.
        Packet input(av_packet_clone(m_packet.get()));
        av_packet_unref(m_packet.get());
        if (input->stream_index == m_videoIn->index)
            decode(m_videoDecoder.get(), input.get(), true);
        else if (m_audioIn && input->stream_index == m_audioIn->index)
            decode(m_audioDecoder.get(), input.get(), false);
    }
    decode(m_videoDecoder.get(), nullptr, true);
    write(m_videoEncoder.get(), m_videoOut, nullptr);
    if (m_audioDecoder) {
        decode(m_audioDecoder.get(), nullptr, false);
        encodeAudio(nullptr); // what the resampler still holds
        drainFifo(true);
        write(m_audioEncoder.get(), m_audioOut, nullptr);
    }
    check(av_write_trailer(m_out.get()), VideoCompress::Failure::Unwritable, "trailer");
    if (m_progress)
        m_progress(1.0);
    return m_duration;
}

} // namespace

VideoCompress::Plan VideoCompress::plan(int width, int height, double seconds,
                                        qint64 sourceBitRate, const Limits &limits)
{
    Plan out;
    out.tooLong = seconds > limits.longestSeconds;
    const int longer = std::max(width, height);
    const double scale = longer > limits.longSide ? double(limits.longSide) / longer : 1.0;
    out.width = even(width * scale);
    out.height = even(height * scale);
    // The top rate buys a picture of the full long side; smaller pictures need less in
    // proportion to their area, down to the floor. A source that was already leaner keeps its
    // own rate: re-encoding never makes a file bigger than what it was.
    const double fullArea = double(limits.longSide) * even(limits.longSide * 9.0 / 16.0);
    const double area = double(out.width) * out.height;
    double rate = limits.topBitRate * std::min(1.0, area / fullArea);
    rate = std::clamp(rate, double(limits.floorBitRate), double(limits.topBitRate));
    if (sourceBitRate > 0)
        rate = std::min(rate, double(sourceBitRate));
    out.videoBitRate = int(rate);
    return out;
}

VideoCompress::Result VideoCompress::shrink(const QString &source, const QString &target,
                                            const Progress &progress, const Stopped &stopped,
                                            const Limits &limits)
{
    // FFmpeg speaks on stderr unless told otherwise; what matters reaches our own log.
    static const bool quiet = [] {
        av_log_set_level(lcMedia().isDebugEnabled() ? AV_LOG_INFO : AV_LOG_QUIET);
        return true;
    }();
    Q_UNUSED(quiet);
    Result result;
    try {
        Job job(limits, progress, stopped);
        result.seconds = job.run(source, target);
    } catch (const Stop &stop) {
        result.failure = stop.failure;
        result.detail = stop.detail;
    }
    if (!result.ok()) {
        qCInfo(lcMedia) << "video not shrunk:" << result.detail;
        QFile::remove(target); // never a half-written file in the outbox's way
    }
    return result;
}

QCoro::Task<VideoCompress::Result> VideoCompress::shrinkAsync(QString source, QString target,
                                                              Progress progress, Limits limits,
                                                              Stopped stopped)
{
    // Qt carries the progress across threads: the watcher reports on this thread, and dies
    // with this task, so nothing reaches a caller that has gone.
    constexpr int steps = 1000;
    QFutureWatcher<Result> watcher;
    QObject::connect(&watcher, &QFutureWatcherBase::progressValueChanged, &watcher,
                     [progress](int value) {
                         if (progress)
                             progress(double(value) / steps);
                     });
    QFuture<Result> future = QtConcurrent::run([source, target, limits, stopped](QPromise<Result> &promise) {
        promise.setProgressRange(0, steps);
        const Stopped asked = [&promise, stopped] {
            return promise.isCanceled() || (stopped && stopped());
        };
        const Progress report = [&promise](double fraction) {
            promise.setProgressValue(int(fraction * steps));
        };
        promise.addResult(shrink(source, target, report, asked, limits));
    });
    watcher.setFuture(future);
    co_await future;
    co_return future.result();
}

QString VideoCompress::text(Failure failure)
{
    switch (failure) {
    case Failure::None: return {};
    case Failure::TooLong:
        return L::t(u"הסרטון ארוך מדי לשליחה."_s, u"The video is too long to send."_s,
                    u"Видео слишком длинное для отправки."_s);
    case Failure::Unreadable:
        return L::t(u"לא ניתן לקרוא את הסרטון."_s, u"The video cannot be read."_s,
                    u"Не удаётся прочитать видео."_s);
    case Failure::Unwritable:
        return L::t(u"לא ניתן להקטין את הסרטון במכשיר הזה."_s,
                    u"The video could not be shrunk on this device."_s,
                    u"Не удалось уменьшить видео на этом устройстве."_s);
    case Failure::Cancelled:
        return L::t(u"ההקטנה בוטלה."_s, u"Shrinking was cancelled."_s, u"Сжатие отменено."_s);
    }
    return {};
}
