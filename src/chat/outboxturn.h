#pragma once

#include "chat/outboxfile.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

// One turn the user sent that the server has not confirmed yet.
struct OutboxTurn
{
    QString id; // also the client request id the server sees
    QString text;
    bool fromVoice = false;  // the text came from dictation
    bool voiceReply = false; // the user wants the answer spoken
    QString replyID, replyText, replyRole; // the message answered; empty when none
    double created = 0;                   // seconds since 1970
    QList<OutboxFile> files;
    QString error; // the last delivery error; empty when none
    std::optional<QJsonObject> geo;
    std::optional<OutboxFile> voiceNote;
    std::optional<float> voicePeak;
    std::optional<qint64> afterSeq; // seq of the last message when the turn was made
    std::optional<QString> typed;   // typed beside a voice note

    // Files or a voice note: bytes wait in the outbox folder.
    bool carriesBytes() const;

    // Lenient: a missing or null key takes its default. A damaged file, voice note or
    // location is dropped (and logged) so the text survives; throws DecodeError when the
    // value is not an object or one of the turn's own keys has the wrong type.
    static OutboxTurn fromJson(const QJsonValue &value);
    // Every key; optionals only when present.
    QJsonObject toJson() const;

    bool operator==(const OutboxTurn &) const = default;
};
