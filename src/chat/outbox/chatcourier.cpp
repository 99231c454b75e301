#include "chat/outbox/chatcourier.h"
#include "chat/chatlogging.h"

#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/model/chatendpoints.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/model/uploadreply.h"
#include "chat/voice/voicedelivery.h"
#include "net/api.h"
#include "net/wire.h"
#include "platform/atomicfile.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QJsonArray>

#include <algorithm>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// A blip (a dropped connection, a timed-out answer, the proxy briefly down) is ridden out
// inside one attempt: the text is tried once more after this pause. The transfer is named
// after the turn and the server is idempotent by its id, so the second try cannot post twice.
constexpr auto blipPause = 8s;

enum class Failure { Offline, Blip, Refused, DeadReply };

Failure classify(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::TransportError &e) {
        return e.transient() ? Failure::Blip : Failure::Offline;
    } catch (const Api::Failed &e) {
        if (e.code == u"reply_target_not_found")
            return Failure::DeadReply;
        return e.unreachable() ? Failure::Blip : Failure::Refused;
    } catch (const Api::Unauthorized &) {
        return Failure::Offline; // signed out: the turn waits for the next session
    } catch (...) {
        return Failure::Refused;
    }
}

QJsonObject withScope(QJsonObject body, const ChatScope &scope)
{
    const QJsonObject fields = scope.fields();
    for (auto it = fields.begin(); it != fields.end(); ++it)
        body.insert(it.key(), it.value());
    return body;
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

ChatCourier::Result offline()
{
    return kept(Delivery::Offline, TurnFailure::Offline);
}

ChatCourier::Result refused(QString reason)
{
    return kept(Delivery::Stopped, TurnFailure::Refused, std::move(reason));
}

} // namespace

ChatCourier::ChatCourier(Api &api, ChatScope scope, QString storageKey, Sleeper &sleeper)
    : m_api(api)
    , m_scope(std::move(scope))
    , m_storageKey(std::move(storageKey))
    , m_sleeper(&sleeper)
{
}

QCoro::Task<ChatCourier::Result> ChatCourier::deliver(OutboxTurn turn, const ChatOutbox *outbox) const
{
    QStringList paths;
    for (const OutboxFile &file : turn.files)
        paths.append(outbox->dataPath(file.fileID));
    if (turn.voiceNote)
        paths.append(outbox->dataPath(turn.voiceNote->fileID)); // last
    Route route{&m_api, m_scope, m_storageKey, m_sleeper};
    return deliverWith(std::move(route), std::move(turn), std::move(paths));
}

QCoro::Task<ChatCourier::Result> ChatCourier::deliverWith(Route route, OutboxTurn turn,
                                                          QStringList dataPaths)
{
    if (turn.voiceNote) {
        // A voice turn is its recording: the server's answer to it settles the turn.
        co_return co_await VoiceDelivery::deliver(*route.api, std::move(route.scope), std::move(route.storageKey),
                                                  route.sleeper, std::move(turn), dataPaths.last());
    }

    QStringList lines;
    for (qsizetype i = 0; i < turn.files.size(); ++i) {
        const OutboxFile file = turn.files.at(i);
        const std::optional<QByteArray> bytes =
            dataPaths.at(i).isEmpty() ? std::nullopt : AtomicFile::read(dataPaths.at(i));
        if (!bytes) {
            co_return refused(L::t(u"הקובץ %1 כבר לא נמצא במכשיר."_s,
                                   u"The file %1 is no longer on this device."_s,
                                   u"Файла %1 больше нет на устройстве."_s)
                                  .arg(file.name));
        }
        Multipart::Fields fields;
        fields.append({u"client_request_id"_s, file.id});
        const QJsonObject scope = route.scope.fields();
        for (auto it = scope.begin(); it != scope.end(); ++it)
            fields.append({it.key(), it.value().isDouble() ? QString::number(it.value().toInteger())
                                                           : it.value().toString()});
        Api::Upload upload{{u"file"_s, file.name, file.mime, *bytes}, fields};
        const QString key = ChatBackgroundTransfer::key(route.storageKey, u"upload"_s, file.id);
        std::exception_ptr failed;
        UploadReply reply;
        // Named, not a braced temporary: GCC 12 destroys brace-built aggregate arguments of a
        // coroutine twice.
        const Api::Options options{{}, key};
        const QString path = ChatEndpoints::upload(route.scope);
        try {
            reply = co_await route.api->upload<UploadReply>(path, upload, options);
        } catch (...) {
            failed = std::current_exception();
        }
        if (failed || !reply.ok || !reply.fileID) {
            // A failed answer must never stand in for the next attempt.
            if (auto *transfers = ChatBackgroundTransfer::shared())
                transfers->discard(key);
        }
        if (failed) {
            const Failure kind = classify(failed);
            if (kind == Failure::Offline || kind == Failure::Blip)
                co_return offline();
            co_return refused(Wire::reasonOf(failed));
        }
        if (!reply.ok || !reply.fileID) {
            co_return refused(reply.error.value_or(L::t(u"השרת לא קיבל את הקובץ %1."_s,
                                                        u"The server did not take the file %1."_s,
                                                        u"Сервер не принял файл %1."_s)
                                                       .arg(file.name)));
        }
        lines.append(u"[attachment: "_s + reply.name.value_or(file.name) + u"]"_s);
    }
    co_return co_await sendText(std::move(route), std::move(turn), std::move(lines));
}

QCoro::Task<ChatCourier::Result> ChatCourier::sendText(Route route, OutboxTurn turn,
                                                       QStringList attachmentLines)
{
    QString text = turn.text;
    for (const QString &line : attachmentLines)
        text += (text.isEmpty() ? QString() : u"\n"_s) + line;
    QJsonObject body;
    body.insert(u"text"_s, text);
    body.insert(u"voice_reply"_s, turn.voiceReply);
    body.insert(u"from_voice"_s, turn.fromVoice);
    if (!turn.replyID.isEmpty())
        body.insert(u"reply_to_id"_s, turn.replyID);
    body.insert(u"client_request_id"_s, turn.id);
    body = withScope(body, route.scope);
    const QString key = ChatBackgroundTransfer::key(route.storageKey, u"chat"_s, turn.id);

    const Api::Options options{{}, key};
    const QString path = ChatEndpoints::chat(route.scope);
    for (int attempt = 0;; ++attempt) {
        std::exception_ptr failed;
        QJsonObject reply;
        try {
            reply = co_await route.api->post(path, body, options);
        } catch (...) {
            failed = std::current_exception();
        }
        if (!failed) {
            const auto accepted = ChatEndpoints::Accepted::fromJson(reply);
            if (accepted.confirmed()) {
                Result done;
                done.delivery = Delivery::Settled;
                done.userSeq = accepted.userSeq;
                done.runID = accepted.runID;
                co_return done;
            }
            // Kept for Retry, which must post again rather than read this answer back.
            if (auto *transfers = ChatBackgroundTransfer::shared())
                transfers->discard(key);
            Result unconfirmed = refused({});
            unconfirmed.error = OutboxTurn::notConfirmed();
            unconfirmed.unconfirmed = true;
            co_return unconfirmed;
        }
        const Failure kind = classify(failed);
        if (kind == Failure::DeadReply) {
            Result dead = refused(Wire::reasonOf(failed));
            dead.deadReply = true;
            co_return dead;
        }
        if (kind == Failure::Refused)
            co_return refused(Wire::reasonOf(failed));
        if (kind == Failure::Offline || attempt > 0)
            co_return offline();
        qCDebug(lcChat) << "the chat post hit a blip; one more try in" << blipPause.count() << "s";
        co_await route.sleeper->sleep(blipPause);
        // A receipt of any status from the first try would answer again: drop it.
        if (auto *transfers = ChatBackgroundTransfer::shared())
            transfers->discard(key);
    }
}
