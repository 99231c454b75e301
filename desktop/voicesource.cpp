#include "voicesource.h"

using namespace Qt::StringLiterals;

QString VoiceSource::key() const
{
    return kind == Kind::Speech ? u"seq:"_s + QString::number(seq) : u"file:"_s + fileID;
}

QVariantMap VoiceSource::toMap() const
{
    return {{u"key"_s, key()},
            {u"speech"_s, kind == Kind::Speech},
            {u"seq"_s, seq},
            {u"fileID"_s, fileID},
            {u"name"_s, name}};
}

bool VoiceSource::isAudio(const ChatAttachment &attachment)
{
    const QString name = attachment.name.toLower();
    return attachment.mime.startsWith(u"audio/") || name.endsWith(u".ogg") ||
           name.endsWith(u".m4a");
}

QList<VoiceSource> VoiceSource::of(const ChatMessage &message)
{
    QList<VoiceSource> out;
    const QString voice = message.voiceFile.value_or(QString());
    if (!voice.isEmpty()) {
        // The agent's voice is made on the server by parts; the user's note is a plain file.
        if (message.role == u"assistant" && message.seq > 0)
            out.append({Kind::Speech, message.seq, {}, voice});
        else
            out.append({Kind::File, message.seq, voice, voice});
    }
    for (const ChatAttachment &a : message.attachments.value_or(QList<ChatAttachment>())) {
        if (isAudio(a) && !a.fileID.isEmpty() && a.fileID != voice)
            out.append({Kind::File, message.seq, a.fileID, a.name});
    }
    return out;
}
