#pragma once

#include "chat/model/chatscope.h"
#include "chat/voice/voicespeech.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <optional>

class Sleeper;
class VoiceOutput;

// The one player of voice messages for the whole app: starting one message stops another.
// The agent's speech is fetched part by part while the server still makes it, and playing
// starts with the first part; when parts will not play the whole file is played instead.
class Api;

class VoicePlayer : public QObject
{
    Q_OBJECT
    // idle, loading, playing, paused or failed.
    Q_PROPERTY(Phase phase READ phase NOTIFY phaseChanged)
    // The seq of the message playing (0 when none, or when an attachment plays).
    Q_PROPERTY(qint64 active READ active NOTIFY activeChanged)
    // The file id of the attachment playing; "" when none.
    Q_PROPERTY(QString activeFile READ activeFile NOTIFY activeChanged)
    // Playback speed: 1.0, 1.5 or 2.0.
    Q_PROPERTY(double rate READ rate NOTIFY rateChanged)
    // Seconds played and seconds known so far, updated four times a second.
    Q_PROPERTY(double elapsed READ elapsed NOTIFY progressChanged)
    Q_PROPERTY(double total READ total NOTIFY progressChanged)

public:
    enum class Phase { Idle, Loading, Playing, Paused, Failed };
    Q_ENUM(Phase)

    struct Dependencies {
        VoiceOutput *output = nullptr;
        Sleeper *sleeper = nullptr;
        std::function<double()> clock; // monotonic seconds
        QString cache;                 // folder for downloaded voice
    };

    // Fetches through api, which must outlive it.
    VoicePlayer(Api &api, Dependencies deps, QObject *parent = nullptr);
    ~VoicePlayer() override;

    Phase phase() const { return m_phase; }
    qint64 active() const { return m_seq; }
    QString activeFile() const { return m_fileID; }
    double rate() const { return m_rate; }
    double elapsed() const;
    double total() const;
    // Parts fetched so far, in order (for the screen and tests).
    int partsLanded() const { return int(m_files.size()); }

    // The voice of message seq in scope.
    Q_INVOKABLE void play(qint64 seq, const ChatScope &scope);
    // An audio attachment (".ogg", ".m4a").
    Q_INVOKABLE void playAttachment(const QString &fileID);
    Q_INVOKABLE void pause();
    Q_INVOKABLE void resume();
    Q_INVOKABLE void stop();
    Q_INVOKABLE void seek(double seconds);
    Q_INVOKABLE void cycleRate();
    // A recording starts: playback waits, and goes on after it when it was playing.
    void holdForRecording();
    void resumeAfterRecording();

    // Whether a file's bytes are an Ogg stream (by its "OggS" header).
    static bool isOgg(const QByteArray &head);
    // The extension a downloaded voice file gets, from its first bytes.
    static QString extensionOf(const QByteArray &head);

signals:
    void phaseChanged();
    void activeChanged();
    void rateChanged();
    void progressChanged();
    // A part of the speech arrived; the first one starts playing.
    void partLanded(int index);

private:
    QCoro::Task<> loadSpeech(int generation);
    QCoro::Task<> loadFile(QString path, int generation);
    // Asks until the server answers, waiting longer each time; nothing once patience ran out
    // or a newer playback took over.
    QCoro::Task<std::optional<QByteArray>> fetchPatiently(QString path, bool post, int generation);
    QString keep(const QString &name, const QByteArray &bytes);
    void begin();
    void playPart(int index, double offset);
    void playWhole(double offset);
    void onEnded();
    void onFailed(const QString &why);
    void setPhase(Phase phase);

    Api &m_api;
    bool current(int generation) const { return generation == m_generation; }

    Dependencies m_deps;
    QTimer m_ticker;
    Phase m_phase = Phase::Idle;
    qint64 m_seq = 0;
    ChatScope m_scope;
    QString m_fileID;
    double m_rate = 1.0;
    int m_generation = 0;
    QList<double> m_seconds; // lengths of the parts, as the server gave them
    QList<QString> m_files;  // landed parts, by index
    int m_total = 0;         // parts the speech will have (0: not known)
    bool m_speechDone = false;
    int m_partIndex = -1;    // the part playing; -1 none
    QString m_whole;         // the whole file, once fetched
    bool m_partsBroken = false;
    bool m_playingWhole = false;
    bool m_waitingForPart = false;
    bool m_held = false;
    bool m_resumeAfterHold = false;
};
