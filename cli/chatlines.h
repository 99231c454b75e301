#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/lane.h"
#include "chat/model/pendingturn.h"

#include <QString>
#include <QStringList>

#include <optional>

// What the interactive chat writes, as text: messages, live lanes, turns in the outbox, the
// status line. Every text from the server passes TerminalText::safe here.
namespace ChatLines {

// How the chat reaches the server.
enum class Link { Connecting, Connected, Reconnecting, Offline };

struct Status {
    Link link = Link::Connecting;
    int queued = 0;
    std::optional<qint64> replyTo;
    QStringList attachments;
};

QString status(const Status &status);

// A message of the transcript: a heading (who, seq, time), then its text; the agent's markup
// styled for the terminal.
QString message(const ChatMessage &m, int width, bool colour);

// A lane still working: its heading and latest text on one line, then its newest tool steps.
QStringList lane(const Lane &lane);
// The one line a lane leaves in the transcript when it ends.
QString laneDone(const Lane &lane);

// A turn still in the outbox: sending, kept for the network (its last attempt found no
// server), or refused with its reason and the commands that deal with it.
QStringList pending(const PendingTurn &turn, bool lastAttemptOffline);
// The transcript's note when the server refuses a turn.
QString refusal(const QString &text, const QString &error, const QString &reason,
                const QString &turnID);

QString banner();
QString help();

// The text's first strong character is right-to-left.
bool rightToLeft(QStringView text);

} // namespace ChatLines
