#pragma once

#include "platform/ports.h"
#include <QObject>
#include <QPointer>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>

#include "chatcontroller.h"
class Api;
class VoicePlayer;

// The screens' hands on the app's one voice player: which message plays, its state, time
// and rate. Only the message whose key matches shows live progress.
class VoiceController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the app")
    // What plays or is being prepared: a VoiceSource key ("seq:N", "file:<id>"); "" when none.
    Q_PROPERTY(QString key READ key NOTIFY stateChanged)
    // The conversation whose speech plays (seqs repeat across conversations); null for files.
    Q_PROPERTY(ChatController *chat READ chat NOTIFY stateChanged)
    // Idle, Preparing (parts still being made or fetched), Playing, Paused or Failed.
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    // Seconds played, and seconds known so far (0 for a file until it is understood).
    Q_PROPERTY(double elapsed READ elapsed NOTIFY progressChanged)
    Q_PROPERTY(double total READ total NOTIFY progressChanged)
    // "0:05 / 0:12", or "0:05" while the length is not known.
    Q_PROPERTY(QString timeText READ timeText NOTIFY progressChanged)
    // The playback speed and its label ("1×", "1.5×", "2×").
    Q_PROPERTY(double rate READ rate NOTIFY rateChanged)
    Q_PROPERTY(QString rateText READ rateText NOTIFY rateChanged)

public:
    enum State { Idle, Preparing, Playing, Paused, Failed };
    Q_ENUM(State)

    // Makes the player on first use (the sound system is opened only when someone listens).
    using Make = std::function<VoicePlayer *(QObject *parent)>;
    explicit VoiceController(Make make, QObject *parent = nullptr);

    // The platform's player: QtMultimedia output, real time, the voice cache folder.
    static Make platform(Api &api, const Ports &ports);

    QString key() const;
    ChatController *chat() const;
    State state() const;
    double elapsed() const;
    double total() const;
    QString timeText() const;
    double rate() const;
    QString rateText() const;

    // Plays a source (a VoiceSource map) of a message in chat's conversation; the source that
    // plays pauses, a paused one goes on, a failed one is tried again.
    Q_INVOKABLE void toggle(const QVariantMap &source, ChatController *chat);
    Q_INVOKABLE void seek(double seconds);
    // Moves by delta seconds from where it is, within the known length.
    Q_INVOKABLE void skip(double delta);
    Q_INVOKABLE void cycleRate();
    Q_INVOKABLE void stop();

    // "m:ss", or "h:mm:ss" from an hour on.
    static QString clock(double seconds);
    VoicePlayer *player();
    // The player if one was made, without making one.
    VoicePlayer *existingPlayer() const { return m_player; }
    // Another way to make the player (tests); the current one, if any, is dropped.
    void use(Make make);

signals:
    void stateChanged();
    void progressChanged();
    void rateChanged();

private:
    Make m_make;
    VoicePlayer *m_player = nullptr;
    QPointer<ChatController> m_chat;
};
