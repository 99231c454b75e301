#pragma once

#include "chat/model/chatmessage.h"
#include "chat/store/composerattachment.h"
#include "platform/debouncer.h"

#include <QObject>

#include <optional>

class ChatOutbox;
class Clock;
class ComposerAttachmentsModel;
struct OutboxTurn;
class Sleeper;

// What the user is writing: the text (saved half a second after the last change), the
// message it answers and the attached files, their bytes already in the outbox folder.
class ChatComposer : public QObject
{
    Q_OBJECT

public:
    ChatComposer(ChatOutbox &outbox, Sleeper &sleeper, Clock &clock, QObject *parent = nullptr);
    ~ChatComposer() override;

    QString text() const { return m_text; }
    void setText(const QString &text);
    const std::optional<ChatMessage> &replyTo() const { return m_replyTo; }
    void setReplyTo(const std::optional<ChatMessage> &message);
    const QList<ComposerAttachment> &attachments() const;
    ComposerAttachmentsModel *attachmentsModel() const { return m_model; }
    // The next turn answers task `number`.
    void continueTask(int number, const QString &text);

    // Copies a file into the outbox; false (and failed()) when the device would not take it.
    bool attach(const QString &name, const QString &mime, const QByteArray &data);
    bool attachFile(const QString &path, const QString &name, const QString &mime);
    void removeAttachment(const QString &id);

    // What the outbox kept of the composer.
    void restore();
    // A turn was written: the composer starts empty (a voice note leaves the draft as it is).
    void sent(bool keepDraft = false);
    // A withdrawn turn comes back: whatever was typed meanwhile stays, its text after it.
    void takeBack(const OutboxTurn &turn);
    // Sign-out: nothing stays.
    void clear();
    void save();

signals:
    void changed();
    // The composer should take the focus (a task is being continued).
    void focusRequested();
    void failed(const QString &error);

private:
    ChatOutbox &m_outbox;
    Clock &m_clock;
    QString m_text;
    std::optional<ChatMessage> m_replyTo;
    ComposerAttachmentsModel *m_model;
    Debouncer m_save;
};
