// The chat store's voice notes: a recording becomes a turn in the outbox (on disk before any
// network work) and goes out through the voice step of delivery.

#include "chat/store/chatstore.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/voice/voicedelivery.h"
#include "platform/appdata.h"

#include <QDateTime>
#include <QUuid>

using namespace Qt::StringLiterals;

QString ChatStore::submitVoice(float peak, const QByteArray &wav, bool deliver)
{
    const auto freshID = [] { return QUuid::createUuid().toString(QUuid::WithoutBraces); };
    OutboxTurn turn;
    turn.id = freshID();
    turn.voiceNote = OutboxFile{freshID(), VoiceDelivery::noteName(), u"audio/wav"_s, freshID()};
    turn.voicePeak = peak;
    turn.voiceReply = AppData::setting(u"voice_mode"_s).toBool();
    if (m_replyTo) {
        turn.replyID =
            m_replyTo->taskNo ? u"task:"_s + *m_replyTo->taskNo : QString::number(m_replyTo->seq);
        turn.replyText = m_replyTo->text;
        turn.replyRole = m_replyTo->role;
    }
    turn.created = double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    for (auto it = m_messages.rbegin(); it != m_messages.rend(); ++it) {
        if (it->seq >= 1) {
            turn.afterSeq = it->seq;
            break;
        }
    }
    // The recording first, then the turn naming it: a kill between the two leaves only a
    // stray file, which the outbox sweeps.
    if (wav.isEmpty() || !m_outbox->writeData(turn.voiceNote->fileID, wav) ||
        !m_outbox->append(turn)) {
        m_outbox->removeData(turn.voiceNote->fileID);
        setSendError(VoiceDelivery::couldNotSave());
        return {};
    }
    setSendError(QString());
    m_replyTo.reset();
    saveComposer();
    emit composerChanged();
    restorePending();
    emit turnQueued(turn.id);
    if (deliver)
        drain();
    return turn.id;
}

QCoro::Task<QString> ChatStore::transcribe(float peak, QByteArray wav) const
{
    return VoiceDelivery::transcribe(m_api, m_scope, peak, std::move(wav));
}

void ChatStore::attachVoice(qint64 seq, const QString &file)
{
    for (qsizetype i = 0; i < m_messages.size(); ++i) {
        const ChatMessage &m = m_messages.at(i);
        if (m.seq != seq || m.voiceFile == file)
            continue;
        auto changed = std::make_shared<ChatMessage>(m);
        changed->voiceFile = file;
        m_messages.replace(i, std::move(changed));
        rebuild();
        persist();
        return;
    }
}
