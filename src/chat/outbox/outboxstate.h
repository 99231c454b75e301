#pragma once

#include "chat/model/chatmessage.h"
#include "chat/outbox/outboxturn.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

// Everything one conversation's outbox keeps: the unsent turns and the composer.
struct OutboxState
{
    QList<OutboxTurn> turns; // in sending order
    QList<OutboxTurn> drafts;
    std::optional<QString> composerText;
    std::optional<ChatMessage> replyTo; // the message the composer answers

    // Keeps what can be read: a turn or a composer field that cannot be read is dropped
    // and logged, the rest stays. Throws DecodeError only when the value is not an object.
    static OutboxState fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    bool operator==(const OutboxState &) const = default;
};
