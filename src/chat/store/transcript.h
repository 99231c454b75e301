#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/lane.h"
#include "chat/model/messagelist.h"

#include <QList>
#include <QString>

#include <optional>

// The conversation as kept on disk, so it shows at once on the next start: the transcript
// (ordered messages) and the lanes of agent work, in the "transcript" folder.
namespace Transcript {

inline constexpr int version = 1;

QString folder();
// "chat-<key>[-voice-separated-v1]-feed-v<version>.json"; the marker only for owners.
QString fileName(const QString &storageKey, bool owner);
QString activityFileName(const QString &storageKey);

struct Contents {
    MessageList messages;
    qint64 cachedSeq = 0;
};

// Written message by message: no document of the whole transcript is held at once.
QByteArray encode(const Contents &contents);
// Nothing for a file that is not ours or does not parse; messages that do not decode are dropped.
// A message without a time takes now (seconds since 1970).
std::optional<Contents> decode(const QByteArray &bytes, double now);

QByteArray encodeLanes(const QList<Lane> &lanes);
QList<Lane> decodeLanes(const QByteArray &bytes);

} // namespace Transcript
