#pragma once

#include "chat/outbox/outboxfile.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

// Why a turn is still waiting after an attempt. Offline turns go out with the next drain;
// refused ones wait for the user's Retry.
enum class TurnFailure { None, Offline, Refused };

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
    QString error; // what the turn shows after a failed attempt; empty when none
    TurnFailure failure = TurnFailure::None;
    QString reason; // the server's own words about the failure, shown under the error
    bool unconfirmed = false; // refused: the server took it without confirming
    std::optional<QJsonObject> geo;
    std::optional<OutboxFile> voiceNote;
    std::optional<float> voicePeak;
    std::optional<qint64> afterSeq; // seq of the last message when the turn was made
    std::optional<QString> typed;   // typed beside a voice note

    // Files written before the kind was kept have only the error text: the kind is worked
    // out from it once, and this says so (the file is then rewritten with the kind).
    bool failureGuessed = false;

    // Files or a voice note: bytes wait in the outbox folder.
    bool carriesBytes() const;

    // Lenient: a missing or null key takes its default. A damaged file, voice note or
    // location is dropped (and logged) so the text survives; throws DecodeError when the
    // value is not an object or one of the turn's own keys has the wrong type.
    static OutboxTurn fromJson(const QJsonValue &value);
    // Every key; optionals only when present.
    QJsonObject toJson() const;

    bool operator==(const OutboxTurn &) const = default;

    // The two texts a waiting turn shows: kept for Retry, or the server took it without
    // confirming. Stored in the language of the moment, so they are recognised in any.
    static QString savedForRetry();
    static QString notConfirmed();
    // The error as the screen shows it, in today's language: ours is chosen from the kind of
    // failure, whatever language it was stored in.
    QString shownError() const;
    static bool isSavedForRetryText(const QString &error);
    static bool isNotConfirmedText(const QString &error);
};
