#include "voice/callaudio.h"
#include "voice/voicelog.h"

#include "platform/audioport.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "voice/pcm.h"

#include <QLoggingCategory>
#include <QMutexLocker>

#include <algorithm>
#include <cmath>

namespace {

constexpr double wireRate = 24000;
constexpr double newReplyGap = 0.3;
constexpr double maxCushion = 0.7;
constexpr double underrunDelay = 0.15;
// The smoothed gain closes about 63 % of the distance to its target in 20 ms.
constexpr double gainStep = 1.0 / (0.02 * wireRate);
constexpr double ceiling = 0.95;
constexpr double stallAfter = 1.5;
constexpr double restartEvery = 0.5;
constexpr double silentTooLong = 12;

} // namespace

CallAudio::CallAudio(AudioPort *port, Sleeper &sleeper, const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_port(port)
    , m_sleeper(&sleeper)
    , m_clock(clock)
{}

CallAudio::~CallAudio()
{
    halt();
}

void CallAudio::setDevices(const QByteArray &input, const QByteArray &output)
{
    m_inputId = input;
    m_outputId = output;
}

bool CallAudio::start(bool recovering)
{
    halt();
    if (!m_port) {
        m_error = QStringLiteral("no sound devices");
        return false;
    }
    if (!m_port->open(m_inputId, m_outputId)) {
        m_error = m_port->error();
        qCWarning(lcCallAudio) << "start failed:" << m_error;
        return false;
    }
    const AudioPort::CaptureFormat format = m_port->captureFormat();
    m_resampler = std::make_unique<Resampler>(format.sampleRate);
    m_canceller = std::make_unique<EchoCanceller>(m_port->outputLatencyMs());
    {
        QMutexLocker locker(&m_lock);
        if (!recovering) {
            m_cushion = initialCushion;
            m_underruns = 0;
        }
        m_epoch += 1;
        m_held.clear();
        m_queued = 0;
        m_playing = false;
        m_releasing = false;
        m_lastEnd.reset();
        m_lastCapture = m_clock.uptime();
    }
    m_connections << connect(m_port, &AudioPort::captured, this, &CallAudio::capture);
    m_connections << connect(m_port, &AudioPort::bufferDone, this, &CallAudio::bufferDone);
    m_connections << connect(m_port, &AudioPort::rendered, this, [this](const QByteArray &pcm) {
        if (m_canceller) {
            m_canceller->render(pcm);
        }
    });
    emit traced(QStringLiteral("call audio up, one engine, mic %1 Hz %2 ch interleaved")
                    .arg(format.sampleRate)
                    .arg(format.channels));
    return true;
}

void CallAudio::halt()
{
    for (const auto &c : std::as_const(m_connections)) {
        disconnect(c);
    }
    m_connections.clear();
    if (m_port) {
        m_port->dropQueued();
        m_port->close();
    }
    QMutexLocker locker(&m_lock);
    m_epoch += 1;
    m_held.clear();
    m_queued = 0;
    m_playing = false;
    m_releasing = false;
}

void CallAudio::capture(const QByteArray &data)
{
    if (!m_port || !m_resampler || !m_canceller) {
        return;
    }
    const AudioPort::CaptureFormat format = m_port->captureFormat();
    const int channels = std::max(format.channels, 1);
    const qsizetype sampleBytes = format.floatSamples ? 4 : 2;
    const qsizetype frames = data.size() / (sampleBytes * channels);
    m_mono.resize(size_t(frames));
    if (format.floatSamples) {
        const auto *s = reinterpret_cast<const float *>(data.constData());
        Pcm::channelToFloat(s, frames, channels, Pcm::loudestChannel(s, frames, channels),
                            m_mono.data());
    } else {
        const auto *s = reinterpret_cast<const qint16 *>(data.constData());
        Pcm::channelToFloat(s, frames, channels, Pcm::loudestChannel(s, frames, channels),
                            m_mono.data());
    }
    const QByteArray wire = m_canceller->capture(m_resampler->toPcm16(m_mono.data(), frames));
    const double peak =
        Pcm::peak(reinterpret_cast<const qint16 *>(wire.constData()), wire.size() / 2);
    {
        QMutexLocker locker(&m_lock);
        m_lastCapture = m_clock.uptime();
        m_level = std::min(peak / 32767.0, 1.0);
    }
    if (!wire.isEmpty()) {
        emit chunk(wire);
    }
}

QByteArray CallAudio::shape(const QByteArray &wire)
{
    const qsizetype count = wire.size() / 2;
    QByteArray out(count * 2, Qt::Uninitialized);
    const auto *in = reinterpret_cast<const qint16 *>(wire.constData());
    auto *o = reinterpret_cast<qint16 *>(out.data());
    double target;
    double gain;
    {
        QMutexLocker locker(&m_lock);
        target = m_volume;
        gain = m_smoothedGain;
    }
    for (qsizetype i = 0; i < count; ++i) {
        const double s = in[i] / 32767.0;
        gain += (target - gain) * gainStep;
        if (std::abs(s * gain) > ceiling) {
            gain = ceiling / std::abs(s);
        }
        o[i] = qint16(std::lrint(std::clamp(s * gain, -1.0, 1.0) * 32767));
    }
    QMutexLocker locker(&m_lock);
    m_smoothedGain = gain;
    return out;
}

void CallAudio::play(const QByteArray &wire)
{
    if (wire.size() < 2) {
        return;
    }
    const QByteArray pcm = shape(wire);
    const double now = m_clock.uptime();
    std::optional<double> delay;
    quint64 epoch = 0;
    {
        QMutexLocker locker(&m_lock);
        if (m_openai && !m_playing && m_queued == 0 && !m_releasing) {
            const double gap = m_lastEnd ? now - *m_lastEnd : INFINITY;
            // The clock's sums of short durations are not exact in binary.
            const bool underrun = gap < newReplyGap - 1e-9;
            if (underrun) {
                m_underruns += 1;
                m_cushion = std::min(m_cushion + 0.08, maxCushion);
            } else {
                m_cushion = std::max(m_cushion - 0.02, initialCushion);
            }
            m_playing = true;
            m_releasing = true;
            delay = underrun && m_cushion > underrunDelay ? underrunDelay : m_cushion;
            epoch = m_epoch;
            m_held.push_back({pcm, epoch});
        } else if (m_releasing) {
            m_held.push_back({pcm, m_epoch});
        } else {
            m_playing = true;
            schedule(pcm);
        }
    }
    if (delay) {
        release(epoch, *delay);
    }
}

QCoro::Task<> CallAudio::release(quint64 epoch, double delay)
{
    QPointer<CallAudio> self(this);
    const auto ms = std::chrono::milliseconds(qint64(std::lround(delay * 1000)));
    co_await m_sleeper->sleep(ms);
    if (!self) {
        co_return;
    }
    QMutexLocker locker(&m_lock);
    if (epoch != m_epoch || !m_playing) {
        co_return; // flushed meanwhile: the held audio is gone
    }
    m_releasing = false;
    for (const Held &held : m_held) {
        schedule(held.pcm);
    }
    m_held.clear();
}

void CallAudio::schedule(const QByteArray &pcm)
{
    m_queued += 1;
    const double duration = double(pcm.size() / 2) / wireRate;
    m_projectedEnd = std::max(m_projectedEnd, m_clock.uptime()) + duration;
    if (m_port) {
        m_port->enqueue(pcm, (m_epoch << 32) | (++m_serial & 0xffffffffu));
    }
}

void CallAudio::bufferDone(quint64 id)
{
    QMutexLocker locker(&m_lock);
    if ((id >> 32) != (m_epoch & 0xffffffffu)) {
        return;
    }
    m_queued = std::max(m_queued - 1, 0);
    if (m_queued == 0 && !m_releasing) {
        m_lastEnd = m_clock.uptime();
        m_playing = false;
    }
}

void CallAudio::flush()
{
    {
        QMutexLocker locker(&m_lock);
        m_epoch += 1;
        m_held.clear();
        m_queued = 0;
        m_playing = false;
        m_releasing = false;
        m_lastEnd.reset();
        m_smoothedGain = 0;
    }
    if (m_port) {
        m_port->dropQueued();
    }
}

bool CallAudio::recoverIfNeeded()
{
    const double now = m_clock.uptime();
    double silentFor;
    {
        QMutexLocker locker(&m_lock);
        silentFor = now - m_lastCapture;
    }
    if (m_port && m_port->isOpen() && silentFor <= stallAfter) {
        return true;
    }
    if (silentFor > silentTooLong) {
        return false;
    }
    if (now - m_lastRestart >= restartEvery) {
        m_lastRestart = now;
        emit traced(QStringLiteral("restarting the audio engine"));
        // start() resets the capture clock; the stall still counts from the last chunk.
        const bool started = start(true);
        QMutexLocker locker(&m_lock);
        m_lastCapture = now - silentFor;
        return started;
    }
    return true;
}

QCoro::Task<> CallAudio::watchLevel(std::chrono::milliseconds interval)
{
    QPointer<CallAudio> self(this);
    const quint64 generation = ++m_watches;
    m_watch = generation;
    while (self && m_watch == generation) {
        emit meter(level());
        if (!recoverIfNeeded()) {
            m_watch = 0;
            emit stalled();
            co_return;
        }
        co_await m_sleeper->sleep(interval);
    }
}

void CallAudio::teardown()
{
    m_watch = 0;
    halt();
}

bool CallAudio::busy() const
{
    QMutexLocker locker(&m_lock);
    return m_playing || m_queued > 0;
}

int CallAudio::queued() const
{
    QMutexLocker locker(&m_lock);
    return m_queued;
}

int CallAudio::underruns() const
{
    QMutexLocker locker(&m_lock);
    return m_underruns;
}

double CallAudio::cushion() const
{
    QMutexLocker locker(&m_lock);
    return m_cushion;
}

double CallAudio::level() const
{
    QMutexLocker locker(&m_lock);
    return m_level;
}

double CallAudio::lastCapture() const
{
    QMutexLocker locker(&m_lock);
    return m_lastCapture;
}

void CallAudio::setOpenAI(bool openai)
{
    QMutexLocker locker(&m_lock);
    m_openai = openai;
}

void CallAudio::setVolume(double gain)
{
    QMutexLocker locker(&m_lock);
    m_volume = std::isfinite(gain) ? std::clamp(gain, 0.0, 3.0) : 1.0;
}

double CallAudio::volume() const
{
    QMutexLocker locker(&m_lock);
    return m_volume;
}
