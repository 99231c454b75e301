#pragma once

#include "voice/echocanceller.h"
#include "voice/resampler.h"

#include <QCoroTask>
#include <QMutex>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>
#include <vector>

class AudioPort;
class Clock;
class Sleeper;

// The sound path of a call: captures the microphone through the echo canceller into the
// wire format (24 kHz mono 16-bit) and plays the reply audio the server streams down, with
// a start-up cushion against underruns. The call's own logic (the gate, the socket) sits
// above it; the devices sit below, behind AudioPort.
class CallAudio : public QObject
{
    Q_OBJECT

public:
    static constexpr double initialCushion = 0.36;

    // Tests decide when time passes through the sleeper and the clock; both outlive it.
    CallAudio(AudioPort *port, Sleeper &sleeper, const Clock &clock, QObject *parent = nullptr);
    ~CallAudio() override;

    // Opens the devices and builds the capture path; recovering is true when rebuilding after
    // a stall (counters and the cushion are kept). False with error() set.
    bool start(bool recovering);
    // Schedules one chunk of wire audio for playback.
    void play(const QByteArray &wire);
    // Drops all scheduled playback at once.
    void flush();
    // Restarts stalled devices; false when the microphone has been silent too long.
    bool recoverIfNeeded();
    // Closes the devices.
    void halt();

    // The meter loop of a running call: publishes the level, keeps the devices alive and
    // lets the call refresh its phase; emits stalled() and ends when recovery gives up.
    QCoro::Task<> watchLevel(std::chrono::milliseconds interval = std::chrono::milliseconds(100));
    // Ends the meter loop and halts.
    void teardown();

    QString error() const { return m_error; }
    // Reply audio is queued or playing.
    bool busy() const;
    int queued() const;
    int underruns() const;
    double cushion() const;
    double level() const;
    // Uptime of the last captured chunk.
    double lastCapture() const;

    void setOpenAI(bool openai);
    // Reply volume as a gain, 0 to 3.
    void setVolume(double gain);
    double volume() const;
    void setDevices(const QByteArray &input, const QByteArray &output);

signals:
    // One captured chunk in the wire format (the call's push).
    void chunk(const QByteArray &pcm);
    // A line for the call's trace under "AUDIO".
    void traced(const QString &text);
    // watchLevel rounds.
    void meter(double level);
    void stalled();

private:
    struct Held {
        QByteArray pcm;
        quint64 epoch;
    };

    void capture(const QByteArray &data);
    void schedule(const QByteArray &pcm); // under m_lock
    void bufferDone(quint64 id);
    QCoro::Task<> release(quint64 epoch, double delay);
    QByteArray shape(const QByteArray &wire);

    QPointer<AudioPort> m_port;
    Sleeper *m_sleeper;
    const Clock &m_clock;
    QString m_error;
    QByteArray m_inputId;
    QByteArray m_outputId;

    // Capture path (rebuilt by start).
    std::unique_ptr<Resampler> m_resampler;
    std::unique_ptr<EchoCanceller> m_canceller;
    std::vector<float> m_mono;

    mutable QMutex m_lock; // the state below
    bool m_openai = false;
    bool m_playing = false;
    bool m_releasing = false; // a start-up delay is running
    int m_queued = 0;
    quint64 m_epoch = 0;
    quint64 m_serial = 0;
    std::vector<Held> m_held;
    std::optional<double> m_lastEnd; // uptime the last buffer finished
    double m_projectedEnd = 0;
    double m_cushion = initialCushion;
    int m_underruns = 0;
    double m_volume = 1;
    double m_smoothedGain = 0;
    double m_level = 0;
    double m_lastCapture = 0;
    double m_lastRestart = -1e9;
    quint64 m_watch = 0; // generation of the running meter loop; 0 for none
    quint64 m_watches = 0;
    QList<QMetaObject::Connection> m_connections;
};
