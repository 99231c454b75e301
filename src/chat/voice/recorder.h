#pragma once

#include "chat/voice/voiceplayer.h"
#include "platform/audioport.h"

#include <QCoroTask>
#include <QFile>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class Clock;
class Sleeper;

// Records a voice note from the microphone into "note-<unique>.wav" in a recordings folder:
// 16-bit mono at the microphone's own rate. Voice playback waits while it records.
class Recorder : public QObject
{
    Q_OBJECT
    // A recording is under way.
    Q_PROPERTY(bool recording READ recording NOTIFY recordingChanged)
    // The loudness of the last captured moment, 0–1, for a level meter.
    Q_PROPERTY(double level READ level NOTIFY levelChanged)
    // Seconds recorded so far.
    Q_PROPERTY(double seconds READ seconds NOTIFY levelChanged)
    // Why the last recording could not start or be kept; "" when it could.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)

public:
    struct Dependencies {
        AudioPort *port = nullptr;
        Sleeper &sleeper;
        Clock &clock; // names the notes
        QPointer<VoicePlayer> player; // held while recording; may be null
        QString folder;               // where notes are written; AppData "recordings" when empty
    };
    // A finished recording.
    struct Take {
        QString path;
        float peak = 0; // the loudest sample, 0–1
        double seconds = 0;
    };

    explicit Recorder(Dependencies deps, QObject *parent = nullptr);
    ~Recorder() override;

    bool recording() const { return m_file != nullptr; }
    double level() const { return m_level; }
    double seconds() const;
    // Why the last start or stop failed, in today's language; "" when it did not.
    QString error() const;

    // Opens the microphone and a fresh file, then pauses 0.08 s so the first words are not
    // clipped by a device still waking. False (and error) when either cannot be had.
    QCoro::Task<bool> start();
    // The file and its peak; nothing when no recording ran or the file could not be finished.
    std::optional<Take> stop();
    // Ends the recording and deletes its file.
    void cancel();
    // The player to hold from the next start on; null for none.
    void setPlayer(VoicePlayer *player) { m_deps.player = player; }

signals:
    void recordingChanged();
    void levelChanged();
    void errorChanged();

private:
    void onCaptured(const QByteArray &data);
    void finish();
    // What went wrong is kept as a kind (plus the device's own words), so the text follows
    // the language at the time it is shown.
    enum class Failure { None, Start, Save };
    void setError(Failure failure, const QString &detail = {});

    Dependencies m_deps;
    std::unique_ptr<QFile> m_file;
    AudioPort::CaptureFormat m_format;
    qint64 m_frames = 0;
    float m_peak = 0;
    double m_level = 0;
    bool m_writeFailed = false;
    Failure m_failure = Failure::None;
    QString m_detail;
    QMetaObject::Connection m_capture;
};
