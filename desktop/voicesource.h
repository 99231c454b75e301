#pragma once

#include "chat/model/chatmessage.h"

#include <QList>
#include <QString>
#include <QVariantMap>

// Something in a message that can be listened to: the agent's speech of the message (made
// and fetched by parts), or an audio file (a voice note, an ".ogg"/".m4a" attachment).
struct VoiceSource {
    enum class Kind { Speech, File };

    Kind kind = Kind::File;
    qint64 seq = 0;
    QString fileID;
    QString name;

    // What the player calls it: "seq:N" for speech, "file:<id>" for a file.
    QString key() const;
    QVariantMap toMap() const;

    // In the order the message shows them: its voice first, then its audio attachments.
    static QList<VoiceSource> of(const ChatMessage &message);
    static bool isAudio(const ChatAttachment &attachment);
};
