#pragma once

#include "chatscope.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

// The chat's server paths, and the server's answer that accepts a turn, read in one place.
namespace ChatEndpoints {

// The conversation's messages after seq, with the activity after activitySince when given,
// else naming the open tasks (when there are any).
QString messagesSince(const ChatScope &scope, qint64 seq, std::optional<qint64> activitySince,
                      const QStringList &tasks);
// A message's voice: "webapi/messages/<seq>" + rest ("/voice/prepare", "/voice/parts/2"…).
QString message(qint64 seq, const QString &rest);
// An attachment, as a player fetches it.
QString filePlayback(const QString &fileID);
// The conversation's live socket.
QString socket(const ChatScope &scope);
// One agent run's record.
QString run(const QString &runID);
// The turn's text, and the files it carries.
QString chat(const ChatScope &scope);
QString upload(const ChatScope &scope);
// A voice turn, or a recording to be heard only.
QString voice(const ChatScope &scope);
// What the server did with the voice turn of that request id.
QString voiceStatus(const QString &turnID);
// Stops task N.
QString stopTask(int number);
QString routerFeedback();

// The server took the turn: the seq it gave the user's message and the run that answers it.
struct Accepted {
    qint64 userSeq = 0;
    QString runID;

    // Both known: the turn is settled.
    bool confirmed() const { return userSeq >= 1 && !runID.isEmpty(); }
    // Lenient: "user_seq" as a whole number or a text of one, "run_id" as a text.
    static Accepted fromJson(const QJsonObject &reply);
};

// The answer to voiceStatus.
struct VoiceStatus {
    enum class Heard { Processing, Done, Unknown };
    Heard heard = Heard::Processing;
    Accepted accepted;

    static VoiceStatus fromJson(const QJsonObject &reply);
};

} // namespace ChatEndpoints
