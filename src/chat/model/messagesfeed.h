#pragma once

#include "chat/model/activityupdate.h"
#include "chat/model/chatmessage.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

class ChatScope;

// The reply of "webapi/messages".
struct MessagesFeed
{
    bool ok = false; // as the server said; false when it did not say
    QString conversationID = QStringLiteral("main");
    std::optional<int> projectID;
    QList<ChatMessage> messages; // in the order sent
    int skipped = 0;             // messages that did not decode and were left out
    qint64 cursor = 0;
    bool hasMore = false;
    QJsonObject taskStates; // task key → state, as sent
    QJsonArray live;
    QJsonArray runs;
    QList<ActivityUpdate> activity;
    int skippedActivity = 0; // activity updates that did not decode
    std::optional<qint64> activityCursor;
    bool activityHasMore = false;

    // One bad message or activity update is counted and skipped; a top-level key of the
    // wrong type, or a body that is not an object, throws DecodeError (the whole reply is
    // in an unexpected shape). A missing or empty conversation_id means "main".
    static MessagesFeed fromJson(const QJsonValue &value);
    // The same with the time given to messages without created_at.
    static MessagesFeed fromJson(const QJsonValue &value, double now);

    // The feed belongs to that conversation.
    bool isFor(const ChatScope &scope) const;
};
