#pragma once

#include "platform/audioport.h"

#include <QPointer>

// One call's devices made of two: the microphone of one port and the speaker of another (the
// terminal's --input with the real speaker, or the real microphone with --output).
class SplitAudioPort : public AudioPort
{
    Q_OBJECT

public:
    // Neither port is owned; both must outlive this one.
    SplitAudioPort(AudioPort *capture, AudioPort *playback, QObject *parent = nullptr);

    QList<Device> inputs() const override { return m_capture->inputs(); }
    QList<Device> outputs() const override { return m_playback->outputs(); }
    bool open(const QByteArray &inputId, const QByteArray &outputId) override;
    void close() override;
    bool isOpen() const override { return m_capture->isOpen() && m_playback->isOpen(); }
    QString error() const override { return m_error; }
    CaptureFormat captureFormat() const override { return m_capture->captureFormat(); }
    QString inputName() const override { return m_capture->inputName(); }
    void enqueue(const QByteArray &pcm, quint64 id) override { m_playback->enqueue(pcm, id); }
    void dropQueued() override { m_playback->dropQueued(); }
    int outputLatencyMs() const override { return m_playback->outputLatencyMs(); }

private:
    QPointer<AudioPort> m_capture;
    QPointer<AudioPort> m_playback;
    QString m_error;
};
