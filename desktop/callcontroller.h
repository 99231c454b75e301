#pragma once

#include "platform/ports.h"
#include "chat/model/chatscope.h"
#include "voice/call.h"

#include <QObject>
#include <QVariantList>
#include <QtQml/qqml.h>

#include <memory>

class Api;
class AudioPort;
class CallLink;
class Sleeper;
class VoiceTuning;

// The call as QML knows it: its published fields are read straight from it.
struct CallForeign {
    Q_GADGET
    QML_FOREIGN(Call)
    QML_NAMED_ELEMENT(Call)
    QML_UNCREATABLE("owned by the call screen's controller")
};

// The call screen's hands on one live call: it owns the call, its link to the server and its
// sound devices, and turns what the call publishes into what the screen draws (the phase's
// words, the meter's positions, the device lists).
class CallController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the app")
    // The call itself: lines, steps, fast answers, trace, preferences, memory.
    Q_PROPERTY(Call *call READ call CONSTANT)
    // What the call is doing, in words.
    Q_PROPERTY(QString phaseText READ phaseText NOTIFY phaseChanged)
    // A call is under way (connecting to reconnecting): hang-up rather than start.
    Q_PROPERTY(bool active READ active NOTIFY phaseChanged)
    // The last call failed; the call's failure says why.
    Q_PROPERTY(bool failed READ failed NOTIFY phaseChanged)
    // The agent is talking (the screen marks the agent's line).
    Q_PROPERTY(bool speaking READ speaking NOTIFY phaseChanged)
    // Reply volume in percent, 0 to 300 (the server's "volume" frames move it too).
    Q_PROPERTY(int volume READ volume WRITE setVolume NOTIFY volumeChanged)
    // The meter on a -80..0 dBFS scale as 0..1: the last chunk, the bar the gate applies and
    // the learned echo of the agent's voice (-1 while none is known).
    Q_PROPERTY(double meterLevel READ meterLevel NOTIFY meterChanged)
    Q_PROPERTY(double meterThreshold READ meterThreshold NOTIFY meterChanged)
    Q_PROPERTY(double meterEchoFloor READ meterEchoFloor NOTIFY meterChanged)
    // The same figures in words: "-42 dB · bar -33 dB · echo -51 dB".
    Q_PROPERTY(QString meterText READ meterText NOTIFY meterChanged)
    // The user's interruption threshold in dBFS (-50 to -20), kept per account.
    Q_PROPERTY(double threshold READ threshold WRITE setThreshold NOTIFY thresholdChanged)
    // Devices as maps with id and name, the sound server's default first (id "").
    Q_PROPERTY(QVariantList inputs READ inputs NOTIFY devicesChanged)
    Q_PROPERTY(QVariantList outputs READ outputs NOTIFY devicesChanged)
    // The ids picked; "" for the default.
    Q_PROPERTY(QString inputId READ inputId NOTIFY devicesChanged)
    Q_PROPERTY(QString outputId READ outputId NOTIFY devicesChanged)
    // Voice preferences offered: maps with value and label.
    Q_PROPERTY(QVariantList languages READ languages NOTIFY choicesChanged)
    Q_PROPERTY(QVariantList providers READ providers NOTIFY choicesChanged)
    // The chosen provider and language in words.
    Q_PROPERTY(QString providerText READ providerText NOTIFY choicesChanged)
    Q_PROPERTY(QString languageText READ languageText NOTIFY choicesChanged)
    // Preferences are being saved.
    Q_PROPERTY(bool saving READ saving NOTIFY savingChanged)

public:
    // Link and port become the controller's; sleeper, clock and tuning outlive it.
    CallController(ChatScope scope, QString account, std::unique_ptr<CallLink> link,
                   std::unique_ptr<AudioPort> port, Sleeper &sleeper, const Clock &clock,
                   VoiceTuning &tuning, QObject *parent = nullptr);
    ~CallController() override;

    // The app's own: the server through the transport, the sound server's devices.
    static CallController *live(Api &api, ChatScope scope, QString account, const Ports &ports,
                                QObject *parent);

    Call *call() const { return m_call.get(); }
    QString account() const { return m_account; }
    QString phaseText() const;
    bool active() const { return m_call->isActive(); }
    bool failed() const { return m_call->phase() == Call::Phase::Failed; }
    bool speaking() const { return m_call->phase() == Call::Phase::Speaking; }
    int volume() const { return m_call->speaker(); }
    void setVolume(int percent);
    double meterLevel() const;
    double meterThreshold() const;
    double meterEchoFloor() const;
    QString meterText() const;
    double threshold() const;
    void setThreshold(double db);
    QVariantList inputs() const;
    QVariantList outputs() const;
    QString inputId() const;
    QString outputId() const;
    QVariantList languages() const;
    QVariantList providers() const;
    QString providerText() const { return m_call->providerLabel(); }
    QString languageText() const { return m_call->languageLabel(); }
    bool saving() const { return m_saving; }

    // -80..0 dBFS as 0..1.
    static double position(double db);

    // Whether calls are possible for the account, then the journal.
    Q_INVOKABLE void open();
    // Asks again when the last check could not reach the server.
    Q_INVOKABLE void recheck();
    // Starts a call (also the retry after a failure).
    Q_INVOKABLE void start();
    Q_INVOKABLE void hangUp();
    Q_INVOKABLE void toggleMute();
    Q_INVOKABLE void chooseInput(const QString &id);
    Q_INVOKABLE void chooseOutput(const QString &id);
    // Lists the devices again (a headset plugged in).
    Q_INVOKABLE void refreshDevices();
    // Saves one preference; the others stay as they are.
    Q_INVOKABLE void choose(const QString &voice, const QString &language, const QString &provider);
    Q_INVOKABLE void consolidateMemory();

signals:
    void phaseChanged();
    void volumeChanged();
    void meterChanged();
    void thresholdChanged();
    void devicesChanged();
    void choicesChanged();
    void savingChanged();

private:
    QCoro::Task<> saveChoice(QString voice, QString language, QString provider);
    QVariantList deviceList(bool input) const;

    QString m_account;
    std::unique_ptr<CallLink> m_link;
    std::unique_ptr<AudioPort> m_port;
    VoiceTuning *m_tuning;
    std::unique_ptr<Call> m_call;
    QVariantList m_inputs;
    QVariantList m_outputs;
    bool m_saving = false;
};
