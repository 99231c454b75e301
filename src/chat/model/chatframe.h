#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// One frame of the chat socket "webapi/ws". Which fields matter depends on type:
// "run_started", "delta", "tool", "final", "error", "tg_live", "tg_message".
struct ChatFrame
{
    QString type;
    QString conversationID = QStringLiteral("main");
    QString runID;
    qint64 userSeq = 0;
    QString clientRequestID;
    QString label;
    QString text;
    std::optional<int> attempt;
    QString name;
    QString summary;
    QString status;
    QString outcome;
    QString voiceURL;
    std::optional<double> createdAt;
    QString error;

    // Frames are the server's and never rejected for a field: numbers and text are read
    // either way round (user_seq 5 or "5"), anything that makes no sense reads as absent.
    // Only a frame that is not an object throws DecodeError. A missing or empty
    // conversation_id means "main".
    static ChatFrame fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    // How a "final" frame's run ended: outcome, or "completed" when none is named.
    QString finalOutcome() const;
    // The voice file the reply's message is named after: the last segment of voiceURL.
    std::optional<QString> voiceFile() const;

    bool operator==(const ChatFrame &) const = default;
};
