#include "recorder.h"
#include "chat/chatlogging.h"

#include "chat/voice/voiceplayer.h"
#include "platform/appdata.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QDateTime>
#include <QDir>
#include <QLoggingCategory>
#include <QUuid>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto settle = 80ms;

// A 16-bit mono PCM header for that many frames.
QByteArray header(int rate, qint64 frames)
{
    QByteArray h(44, '\0');
    auto put32 = [&h](int at, quint32 v) { qToLittleEndian(v, h.data() + at); };
    auto put16 = [&h](int at, quint16 v) { qToLittleEndian(v, h.data() + at); };
    const quint32 bytes = quint32(std::min<qint64>(frames * 2, 0x7fffffff));
    std::memcpy(h.data(), "RIFF", 4);
    put32(4, 36 + bytes);
    std::memcpy(h.data() + 8, "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1);
    put16(22, 1);
    put32(24, quint32(rate));
    put32(28, quint32(rate) * 2);
    put16(32, 2);
    put16(34, 16);
    std::memcpy(h.data() + 36, "data", 4);
    put32(40, bytes);
    return h;
}

// Captured audio as 16-bit mono (channels averaged), with its loudest sample.
QByteArray toMono(const QByteArray &data, const AudioPort::CaptureFormat &format, float *peak)
{
    const int channels = std::max(1, format.channels);
    const qsizetype sampleBytes = format.floatSamples ? 4 : 2;
    const qsizetype frames = data.size() / (sampleBytes * channels);
    QByteArray out(frames * 2, Qt::Uninitialized);
    auto *to = reinterpret_cast<qint16 *>(out.data());
    float loudest = 0;
    for (qsizetype f = 0; f < frames; ++f) {
        float sum = 0;
        for (int c = 0; c < channels; ++c) {
            const char *at = data.constData() + (f * channels + c) * sampleBytes;
            if (format.floatSamples) {
                float v;
                std::memcpy(&v, at, 4);
                sum += std::isfinite(v) ? std::clamp(v, -1.0f, 1.0f) : 0.0f;
            } else {
                sum += float(qFromLittleEndian<qint16>(at)) / 32768.0f;
            }
        }
        const float v = sum / float(channels);
        loudest = std::max(loudest, std::fabs(v));
        to[f] = qToLittleEndian(
            qint16(std::lround(std::clamp(v, -1.0f, 32767.0f / 32768.0f) * 32768.0f)));
    }
    *peak = std::min(loudest, 1.0f);
    return out;
}

QString freshName(const QDateTime &now)
{
    return u"note-"_s + now.toUTC().toString(u"yyyyMMdd-HHmmss"_s) + u"-"_s +
           QUuid::createUuid().toString(QUuid::Id128).left(8) + u".wav"_s;
}

} // namespace

Recorder::Recorder(Dependencies deps, QObject *parent)
    : QObject(parent)
    , m_deps(std::move(deps))
{
    if (m_deps.folder.isEmpty())
        m_deps.folder = AppData::path(u"recordings"_s);
}

Recorder::~Recorder()
{
    if (recording())
        cancel();
}

double Recorder::seconds() const
{
    return m_format.sampleRate > 0 ? double(m_frames) / m_format.sampleRate : 0.0;
}

QString Recorder::error() const
{
    switch (m_failure) {
    case Failure::None:
        return {};
    case Failure::Start:
        return L::t(u"לא ניתן להתחיל הקלטה: "_s, u"Could not start recording: "_s,
                    u"Не удалось начать запись: "_s)
               + m_detail;
    case Failure::Save:
        return L::t(u"לא ניתן לשמור את ההקלטה במכשיר הזה."_s,
                    u"Could not save the recording on this device."_s,
                    u"Не удалось сохранить запись на этом устройстве."_s);
    }
    return {};
}

void Recorder::setError(Failure failure, const QString &detail)
{
    if (m_failure == failure && m_detail == detail)
        return;
    m_failure = failure;
    m_detail = detail;
    emit errorChanged();
}

QCoro::Task<bool> Recorder::start()
{
    if (recording())
        co_return true;
    if (!m_deps.port || !m_deps.port->open({}, {})) {
        setError(Failure::Start, m_deps.port ? m_deps.port->error() : QString());
        co_return false;
    }
    m_format = m_deps.port->captureFormat();
    const QString path = QDir(m_deps.folder).filePath(freshName(m_deps.clock.now()));
    auto file = std::make_unique<QFile>(path);
    if (m_format.sampleRate <= 0 || !AppData::makeFolder(m_deps.folder) ||
        !file->open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
        file->write(header(m_format.sampleRate, 0)) != 44) {
        m_deps.port->close();
        setError(Failure::Start, file->errorString());
        co_return false;
    }
    setError(Failure::None);
    m_file = std::move(file);
    m_frames = 0;
    m_peak = 0;
    m_level = 0;
    m_writeFailed = false;
    m_capture = connect(m_deps.port, &AudioPort::captured, this, &Recorder::onCaptured);
    if (m_deps.player)
        m_deps.player->holdForRecording();
    emit recordingChanged();
    emit levelChanged();
    QPointer<Recorder> self(this);
    co_await m_deps.sleeper.sleep(settle);
    co_return self &&recording();
}

void Recorder::onCaptured(const QByteArray &data)
{
    if (!m_file)
        return;
    float peak = 0;
    const QByteArray mono = toMono(data, m_format, &peak);
    if (m_file->write(mono) != mono.size() && !m_writeFailed) {
        m_writeFailed = true;
        qCWarning(lcVoiceNotes) << "the recording could not be written:" << m_file->errorString();
    }
    m_frames += mono.size() / 2;
    m_peak = std::max(m_peak, peak);
    m_level = peak;
    emit levelChanged();
}

void Recorder::finish()
{
    disconnect(m_capture);
    if (m_deps.port)
        m_deps.port->close();
    if (m_deps.player)
        m_deps.player->resumeAfterRecording();
    m_level = 0;
}

std::optional<Recorder::Take> Recorder::stop()
{
    if (!m_file)
        return std::nullopt;
    finish();
    std::unique_ptr<QFile> file = std::move(m_file);
    const bool written = !m_writeFailed && file->seek(0) &&
                         file->write(header(m_format.sampleRate, m_frames)) == 44 && file->flush();
    file->close();
    emit recordingChanged();
    emit levelChanged();
    if (!written) {
        file->remove();
        setError(Failure::Save);
        return std::nullopt;
    }
    return Take{file->fileName(), m_peak, seconds()};
}

void Recorder::cancel()
{
    if (!m_file)
        return;
    finish();
    std::unique_ptr<QFile> file = std::move(m_file);
    file->remove();
    emit recordingChanged();
    emit levelChanged();
}
