#include "voicedelivery.h"
#include "chat/chatlogging.h"

#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/model/chatendpoints.h"
#include "chat/voice/voicereply.h"
#include "net/api.h"
#include "net/wire.h"
#include "platform/atomicfile.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkRequest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto statusEvery = 2s;
constexpr int statusAsks = 30; // a minute

enum class Failure { Offline, Refused, DeadReply };

Failure classify(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::TransportError &) {
        return Failure::Offline;
    } catch (const Api::Failed &e) {
        if (e.code == u"reply_target_not_found")
            return Failure::DeadReply;
        return e.unreachable() ? Failure::Offline : Failure::Refused;
    } catch (const Api::Unauthorized &) {
        return Failure::Offline; // the turn waits for the next session
    } catch (...) {
        return Failure::Refused;
    }
}

ChatCourier::Result kept(Delivery delivery, TurnFailure failure, QString reason = {})
{
    ChatCourier::Result r;
    r.delivery = delivery;
    r.failure = failure;
    r.error = OutboxTurn::savedForRetry();
    r.reason = std::move(reason);
    return r;
}

ChatCourier::Result settled(qint64 seq, QString run)
{
    ChatCourier::Result r;
    r.delivery = Delivery::Settled;
    r.userSeq = seq;
    r.runID = std::move(run);
    return r;
}

void forget(const QString &key)
{
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->discard(key);
}

using Heard = ChatEndpoints::VoiceStatus::Heard;

// One ask of the voice status; nothing when the answer did not come.
QCoro::Task<std::optional<ChatEndpoints::VoiceStatus>> askStatus(Api &api, QString turnID)
{
    std::optional<ChatEndpoints::VoiceStatus> out;
    try {
        // The status check carries its own content type, as the server expects of it.
        Api::Request request = api.authorized(ChatEndpoints::voiceStatus(turnID), "GET"_ba);
        request.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
        const Api::Reply reply = co_await api.exchange(request);
        out = ChatEndpoints::VoiceStatus::fromJson(QJsonDocument::fromJson(reply.data).object());
    } catch (const std::exception &e) {
        qCDebug(lcVoiceNotes) << "voice status unknown for now:" << e.what();
    }
    co_return out;
}

} // namespace

namespace VoiceDelivery {

QString noteName()
{
    return L::t(u"הודעה קולית"_s, u"Voice message"_s, u"Голосовое сообщение"_s) + u".wav"_s;
}

QString couldNotSave()
{
    return L::t(u"לא ניתן לשמור את ההקלטה במכשיר הזה."_s,
                u"Could not save the recording on this device."_s,
                u"Не удалось сохранить запись на этом устройстве."_s);
}

Multipart::Fields fields(const OutboxTurn &turn, const ChatScope &scope, bool reprocess)
{
    Multipart::Fields out{
        {u"peak"_s, QString::number(double(turn.voicePeak.value_or(0.0f)), 'f', 4)},
        {u"submit"_s, u"1"_s},
        {u"voice_reply"_s, turn.voiceReply ? u"1"_s : u"0"_s},
        {u"device"_s, u"iphone-native"_s},
        // The server may answer before it has transcribed; its status is then asked.
        {u"early_ack"_s, u"1"_s},
        {u"reprocess"_s, reprocess ? u"1"_s : u"0"_s},
        {u"queued_at"_s, QString::number(turn.created, 'f', 3)},
        {u"client_request_id"_s, turn.id},
    };
    if (!turn.replyID.isEmpty())
        out.append({u"reply_to_id"_s, turn.replyID});
    const QJsonObject scoped = scope.fields();
    for (auto it = scoped.begin(); it != scoped.end(); ++it)
        out.append({it.key(), it.value().isDouble() ? QString::number(it.value().toInteger())
                                                    : it.value().toString()});
    return out;
}

QCoro::Task<ChatCourier::Result> deliver(Api &api, ChatScope scope, QString storageKey,
                                         Sleeper *sleeper, OutboxTurn turn, QString dataPath)
{
    const std::optional<QByteArray> wav =
        dataPath.isEmpty() ? std::nullopt : AtomicFile::read(dataPath);
    if (!wav) {
        co_return kept(Delivery::Stopped, TurnFailure::Refused,
                       L::t(u"ההקלטה כבר לא נמצאת במכשיר."_s,
                            u"The recording is no longer on this device."_s,
                            u"Записи больше нет на устройстве."_s));
    }
    const QString key = ChatBackgroundTransfer::key(storageKey, u"voice"_s, turn.id);
    const QString path = ChatEndpoints::voice(scope);
    bool reprocess = false;
    for (int posts = 0; posts < 2; ++posts) {
        Api::Upload upload{{u"audio"_s, u"note.wav"_s, u"audio/wav"_s, *wav},
                           fields(turn, scope, reprocess)};
        // Named, not a braced temporary: GCC 12 destroys brace-built coroutine arguments twice.
        const Api::Options options{{}, key};
        std::exception_ptr failed;
        VoiceReply reply;
        try {
            reply = co_await api.upload<VoiceReply>(path, upload, options);
        } catch (...) {
            failed = std::current_exception();
        }
        if (failed) {
            forget(key); // a failed answer must never stand in for the next attempt
            const Failure kind = classify(failed);
            if (kind == Failure::Offline)
                co_return kept(Delivery::Offline, TurnFailure::Offline);
            ChatCourier::Result refused =
                kept(Delivery::Stopped, TurnFailure::Refused, Wire::reasonOf(failed));
            refused.deadReply = kind == Failure::DeadReply;
            co_return refused;
        }
        if (reply.ok && reply.userSeq.value_or(0) >= 1 && reply.runID)
            co_return settled(*reply.userSeq, *reply.runID);
        if (!reply.ok || !reply.processing) {
            forget(key); // Retry posts again rather than read this answer back
            ChatCourier::Result unconfirmed =
                kept(Delivery::Stopped, TurnFailure::Refused, reply.error.value_or(QString()));
            unconfirmed.error = OutboxTurn::notConfirmed();
            co_return unconfirmed;
        }
        // Taken, still being transcribed: the turn stays until the server says it is done.
        for (int asked = 0; asked < statusAsks; ++asked) {
            co_await sleeper->sleep(statusEvery);
            const std::optional<ChatEndpoints::VoiceStatus> status =
                co_await askStatus(api, turn.id);
            if (!status)
                continue;
            if (status->heard == Heard::Done)
                co_return settled(status->accepted.userSeq, status->accepted.runID);
            if (status->heard == Heard::Unknown) {
                qCInfo(lcVoiceNotes)
                    << "the server lost voice turn" << turn.id << "- sending it again";
                forget(key);
                reprocess = true;
                break;
            }
        }
        if (!reprocess)
            break;
    }
    // Still transcribing after a minute (or lost twice): the next drain asks again.
    co_return kept(Delivery::Offline, TurnFailure::Offline);
}

QCoro::Task<QString> transcribe(Api &api, ChatScope scope, float peak, QByteArray wav)
{
    Multipart::Fields given{{u"submit"_s, u"0"_s},
                            {u"device"_s, u"iphone-native"_s},
                            {u"peak"_s, QString::number(double(peak), 'f', 4)}};
    const QJsonObject scoped = scope.fields();
    for (auto it = scoped.begin(); it != scoped.end(); ++it)
        given.append({it.key(), it.value().isDouble() ? QString::number(it.value().toInteger())
                                                      : it.value().toString()});
    Api::Upload upload{{u"audio"_s, u"note.wav"_s, u"audio/wav"_s, std::move(wav)}, given};
    const QString path = ChatEndpoints::voice(scope);
    const VoiceReply reply = co_await api.upload<VoiceReply>(path, upload);
    if (!reply.ok)
        throw Api::Failed(200, reply.error.value_or(QString()));
    co_return reply.text.value_or(QString());
}

} // namespace VoiceDelivery
