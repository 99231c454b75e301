#include "audiodecode.h"

#include "text/l.h"

#include <QFile>
#include <QSaveFile>
#include <QtEndian>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <memory>

using namespace Qt::StringLiterals;

namespace {

struct Decoding {
    AVFormatContext *format = nullptr;
    AVCodecContext *codec = nullptr;
    SwrContext *swr = nullptr;
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int stream = -1;

    ~Decoding()
    {
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&swr);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }
};

QString cannotRead(const QString &file)
{
    return L::t(u"לא ניתן לפענח את קובץ השמע %1."_s, u"The audio file %1 cannot be decoded."_s,
                u"Не удаётся декодировать аудиофайл %1."_s)
        .arg(file);
}

// Appends the file's samples, converted to rate/channels, to pcm. Sets rate and channels from
// the file when they are still 0.
bool decodeInto(const QString &file, int &rate, int &channels, QByteArray &pcm)
{
    Decoding d;
    if (avformat_open_input(&d.format, QFile::encodeName(file).constData(), nullptr, nullptr) < 0
        || avformat_find_stream_info(d.format, nullptr) < 0)
        return false;
    d.stream = av_find_best_stream(d.format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (d.stream < 0)
        return false;
    const AVStream *stream = d.format->streams[d.stream];
    const AVCodec *decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!decoder)
        return false;
    d.codec = avcodec_alloc_context3(decoder);
    if (avcodec_parameters_to_context(d.codec, stream->codecpar) < 0
        || avcodec_open2(d.codec, decoder, nullptr) < 0)
        return false;
    if (rate == 0) {
        rate = d.codec->sample_rate;
        channels = std::clamp(d.codec->ch_layout.nb_channels, 1, 2);
    }
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    const int made = swr_alloc_set_opts2(&d.swr, &layout, AV_SAMPLE_FMT_S16, rate,
                                         &d.codec->ch_layout, d.codec->sample_fmt,
                                         d.codec->sample_rate, 0, nullptr);
    if (made < 0 || swr_init(d.swr) < 0)
        return false;

    auto convert = [&](const AVFrame *frame) {
        const int room = swr_get_out_samples(d.swr, frame ? frame->nb_samples : 0);
        if (room <= 0)
            return true;
        const qsizetype at = pcm.size();
        pcm.resize(at + qsizetype(room) * channels * 2);
        uint8_t *out = reinterpret_cast<uint8_t *>(pcm.data() + at);
        const int got = swr_convert(d.swr, &out, room,
                                    frame ? const_cast<const uint8_t **>(frame->extended_data) : nullptr,
                                    frame ? frame->nb_samples : 0);
        pcm.resize(at + qsizetype(std::max(got, 0)) * channels * 2);
        return got >= 0;
    };
    auto drain = [&]() {
        while (avcodec_receive_frame(d.codec, d.frame) >= 0) {
            const bool ok = convert(d.frame);
            av_frame_unref(d.frame);
            if (!ok)
                return false;
        }
        return true;
    };
    while (av_read_frame(d.format, d.packet) >= 0) {
        if (d.packet->stream_index == d.stream)
            avcodec_send_packet(d.codec, d.packet); // a damaged packet costs its own samples
        av_packet_unref(d.packet);
        if (!drain())
            return false;
    }
    avcodec_send_packet(d.codec, nullptr);
    return drain() && convert(nullptr);
}

QByteArray header(int rate, int channels, qint64 bytes)
{
    QByteArray h(44, '\0');
    auto put32 = [&](int at, quint32 v) { qToLittleEndian(v, h.data() + at); };
    auto put16 = [&](int at, quint16 v) { qToLittleEndian(v, h.data() + at); };
    std::memcpy(h.data(), "RIFF", 4);
    put32(4, quint32(36 + bytes));
    std::memcpy(h.data() + 8, "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1); // PCM
    put16(22, quint16(channels));
    put32(24, quint32(rate));
    put32(28, quint32(rate * channels * 2));
    put16(32, quint16(channels * 2));
    put16(34, 16);
    std::memcpy(h.data() + 36, "data", 4);
    put32(40, quint32(bytes));
    return h;
}

} // namespace

namespace AudioDecode {

Result toWav(const QStringList &sources, const QString &target)
{
    static const bool quiet = [] {
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    Q_UNUSED(quiet);
    Result out;
    QByteArray pcm;
    for (const QString &file : sources) {
        if (!decodeInto(file, out.rate, out.channels, pcm)) {
            out.error = cannotRead(file);
            return out;
        }
    }
    if (out.rate <= 0) {
        out.error = cannotRead(target);
        return out;
    }
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly) || file.write(header(out.rate, out.channels, pcm.size())) != 44
        || file.write(pcm) != pcm.size() || !file.flush() || !file.commit()) {
        out.error = L::t(u"לא ניתן לכתוב את %1."_s, u"Cannot write %1."_s, u"Не удаётся записать %1."_s)
                        .arg(target);
        return out;
    }
    out.ok = true;
    out.seconds = double(pcm.size()) / (out.rate * out.channels * 2);
    return out;
}

} // namespace AudioDecode
