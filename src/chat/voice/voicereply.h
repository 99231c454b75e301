#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>

// The server's reply to a voice turn: like the chat reply, it names the user's message and
// the run that answers; with processing set the server is still transcribing.
struct VoiceReply
{
    bool ok = false;
    std::optional<QString> text; // what was heard
    std::optional<QString> runID;
    std::optional<qint64> userSeq;
    std::optional<QString> error;
    bool processing = false;

    // Lenient: a missing key takes its default; throws DecodeError for a wrong-typed key.
    static VoiceReply fromJson(const QJsonValue &value);
};
