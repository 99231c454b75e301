#pragma once

#include "platform/audioport.h"
#include "platform/wavfile.h"

#include <QTimer>

#include <deque>

// Sound devices made of memory: the microphone plays a WAV file (then silence), the speaker
// keeps what it was given. Time moves by tick(), from a test or, in real time, a timer.
class FileAudioPort : public AudioPort
{
    Q_OBJECT

public:
    explicit FileAudioPort(WavFile input = {}, QObject *parent = nullptr);

    QList<Device> inputs() const override;
    QList<Device> outputs() const override;
    bool open(const QByteArray &inputId, const QByteArray &outputId) override;
    void close() override;
    bool isOpen() const override { return m_open; }
    QString error() const override { return m_error; }
    CaptureFormat captureFormat() const override;
    QString inputName() const override;
    void enqueue(const QByteArray &pcm, quint64 id) override;
    void dropQueued() override;
    int outputLatencyMs() const override { return m_chunkMs; }

    // One chunk of time: the next captured chunk and one chunk played.
    void tick();
    // Ticks from a timer every chunk while open (the terminal's --input/--output).
    void runInRealTime(bool on);

    // Everything the speaker was given, silence included (24 kHz mono 16-bit).
    const QByteArray &played() const { return m_played; }
    qsizetype queuedBytes() const;

    int chunkMs() const { return m_chunkMs; }
    void setChunkMs(int ms) { m_chunkMs = ms; }
    // Tests: the devices listed, the next open fails, the microphone stops delivering.
    QList<Device> inputList{{"file", QStringLiteral("File")}};
    QList<Device> outputList{{"memory", QStringLiteral("Memory")}};
    bool failNextOpen = false;
    bool captureStalled = false;
    int opens = 0;
    QByteArray openedInput;
    QByteArray openedOutput;

private:
    struct Queued {
        QByteArray pcm;
        quint64 id;
        qsizetype offset = 0;
    };

    WavFile m_input;
    qsizetype m_inputAt = 0;
    bool m_open = false;
    QString m_error;
    int m_chunkMs = 20;
    std::deque<Queued> m_queue;
    QByteArray m_played;
    QTimer m_timer;
    bool m_realTime = false;
};
