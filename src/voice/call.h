#pragma once

#include "chat/model/chatscope.h"
#include "voice/callbargegate.h"
#include "voice/calltypes.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QVariantList>

#include <memory>
#include <optional>

class AudioPort;
class CallAudio;
class CallLink;
class Clock;
class Sleeper;
class VoiceTuning;

// One live, full-duplex voice conversation with the agent: the socket, the microphone going
// up through the barge-in gate, the reply audio coming down, and what the call screen shows.
// Main thread only.
class Call : public QObject
{
    Q_OBJECT
    // What the call is doing; the screen switches on it.
    Q_PROPERTY(Phase phase READ phase NOTIFY phaseChanged)
    // The text shown when the phase is Failed.
    Q_PROPERTY(QString failure READ failure NOTIFY phaseChanged)
    // The user's current utterance and the agent's current reply.
    Q_PROPERTY(QString heard READ heard NOTIFY transcriptChanged)
    Q_PROPERTY(QString said READ said NOTIFY transcriptChanged)
    // Transcript lines: maps with id, role, text.
    Q_PROPERTY(QVariantList lines READ lineList NOTIFY transcriptChanged)
    // Background agent work and quick web answers started from the call.
    Q_PROPERTY(QVariantList steps READ stepList NOTIFY workChanged)
    Q_PROPERTY(QVariantList fastAnswers READ fastAnswerList NOTIFY workChanged)
    // A web search is running.
    Q_PROPERTY(bool searchingWeb READ searchingWeb NOTIFY workChanged)
    // The call's log: maps with id, time, tag, text.
    Q_PROPERTY(QVariantList trace READ traceList NOTIFY traceChanged)
    // Microphone level for the meter, 0 to 1.
    Q_PROPERTY(double level READ level NOTIFY meterChanged)
    // The gate's figures in dBFS: last chunk's level, whether it was held back, the bar.
    Q_PROPERTY(double microphoneDB READ microphoneDB NOTIFY meterChanged)
    Q_PROPERTY(bool microphoneSuppressed READ microphoneSuppressed NOTIFY meterChanged)
    Q_PROPERTY(double effectiveThresholdDB READ effectiveThresholdDB NOTIFY meterChanged)
    // While set the microphone sends silence.
    Q_PROPERTY(bool muted READ muted WRITE setMuted NOTIFY settingsChanged)
    // Reply volume in percent, as the server set it.
    Q_PROPERTY(int speaker READ speaker NOTIFY settingsChanged)
    // Chosen preferences, the voices offered and the voice the server confirmed.
    Q_PROPERTY(QString voice READ voice NOTIFY settingsChanged)
    Q_PROPERTY(QString language READ language NOTIFY settingsChanged)
    Q_PROPERTY(QString provider READ provider NOTIFY settingsChanged)
    Q_PROPERTY(QStringList voiceNames READ voiceNames NOTIFY settingsChanged)
    Q_PROPERTY(QString activeVoice READ activeVoice NOTIFY settingsChanged)
    // Whether calls are possible for this account, and why not.
    Q_PROPERTY(bool available READ available NOTIFY availabilityChanged)
    Q_PROPERTY(bool availabilityChecked READ availabilityChecked NOTIFY availabilityChanged)
    Q_PROPERTY(QString unavailableReason READ unavailableReason NOTIFY availabilityChanged)
    // Remembered items and the memory job.
    Q_PROPERTY(int shortMemory READ shortMemory NOTIFY memoryChanged)
    Q_PROPERTY(int longMemory READ longMemory NOTIFY memoryChanged)
    Q_PROPERTY(QString memoryStatus READ memoryStatus NOTIFY memoryChanged)
    Q_PROPERTY(bool memoryBusy READ memoryBusy NOTIFY memoryChanged)
    // Where the sound goes ("speaker", "receiver", "bluetooth"), the device's name or why
    // the choice cannot be made, and the microphone's name.
    Q_PROPERTY(QString route READ route NOTIFY routeChanged)
    Q_PROPERTY(QString routeDetail READ routeDetail NOTIFY routeChanged)
    Q_PROPERTY(QString inputName READ inputName NOTIFY routeChanged)
    // A one-line message for the screen.
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)

public:
    enum class Phase {
        Idle,
        Failed,
        Connecting,
        Listening,
        Hearing,
        Thinking,
        Speaking,
        Reconnecting
    };
    Q_ENUM(Phase)

    // The call owns its audio; link, port, sleeper, clock and tuning must outlive it.
    Call(ChatScope scope, CallLink *link, AudioPort *port, Sleeper &sleeper, const Clock &clock,
         VoiceTuning &tuning, QObject *parent = nullptr);
    ~Call() override;

    static bool isActive(Phase phase);
    bool isActive() const { return isActive(m_phase); }

    QCoro::Task<> start();
    void hangUp();
    // Asks the server whether calls are possible for the signed-in account.
    QCoro::Task<> checkAvailability(QString account);
    QCoro::Task<bool> loadJournal();
    // Saves the given preferences (empty ones are left out).
    QCoro::Task<> choose(QString voice, QString language, QString provider);
    QCoro::Task<> consolidateMemory();
    // The user picks "speaker", "receiver" or "bluetooth". A desktop has no earpiece: the
    // receiver is the default output too; Bluetooth is the first headset the sound server
    // lists (its name says "bluez"), for both directions.
    void selectRoute(const QString &route);
    // The devices the user picked (empty: the sound server's default). A Bluetooth output
    // makes the route "bluetooth", any other "speaker"; a running call moves to them at once.
    void chooseDevices(const QByteArray &input, const QByteArray &output);
    QByteArray chosenInput() const { return m_chosenInput; }
    QByteArray chosenOutput() const { return m_chosenOutput; }
    // The user sets the reply volume in percent, as the server's "volume" frame does.
    void setSpeaker(int percent);

    QString providerLabel() const;
    QString languageLabel() const;
    // The summary sent as "gate_stats".
    QJsonObject gateStats() const;

    Phase phase() const { return m_phase; }
    QString failure() const { return m_failure; }
    QString failureCode() const { return m_failureCode; }
    QString heard() const { return m_heard; }
    QString said() const { return m_said; }
    const QList<CallTypes::Line> &lines() const { return m_lines; }
    const QList<CallTypes::Step> &steps() const { return m_steps; }
    const QList<CallTypes::FastAnswer> &fastAnswers() const { return m_fastAnswers; }
    const QList<CallTypes::Event> &events() const { return m_trace; }
    QVariantList lineList() const;
    QVariantList stepList() const;
    QVariantList fastAnswerList() const;
    QVariantList traceList() const;
    bool searchingWeb() const { return !m_webSearches.isEmpty(); }
    double level() const { return m_level; }
    double microphoneDB() const { return m_microphoneDB; }
    bool microphoneSuppressed() const { return m_microphoneSuppressed; }
    double effectiveThresholdDB() const { return m_effectiveThresholdDB; }
    const CallBargeGate &bargeGate() const { return m_gate; }
    bool muted() const { return m_muted; }
    void setMuted(bool muted);
    int speaker() const { return m_speaker; }
    QString voice() const { return m_voice; }
    QString language() const { return m_language; }
    QString provider() const { return m_provider; }
    QStringList voiceNames() const { return m_voiceNames; }
    QString activeVoice() const { return m_activeVoice; }
    bool available() const { return m_available; }
    bool availabilityChecked() const { return m_availabilityChecked; }
    QString unavailableReason() const { return m_unavailableReason; }
    int shortMemory() const { return m_shortMemory; }
    int longMemory() const { return m_longMemory; }
    QString memoryStatus() const { return m_memoryStatus; }
    bool memoryBusy() const { return m_memoryBusy; }
    QString notice() const { return m_notice; }
    QString route() const { return m_route; }
    QString routeDetail() const { return m_routeDetail; }
    QString inputName() const { return m_inputName; }
    CallAudio &audio() { return *m_audio; }
    int attempt() const { return m_attempt; }
    int pendingChunks() const { return int(m_pending.size()); }
    // The socket generation; each new socket bumps it.
    quint64 wireGeneration() const { return m_wireGeneration; }

    // One captured chunk (from the audio); public for the fake devices of tests.
    void push(const QByteArray &data);
    // Applies mute and the gate; returns what to send.
    QByteArray processMicrophone(bool playing, double now, const QByteArray &data);

signals:
    void phaseChanged();
    void transcriptChanged();
    void workChanged();
    void traceChanged();
    void meterChanged();
    void settingsChanged();
    void availabilityChanged();
    void memoryChanged();
    void noticeChanged();
    void routeChanged();

private:
    QCoro::Task<> connectWire();
    void received(const QByteArray &text);
    void absorb(const QJsonObject &frame);
    void note(const QJsonObject &frame);
    void noteFast(const QJsonObject &frame);
    void traceNote(const QString &tag, const QString &id, const QString &text);
    void streamLine(const QString &role, const QString &text, bool replace);
    void closeLine(const QString &role);
    QCoro::Task<bool> send(QJsonObject frame);
    QCoro::Task<> sendStats();
    void drainMicrophone();
    QCoro::Task<> sendPending(quint64 generation);
    void refreshPhase();
    QCoro::Task<> reconnect();
    void stopWire();
    void teardownAudio();
    void fail(const QString &message, const QString &code = {});
    void setPhase(Phase phase);
    void setNotice(const QString &text);
    void resetAccount();
    void applyRoute(bool automatic);
    void readRoute();
    // The sound server's devices changed (a headset came or went) during or between calls.
    QCoro::Task<> devicesChanged();
    QJsonObject scopeFields() const;

    ChatScope m_scope;
    QPointer<CallLink> m_link;
    Sleeper *m_sleeper;
    const Clock &m_clock;
    VoiceTuning *m_tuning;
    std::unique_ptr<CallAudio> m_audio;
    CallBargeGate m_gate;

    Phase m_phase = Phase::Idle;
    QString m_failure;
    QString m_failureCode;
    QString m_heard;
    QString m_said;
    QList<CallTypes::Line> m_lines;
    QList<CallTypes::Step> m_steps;
    QList<CallTypes::FastAnswer> m_fastAnswers;
    QList<CallTypes::Event> m_trace;
    QSet<QString> m_webSearches;
    double m_level = 0;
    double m_microphoneDB = -80;
    bool m_microphoneSuppressed = false;
    double m_effectiveThresholdDB = -33;
    bool m_muted = false;
    int m_speaker = 100;
    QString m_voice = QStringLiteral("Orus");
    QString m_language = QStringLiteral("auto");
    QString m_provider = QStringLiteral("openai");
    QStringList m_voiceNames;
    QString m_activeVoice;
    bool m_available = false;
    bool m_availabilityChecked = false;
    QString m_unavailableReason;
    int m_shortMemory = 0;
    int m_longMemory = 0;
    QString m_memoryStatus;
    bool m_memoryBusy = false;
    QString m_notice;
    QPointer<AudioPort> m_port;
    QString m_route = QStringLiteral("speaker");
    QString m_routeDetail;
    QString m_inputName;
    bool m_routePicked = false;
    QByteArray m_chosenInput;
    QByteArray m_chosenOutput;
    bool m_devicesSettling = false; // a device change waits for its siblings
    QString m_account;

    QString m_userLineID;
    QString m_botLineID;
    int m_lineSerial = 0;
    bool m_ready = false;
    QString m_resume;
    bool m_ending = false;
    int m_attempt = 0;
    bool m_waitingToReconnect = false;
    QList<QByteArray> m_pending;
    quint64 m_senderGeneration = 0; // generation whose sender runs; 0 for none
    quint64 m_wireGeneration = 0;
    bool m_inputActive = false;
    bool m_awaitingReply = false;
};
