#include "platform/fileaudioport.h"

FileAudioPort::FileAudioPort(WavFile input, QObject *parent)
    : AudioPort(parent)
    , m_input(std::move(input))
{
    if (!m_input.isValid()) {
        m_input.sampleRate = 48000;
        m_input.channels = 1;
    }
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &FileAudioPort::tick);
}

QList<AudioPort::Device> FileAudioPort::inputs() const
{
    return inputList;
}

QList<AudioPort::Device> FileAudioPort::outputs() const
{
    return outputList;
}

bool FileAudioPort::open(const QByteArray &inputId, const QByteArray &outputId)
{
    ++opens;
    openedInput = inputId;
    openedOutput = outputId;
    if (failNextOpen) {
        failNextOpen = false;
        m_error = QStringLiteral("device unavailable");
        return false;
    }
    m_open = true;
    m_error.clear();
    if (m_realTime) {
        m_timer.start(m_chunkMs);
    }
    return true;
}

void FileAudioPort::close()
{
    m_open = false;
    m_queue.clear();
    m_timer.stop();
}

AudioPort::CaptureFormat FileAudioPort::captureFormat() const
{
    return {m_input.sampleRate, m_input.channels, false};
}

QString FileAudioPort::inputName() const
{
    return QStringLiteral("File");
}

void FileAudioPort::enqueue(const QByteArray &pcm, quint64 id)
{
    m_queue.push_back({pcm, id});
}

void FileAudioPort::dropQueued()
{
    m_queue.clear();
}

qsizetype FileAudioPort::queuedBytes() const
{
    qsizetype total = 0;
    for (const auto &q : m_queue) {
        total += q.pcm.size() - q.offset;
    }
    return total;
}

void FileAudioPort::runInRealTime(bool on)
{
    m_realTime = on;
    if (on && m_open) {
        m_timer.start(m_chunkMs);
    } else {
        m_timer.stop();
    }
}

void FileAudioPort::tick()
{
    if (!m_open) {
        return;
    }
    if (!captureStalled) {
        const qsizetype frameBytes = qsizetype(m_input.channels) * 2;
        const qsizetype want = qsizetype(m_input.sampleRate) * m_chunkMs / 1000 * frameBytes;
        QByteArray chunk = m_input.samples.mid(m_inputAt, want);
        m_inputAt += chunk.size();
        chunk.append(want - chunk.size(), '\0');
        emit captured(chunk);
    }

    QByteArray out;
    const qsizetype want = 24000 * 2 * m_chunkMs / 1000;
    while (out.size() < want && !m_queue.empty()) {
        Queued &front = m_queue.front();
        const qsizetype take = qMin(want - out.size(), front.pcm.size() - front.offset);
        out.append(front.pcm.constData() + front.offset, take);
        front.offset += take;
        if (front.offset == front.pcm.size()) {
            const quint64 id = front.id;
            m_queue.pop_front();
            emit bufferDone(id);
            if (!m_open) {
                return;
            }
        }
    }
    out.append(want - out.size(), '\0');
    m_played += out;
    emit rendered(out);
}
