#pragma once

#include "platform/audioport.h"

#include <QAudioDevice>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <memory>

class QAudioSink;
class QAudioSource;
class QIODevice;

// The sound devices through QtMultimedia (PulseAudio or PipeWire). Qt 6.4 pitfalls worked
// around: the default input can be the wrong device, so it is chosen by id from the sound
// server's default source; a push sink fed only bytesFree() can stall for good, so fixed
// 10 ms chunks go out from a timer; stop() drains, so dropping is done in our own queue.
class QtAudioPort : public AudioPort
{
    Q_OBJECT

public:
    explicit QtAudioPort(QObject *parent = nullptr);
    ~QtAudioPort() override;

    QList<Device> inputs() const override;
    QList<Device> outputs() const override;
    bool open(const QByteArray &inputId, const QByteArray &outputId) override;
    void close() override;
    bool isOpen() const override;
    QString error() const override { return m_error; }
    CaptureFormat captureFormat() const override { return m_format; }
    QString inputName() const override { return m_inputDevice.description(); }
    void enqueue(const QByteArray &pcm, quint64 id) override;
    void dropQueued() override;
    int outputLatencyMs() const override;
    // How many whole chunks one tick writes: enough to keep `target` bytes ahead of what was
    // heard, at least one while the sink has room for one, none when it has not (a chunk
    // written into less room is cut, and the echo canceller would hear what never played).
    static int chunksToFeed(qint64 ahead, qint64 target, qint64 room, qint64 chunk);
    // Opens only the microphone or only the speaker (the other side is a file); both by default.
    void useOnly(bool capture, bool playback)
    {
        m_capture = capture;
        m_playback = playback;
    }

private:
    struct Queued {
        QByteArray pcm;
        quint64 id;
        qsizetype offset = 0;
    };

    void readCaptured();
    QList<QByteArray> deviceIds() const;
    void checkDevices();
    void feed();
    QAudioDevice pick(bool input, const QByteArray &id) const;

    std::unique_ptr<QAudioSource> m_source;
    std::unique_ptr<QAudioSink> m_sink;
    QPointer<QIODevice> m_in;
    QPointer<QIODevice> m_out;
    QAudioDevice m_inputDevice;
    CaptureFormat m_format;
    QString m_error;
    std::deque<Queued> m_queue;
    QTimer m_feeder;
    QList<QByteArray> m_devices; // ids last seen, inputs then outputs
    QTimer m_devicePoll;
    bool m_capture = true;
    bool m_playback = true;
    qint64 m_written = 0; // bytes handed to the sink since open
};
