#pragma once

#include "foreign.h"

#include <QObject>
#include <QUrl>
#include <QVariantList>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

#include "messagerows.h"
#include "chat/store/chatports.h"
#include "composerfiles.h"

class ChatStores;
class QMimeData;
class AudioPort;
class VoiceController;
class Recorder;

// The chat screen's hands on one conversation: what QML may do to the store (send, retry,
// attach, reply), and the rows with their rendered text.
class ChatController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the app")
    // The conversation itself: composer, unread, banner, sendError...
    Q_PROPERTY(ChatStore *store READ store CONSTANT)
    // The rows with their HTML and plain text.
    Q_PROPERTY(MessageRows *rows READ rows CONSTANT)
    // Turns in the outbox with their state ("sending", "waiting", "failed", "working") and
    // upload progress, in the order they were written.
    Q_PROPERTY(QVariantList pending READ pending NOTIFY pendingChanged)
    // A voice note is being recorded.
    Q_PROPERTY(bool recording READ recording NOTIFY recordingChanged)
    // Its loudness now, 0–1, for the level meter.
    Q_PROPERTY(double recordLevel READ recordLevel NOTIFY recordLevelChanged)
    // Why the microphone could not be had; "" when it could.
    Q_PROPERTY(QString recordError READ recordError NOTIFY recordingChanged)
    // The server is turning a recording into words for the composer.
    Q_PROPERTY(bool transcribing READ transcribing NOTIFY recordingChanged)
    // Files on their way into the composer (videos being shrunk).
    Q_PROPERTY(ComposerFiles *files READ files CONSTANT)

public:
    ChatController(ChatStores &stores, ChatScope scope, QString account, QString role,
                   QObject *parent = nullptr);
    ~ChatController() override;

    ChatStore *store() const { return m_store; }
    MessageRows *rows() const { return m_rows; }
    QString account() const { return m_account; }
    QVariantList pending() const;
    ComposerFiles *files() const { return m_files; }

    bool recording() const;
    double recordLevel() const;
    QString recordError() const;
    bool transcribing() const { return m_transcribing; }

    void open();
    void refresh();

    // Sends the composer's text (Enter); the composer empties when the turn is on disk.
    Q_INVOKABLE void send(const QString &text);
    Q_INVOKABLE void retry(const QString &turnID);
    // Takes a failed turn back into the composer: its text and files are kept there.
    Q_INVOKABLE void discard(const QString &turnID);
    Q_INVOKABLE void replyTo(qint64 seq);
    Q_INVOKABLE void clearReply();
    // Local files (picker, drop); returns how many were taken (a video counts once it shrinks).
    Q_INVOKABLE int attachUrls(const QList<QUrl> &urls);
    // The clipboard's image or files; false when it holds neither (text pastes as usual).
    Q_INVOKABLE bool paste();
    Q_INVOKABLE void removeAttachment(const QString &id);
    // A composer attachment's bytes as a local URL, for its preview; empty when not an image.
    Q_INVOKABLE QUrl preview(const QString &id) const;
    Q_INVOKABLE void copy(const QString &text) const;
    // Asks the server to stop task `number` (what "/stop N" in the composer does).
    Q_INVOKABLE void stop(int number);
    Q_INVOKABLE void markRead();
    // Where recordings come from (tests); by default the sound server's microphone, made at
    // the first recording.
    void useMicrophone(AudioPort *port) { m_microphone = port; }
    // The app's voice player, held while a note is recorded.
    void setVoice(VoiceController *voice) { m_voice = voice; }
    // A voice note: recorded from the default microphone, sent when finished, gone when cancelled.
    Q_INVOKABLE void startRecording();
    Q_INVOKABLE void finishRecording();
    Q_INVOKABLE void cancelRecording();
    // Stops the recording and puts the words the server heard after what the composer holds;
    // nothing is sent.
    Q_INVOKABLE void finishRecordingAsText();

    // What paste() does with given data: files, an image as "photo.jpg", a copied file's bytes.
    bool attachMime(const QMimeData *data);

signals:
    void pendingChanged();
    void recordingChanged();
    void recordLevelChanged();

private:
    const ChatPorts m_ports;
    QString m_account;
    ChatStore *m_store;
    MessageRows *m_rows;
    // Made at the first recording, so that opening the chat never touches the sound devices.
    AudioPort *m_microphone = nullptr;
    Recorder *m_recorder = nullptr;
    bool m_transcribing = false;
    QString m_transcribeError;
    VoiceController *m_voice = nullptr; // the app's, living as long as the app
    ComposerFiles *m_files;
};
