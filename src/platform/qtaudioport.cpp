#include "platform/qtaudioport.h"
#include "platform/platformlog.h"

#include <QAudioSink>
#include <QAudioSource>
#include <QLoggingCategory>
#include <QMediaDevices>
#include <QProcess>

#include <algorithm>

namespace {

constexpr int chunkMs = 10;
constexpr qsizetype chunkBytes = 24000 * 2 * chunkMs / 1000;
// Audio kept written ahead of the device: enough to ride out a late timer.
constexpr int aheadMs = 40;

// The sound server's own default source; Qt 6.4 may report another device as default.
QByteArray serverDefaultSource()
{
    QProcess pactl;
    pactl.start(QStringLiteral("pactl"), {QStringLiteral("get-default-source")});
    if (!pactl.waitForFinished(1000) || pactl.exitCode() != 0) {
        return {};
    }
    return pactl.readAllStandardOutput().trimmed();
}

QAudioFormat wireFormat()
{
    QAudioFormat format;
    format.setSampleRate(24000);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    return format;
}

} // namespace

QtAudioPort::QtAudioPort(QObject *parent)
    : AudioPort(parent)
{
    m_feeder.setTimerType(Qt::PreciseTimer);
    connect(&m_feeder, &QTimer::timeout, this, &QtAudioPort::feed);
    // Qt 6.4's PulseAudio backend updates its lists but did not emit these signals here: the
    // lists are also compared once a second, and only a real difference is announced.
    auto *devices = new QMediaDevices(this);
    connect(devices, &QMediaDevices::audioInputsChanged, this, &QtAudioPort::checkDevices);
    connect(devices, &QMediaDevices::audioOutputsChanged, this, &QtAudioPort::checkDevices);
    m_devices = deviceIds();
    m_devicePoll.setInterval(1000);
    connect(&m_devicePoll, &QTimer::timeout, this, &QtAudioPort::checkDevices);
    m_devicePoll.start();
}

QList<QByteArray> QtAudioPort::deviceIds() const
{
    QList<QByteArray> ids;
    for (const QAudioDevice &d : QMediaDevices::audioInputs()) {
        ids.append("in:" + d.id());
    }
    for (const QAudioDevice &d : QMediaDevices::audioOutputs()) {
        ids.append("out:" + d.id());
    }
    return ids;
}

void QtAudioPort::checkDevices()
{
    QList<QByteArray> now = deviceIds();
    if (now != m_devices) {
        m_devices = std::move(now);
        emit devicesChanged();
    }
}

QtAudioPort::~QtAudioPort()
{
    close();
}

QList<AudioPort::Device> QtAudioPort::inputs() const
{
    QList<Device> list;
    for (const QAudioDevice &d : QMediaDevices::audioInputs()) {
        list.append({d.id(), d.description()});
    }
    return list;
}

QList<AudioPort::Device> QtAudioPort::outputs() const
{
    QList<Device> list;
    for (const QAudioDevice &d : QMediaDevices::audioOutputs()) {
        list.append({d.id(), d.description()});
    }
    return list;
}

QAudioDevice QtAudioPort::pick(bool input, const QByteArray &id) const
{
    const QList<QAudioDevice> devices =
        input ? QMediaDevices::audioInputs() : QMediaDevices::audioOutputs();
    const QByteArray wanted = !id.isEmpty() ? id : input ? serverDefaultSource() : QByteArray();
    for (const QAudioDevice &d : devices) {
        if (!wanted.isEmpty() && d.id() == wanted) {
            return d;
        }
    }
    return input ? QMediaDevices::defaultAudioInput() : QMediaDevices::defaultAudioOutput();
}

bool QtAudioPort::open(const QByteArray &inputId, const QByteArray &outputId)
{
    close();
    m_inputDevice = m_capture ? pick(true, inputId) : QAudioDevice();
    const QAudioDevice output = m_playback ? pick(false, outputId) : QAudioDevice();
    if ((m_capture && m_inputDevice.isNull()) || (m_playback && output.isNull())) {
        m_error = QStringLiteral("no sound device");
        return false;
    }

    if (m_capture) {
        QAudioFormat captureFormat = m_inputDevice.preferredFormat();
        if (captureFormat.sampleFormat() != QAudioFormat::Float) {
            captureFormat.setSampleFormat(QAudioFormat::Int16);
        }
        m_format = {captureFormat.sampleRate(), captureFormat.channelCount(),
                    captureFormat.sampleFormat() == QAudioFormat::Float};
        m_source = std::make_unique<QAudioSource>(m_inputDevice, captureFormat);
        m_source->setBufferSize(captureFormat.bytesForDuration(20000));
        m_in = m_source->start();
    }
    if (m_playback) {
        m_sink = std::make_unique<QAudioSink>(output, wireFormat());
        m_sink->setBufferSize(wireFormat().bytesForDuration(aheadMs * 2000));
        m_out = m_sink->start();
    }
    const bool captureFailed =
        m_capture && (!m_in || m_source->error() != QAudio::NoError);
    const bool playbackFailed =
        m_playback && (!m_out || m_sink->error() != QAudio::NoError);
    if (captureFailed || playbackFailed) {
        m_error = QStringLiteral("could not open the sound devices");
        qCWarning(lcAudio) << "open failed" << captureFailed << playbackFailed;
        close();
        return false;
    }
    if (m_capture) {
        connect(m_in, &QIODevice::readyRead, this, &QtAudioPort::readCaptured);
    }
    m_written = 0;
    if (m_playback) {
        m_feeder.start(chunkMs);
    }
    m_error.clear();
    return true;
}

void QtAudioPort::close()
{
    m_feeder.stop();
    m_queue.clear();
    if (m_source) {
        m_source->stop();
    }
    if (m_sink) {
        m_sink->reset(); // stop() would drain first
    }
    m_source.reset();
    m_sink.reset();
}

bool QtAudioPort::isOpen() const
{
    const bool captureOpen = m_source && m_source->state() != QAudio::StoppedState;
    const bool playbackOpen = m_sink && m_sink->state() != QAudio::StoppedState;
    return (!m_capture || captureOpen) && (!m_playback || playbackOpen);
}

void QtAudioPort::readCaptured()
{
    if (!m_in) {
        return;
    }
    const QByteArray data = m_in->readAll();
    if (!data.isEmpty()) {
        emit captured(data);
    }
}

void QtAudioPort::enqueue(const QByteArray &pcm, quint64 id)
{
    m_queue.push_back({pcm, id});
}

void QtAudioPort::dropQueued()
{
    m_queue.clear();
}

int QtAudioPort::outputLatencyMs() const
{
    return aheadMs + chunkMs;
}

int QtAudioPort::chunksToFeed(qint64 ahead, qint64 target, qint64 room, qint64 chunk)
{
    const qint64 fits = room / chunk;
    return int(std::clamp<qint64>((target - ahead) / chunk, std::min<qint64>(1, fits), fits));
}

void QtAudioPort::feed()
{
    if (!m_sink || !m_out) {
        return;
    }
    const qint64 heard = wireFormat().bytesForDuration(m_sink->processedUSecs());
    const qint64 ahead = qMax<qint64>(0, m_written - heard);
    const int chunks = chunksToFeed(ahead, wireFormat().bytesForDuration(aheadMs * 1000),
                                    m_sink->bytesFree(), chunkBytes);
    for (int c = 0; c < chunks; ++c) {
        QByteArray out;
        out.reserve(chunkBytes);
        while (out.size() < chunkBytes && !m_queue.empty()) {
            Queued &front = m_queue.front();
            const qsizetype take = qMin(chunkBytes - out.size(), front.pcm.size() - front.offset);
            out.append(front.pcm.constData() + front.offset, take);
            front.offset += take;
            if (front.offset == front.pcm.size()) {
                const quint64 id = front.id;
                m_queue.pop_front();
                emit bufferDone(id);
            }
        }
        if (!m_out) {
            return; // closed from a bufferDone handler
        }
        // Silence keeps the sink clocked and the echo reference continuous.
        out.append(chunkBytes - out.size(), '\0');
        m_written += m_out->write(out);
        emit rendered(out);
    }
}
