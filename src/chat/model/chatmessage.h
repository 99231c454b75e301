#pragma once

#include "chat/model/chatattachment.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

// One message of the conversation as the server sends it, or as the client makes it
// before the server has stamped it (seq 0).
struct ChatMessage
{
    // Longer texts are cut (and say so): one message never holds more than this.
    static constexpr qsizetype maxText = 1024 * 1024;

    qint64 seq = 0; // 0: not stamped by the server yet
    QString role;   // "user" or "assistant"
    QString kind = QStringLiteral("text");
    QString text; // markdown
    std::optional<QString> voiceFile;
    std::optional<QString> runID;
    std::optional<QString> source; // "telegram" for the messenger bridge
    std::optional<QString> clientRequestID;
    std::optional<QString> tgMessageID;
    std::optional<QString> replyToID;
    std::optional<QString> replyToRole;
    std::optional<QString> replyToText;
    std::optional<QString> replyRef;
    std::optional<QString> taskNo;
    std::optional<QString> routeVote;
    double createdAt = 0; // seconds since 1970
    std::optional<QList<ChatAttachment>> attachments;
    QString localID; // made on creation, or on decoding without a seq; never sent or compared

    // Lenient: a missing or null key takes its default, a missing created_at the time of
    // decoding, a missing or empty kind "text". Ids sent as numbers are kept as their
    // digits. A bad attachment is dropped, not the message. Throws DecodeError when the
    // value is not an object or a key has a type that cannot be read.
    static ChatMessage fromJson(const QJsonValue &value);
    // The same with the decoding time given.
    static ChatMessage fromJson(const QJsonValue &value, double now);

    // One key's value as any JSON reader found it: the transcript's own reader hands its keys
    // to the same rules without building a document first.
    struct Field
    {
        QJsonValue::Type type = QJsonValue::Undefined; // a null reads as Undefined
        QString text;                                  // a string
        double number = 0;                             // a number
        QJsonArray list;                               // a list
    };
    using Fields = std::function<Field(QLatin1StringView key)>;
    // The rules of fromJson over the keys of one object.
    static ChatMessage fromFields(const Fields &field, double now);
    // The server's keys; absent optionals left out; localID never written.
    QJsonObject toJson() const;

    // A message the client makes itself (seq 0, kind "text", a fresh localID).
    static ChatMessage make(const QString &role, const QString &text, double createdAt);

    // The task the message belongs to: task_no ("12", "#12", "p-12") when it reads as a
    // number, otherwise the task named by the opening of the text (see TaskNumber::opening).
    std::optional<int> taskNumber() const;
    // A routing card the user may vote on: kind "route" or "route_card", or a message
    // that already carries a vote.
    bool isRouteCard() const;
    // "seq:" and the seq: the message's row id.
    QString rowID() const;

    // Content equality: every field but localID.
    bool operator==(const ChatMessage &other) const;
};
