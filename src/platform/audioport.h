#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

// The sound devices of a call, as a port: capture in the input's own format, playback of the
// call's 24 kHz mono 16-bit audio out of a queue the port paces itself.
class AudioPort : public QObject
{
    Q_OBJECT

public:
    struct Device {
        QByteArray id;
        QString name;
    };
    struct CaptureFormat {
        int sampleRate = 0;
        int channels = 0;
        bool floatSamples = false; // else signed 16-bit; always interleaved
    };

    using QObject::QObject;

    virtual QList<Device> inputs() const = 0;
    virtual QList<Device> outputs() const = 0;
    // Opens both devices; an empty id means the sound server's default. False with error().
    virtual bool open(const QByteArray &inputId, const QByteArray &outputId) = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    virtual QString error() const = 0;
    virtual CaptureFormat captureFormat() const = 0;
    // The microphone's name, for the screen.
    virtual QString inputName() const = 0;

    // Queues 24 kHz mono 16-bit audio; bufferDone(id) once all of it went to the device.
    virtual void enqueue(const QByteArray &pcm, quint64 id) = 0;
    // Drops everything queued at once; no bufferDone follows for it.
    virtual void dropQueued() = 0;
    // How long audio handed to the device takes to be heard.
    virtual int outputLatencyMs() const = 0;

signals:
    // Captured audio in captureFormat().
    void captured(const QByteArray &data);
    // What was just handed to the speaker (silence included): the echo canceller's reference.
    void rendered(const QByteArray &pcm);
    void bufferDone(quint64 id);
    // A device came or went (a headset plugged in or pulled out).
    void devicesChanged();
};
