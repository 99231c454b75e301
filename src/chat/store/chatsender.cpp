// Delivery of the turns in the outbox: sending, draining in order, retries, withdrawing.
// A turn is on disk before any network work, and leaves the outbox only when the server
// has confirmed it (its reply, its message in a fetch, or a receipt kept from an earlier run).

#include "chat/store/chatsender.h"
#include "chat/chatlogging.h"

#include "chat/model/tasknumber.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/model/chatendpoints.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatcomposer.h"
#include "chat/store/chatsync.h"
#include "chat/store/chattimeline.h"
#include "chat/store/pendingturnsmodel.h"
#include "chat/transfer/uploadmeter.h"
#include "chat/voice/voicedelivery.h"
#include "platform/clock.h"
#include "platform/reachability.h"
#include "net/api.h"
#include "platform/appdata.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QString freshID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

QStringList ChatSender::transferKeys(const QString &storageKey, const OutboxTurn &turn)
{
    QStringList keys{ChatBackgroundTransfer::key(storageKey, u"chat"_s, turn.id),
                     ChatBackgroundTransfer::key(storageKey, u"voice"_s, turn.id)};
    for (const OutboxFile &file : turn.files)
        keys.append(ChatBackgroundTransfer::key(storageKey, u"upload"_s, file.id));
    return keys;
}

ChatSender::ChatSender(Api &api, ChatScope scope, QString storageKey, Parts parts,
                       Sleeper &sleeper, Reachability &reachability, Clock &clock,
                       QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_scope(std::move(scope))
    , m_storageKey(std::move(storageKey))
    , m_outbox(parts.outbox)
    , m_composer(parts.composer)
    , m_timeline(parts.timeline)
    , m_sync(parts.sync)
    , m_sleeper(sleeper)
    , m_reachability(reachability)
    , m_clock(clock)
    , m_courier(m_api, m_scope, m_storageKey, sleeper)
    , m_pending(new PendingTurnsModel(this))
    , m_meter(new UploadMeter(sleeper, {}, this))
{
    // Whether a turn waits for the network shows on it.
    QObject::connect(&reachability, &Reachability::availableChanged, this,
                     &ChatSender::restorePending);
    // Upload progress of this conversation's files, shown under their pending turn.
    if (auto *transfers = ChatBackgroundTransfer::shared())
        QObject::connect(transfers, &ChatBackgroundTransfer::progress, m_meter, &UploadMeter::report);
    const QString uploads = m_storageKey + u":upload:"_s;
    QObject::connect(m_meter, &UploadMeter::changed, this,
                     [this, uploads](const QString &key, const QString &text) {
                         if (!key.startsWith(uploads))
                             return;
                         const QString fileID = key.mid(uploads.size());
                         if (text.isEmpty())
                             m_uploads.remove(fileID);
                         else
                             m_uploads.insert(fileID, text);
                         restorePending();
                     });
}

const QList<PendingTurn> &ChatSender::pendingTurns() const
{
    return m_pending->turns();
}

void ChatSender::address(OutboxTurn &turn) const
{
    if (const std::optional<ChatMessage> &to = m_composer.replyTo()) {
        turn.replyID = to->taskNo ? u"task:"_s + *to->taskNo : QString::number(to->seq);
        turn.replyText = to->text;
        turn.replyRole = to->role;
    }
    turn.created = m_clock.epochSeconds();
    if (const qint64 last = m_timeline.lastSeq(); last >= 1)
        turn.afterSeq = last;
}

QString ChatSender::submitVoice(float peak, const QByteArray &wav, bool deliver)
{
    OutboxTurn turn;
    turn.id = freshID();
    turn.voiceNote = OutboxFile{freshID(), VoiceDelivery::noteName(), u"audio/wav"_s, freshID()};
    turn.voicePeak = peak;
    turn.voiceReply = AppData::setting(u"voice_mode"_s).toBool();
    address(turn);
    // The recording first, then the turn naming it: a kill between the two leaves only a
    // stray file, which the outbox sweeps.
    if (wav.isEmpty() || !m_outbox.writeData(turn.voiceNote->fileID, wav) ||
        !m_outbox.append(turn)) {
        m_outbox.removeData(turn.voiceNote->fileID);
        setSendError(VoiceDelivery::couldNotSave());
        return {};
    }
    setSendError(QString());
    m_composer.sent(true);
    restorePending();
    emit turnQueued(turn.id);
    if (deliver)
        drain();
    return turn.id;
}

std::optional<OutboxTurn> ChatSender::turnOf(const QString &turnID) const
{
    for (const OutboxTurn &turn : m_outbox.state().turns) {
        if (turn.id == turnID)
            return turn;
    }
    return std::nullopt;
}

ChatSender::Standing ChatSender::standing(const QString &turnID) const
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        return Standing::Accepted;
    return turn->failure == TurnFailure::Refused ? Standing::Refused : Standing::Kept;
}

int ChatSender::refusedCount() const
{
    const QList<OutboxTurn> &turns = m_outbox.state().turns;
    return int(std::count_if(turns.begin(), turns.end(), [](const OutboxTurn &turn) {
        return turn.failure == TurnFailure::Refused;
    }));
}

void ChatSender::setSendError(const QString &error)
{
    if (m_sendError == error)
        return;
    m_sendError = error;
    emit sendErrorChanged();
}

QString ChatSender::send(const QString &raw, bool fromVoice, bool deliver)
{
    const QString text = raw.trimmed();
    if (const auto task = TaskNumber::stopCommand(text)) {
        cancelTask(*task);
        m_composer.setText(QString());
        return {};
    }
    if (text.isEmpty() && m_composer.attachments().isEmpty())
        return {};

    OutboxTurn turn;
    turn.id = freshID();
    turn.text = text;
    turn.fromVoice = fromVoice;
    turn.voiceReply = AppData::setting(u"voice_mode"_s).toBool();
    address(turn);
    for (const ComposerAttachment &a : m_composer.attachments()) {
        if (!a.failed)
            turn.files.append(OutboxFile{a.id, a.name, a.mime, a.fileID});
    }
    // On disk first: if this fails nothing was sent and the composer keeps everything.
    if (!m_outbox.append(turn)) {
        setSendError(L::t(u"לא ניתן לשמור את ההודעה במכשיר הזה."_s,
                          u"Could not save the message on this device."_s,
                          u"Не удалось сохранить сообщение на этом устройстве."_s));
        return {};
    }
    setSendError(QString());
    m_composer.sent();
    restorePending();
    emit turnQueued(turn.id);
    if (deliver)
        drain();
    return turn.id;
}

QCoro::Task<ChatSender::DrainSummary> ChatSender::drain()
{
    DrainSummary summary;
    if (m_draining) {
        // The running drain goes round once more and takes the new turn in order.
        m_drainAgain = true;
        co_return summary;
    }
    QPointer<ChatSender> self(this);
    m_draining = true;
    // Another process (a second terminal) may have added or settled turns meanwhile.
    if (m_outbox.refresh())
        restorePending();
    bool stop = false;
    do {
        m_drainAgain = false;
        const QList<OutboxTurn> turns = m_outbox.state().turns;
        for (const OutboxTurn &turn : turns) {
            if (m_inFlight.contains(turn.id) || !turnOf(turn.id))
                continue;
            // Refused by the server: it waits for the user's Retry, and never blocks the rest.
            if (turn.failure == TurnFailure::Refused) {
                ++summary.refused;
                continue;
            }
            const Delivery result = co_await deliverTurn(turn.id);
            if (!self)
                co_return summary;
            if (result == Delivery::Settled)
                ++summary.settled;
            else if (result == Delivery::Stopped)
                ++summary.refused;
            else {
                // The network is down for every turn: the rest wait with this one.
                summary.offline = int(m_outbox.state().turns.size()) - summary.refused;
                stop = true;
                break;
            }
            co_await m_sleeper.sleep(100ms);
            if (!self)
                co_return summary;
        }
    } while (m_drainAgain && !stop);
    m_draining = false;
    co_return summary;
}

QCoro::Task<Delivery> ChatSender::deliverTurn(QString turnID)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn || m_inFlight.contains(turnID))
        co_return Delivery::Stopped;
    QPointer<ChatSender> self(this);
    m_inFlight.insert(turnID);
    const ChatCourier::Result result = co_await m_courier.deliver(*turn, &m_outbox);
    if (!self)
        co_return result.delivery;
    m_inFlight.remove(turnID);
    if (result.delivery == Delivery::Settled) {
        settle(turnID, result.userSeq, result.runID);
        // The turn left the pending list; its message, now stamped, comes with a fetch. No
        // frame announces the user's own message, so without this it waits for the poller.
        m_sync.refresh();
    } else if (result.deadReply) {
        discardDeadReply(turnID);
    } else if (std::optional<OutboxTurn> kept = turnOf(turnID)) {
        // Still here (a fetch may have settled it meanwhile): it keeps the reason.
        kept->error = result.error;
        kept->failure = result.failure;
        kept->reason = result.reason;
        kept->unconfirmed = result.unconfirmed;
        m_outbox.update(*kept);
        setSendError(result.error);
        restorePending();
    }
    emit delivered(turnID, result.delivery, result.error);
    co_return result.delivery;
}

void ChatSender::settle(const QString &turnID, qint64 userSeq, const QString &runID)
{
    stamp(userSeq, turnID);
    if (!runID.isEmpty()) {
        m_timeline.anchorRun(runID, userSeq);
        m_sync.await(runID);
    }
    acknowledge(turnID);
    setSendError(QString());
    emit settled(turnID, userSeq, runID);
}

void ChatSender::stamp(qint64 seq, const QString &requestID)
{
    if (seq < 1 || !turnOf(requestID))
        return;
    m_stamped.insert(requestID, seq);
    restorePending();
}

void ChatSender::acknowledge(const QString &requestID)
{
    const std::optional<OutboxTurn> turn = turnOf(requestID);
    if (!turn)
        return;
    forgetTurn(*turn, false);
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->acknowledged(transferKeys(m_storageKey, *turn));
    restorePending();
}

void ChatSender::forgetTurn(const OutboxTurn &turn, bool keepFiles)
{
    m_outbox.remove(turn.id);
    if (!keepFiles) {
        for (const OutboxFile &file : turn.files)
            m_outbox.removeData(file.fileID);
        if (turn.voiceNote)
            m_outbox.removeData(turn.voiceNote->fileID);
    }
    m_stamped.remove(turn.id);
    m_inFlight.remove(turn.id);
}

void ChatSender::reconcile(const MessagesFeed &feed)
{
    for (const ChatMessage &m : feed.messages) {
        if (m.clientRequestID && (m.role == u"user" || m.source == u"telegram"))
            acknowledge(*m.clientRequestID);
    }
}

void ChatSender::discardDeadReply(const QString &turnID)
{
    withdraw(turnID, true);
}

void ChatSender::withdraw(const QString &turnID, bool tell)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        return;
    // The text goes back to the composer; the files too, still in the outbox folder.
    forgetTurn(*turn, true);
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->acknowledged(transferKeys(m_storageKey, *turn));
    // Whatever the user typed meanwhile stays; the withdrawn text comes after it.
    m_composer.takeBack(*turn);
    if (tell)
        emit notice(L::t(u"המשימה שעניתם לה כבר לא זמינה"_s, u"The task you replied to is no longer available"_s,
                    u"Задача, на которую вы ответили, больше недоступна"_s));
    restorePending();
    emit withdrawn(turnID);
}

void ChatSender::takeBack(const QString &turnID)
{
    // The same road as a dead reply, without its notice: the user asked for this.
    withdraw(turnID, false);
}

PendingTurn ChatSender::pending(const OutboxTurn &turn) const
{
    PendingTurn p;
    p.id = turn.id;
    p.text = turn.text;
    for (const OutboxFile &file : turn.files)
        p.files.append(file.name);
    if (turn.voiceNote)
        p.files.append(turn.voiceNote->name);
    p.error = turn.shownError();
    p.reason = turn.reason;
    p.refused = turn.failure == TurnFailure::Refused;
    p.online = m_reachability.available();
    p.processing = m_stamped.contains(turn.id);
    p.created = turn.created;
    for (const OutboxFile &file : turn.files) {
        if (const auto text = m_uploads.constFind(file.id); text != m_uploads.constEnd())
            p.uploads.insert(file.id, *text);
    }
    return p;
}

void ChatSender::restorePending()
{
    QList<PendingTurn> next;
    for (const OutboxTurn &turn : m_outbox.state().turns)
        next.append(pending(turn));
    if (m_pending->set(std::move(next)))
        emit pendingChanged();
}

QCoro::Task<Delivery> ChatSender::retry(QString turnID)
{
    std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        co_return Delivery::Stopped;
    turn->error.clear();
    turn->failure = TurnFailure::None;
    turn->unconfirmed = false;
    turn->reason.clear();
    m_outbox.update(*turn);
    // The stale answer of the failed attempt must not answer again.
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->discard(ChatBackgroundTransfer::key(m_storageKey, u"chat"_s, turnID));
    restorePending();
    co_return co_await deliverTurn(turnID);
}

QCoro::Task<Delivery> ChatSender::resend(QString turnID)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        co_return Delivery::Stopped;
    if (auto *transfers = ChatBackgroundTransfer::shared()) {
        for (const QString &key : transferKeys(m_storageKey, *turn))
            transfers->discard(key);
    }
    co_return co_await retry(turnID);
}

std::optional<std::pair<qint64, QString>> ChatSender::keptAnswer(const QString &storageKey,
                                                                  const OutboxTurn &turn)
{
    auto *transfers = ChatBackgroundTransfer::shared();
    if (!transfers)
        return std::nullopt;
    const auto receipt =
        transfers->stored(ChatBackgroundTransfer::key(storageKey, u"chat"_s, turn.id));
    if (!receipt || receipt->status < 200 || receipt->status > 299)
        return std::nullopt;
    const auto accepted =
        ChatEndpoints::Accepted::fromJson(QJsonDocument::fromJson(receipt->data).object());
    if (!accepted.confirmed())
        return std::nullopt;
    return std::pair(accepted.userSeq, accepted.runID);
}

void ChatSender::resumeBackgroundTransfers()
{
    const QList<OutboxTurn> turns = m_outbox.state().turns;
    for (const OutboxTurn &turn : turns) {
        if (const auto answer = keptAnswer(m_storageKey, turn)) {
            qCInfo(lcChat) << "settling turn" << turn.id << "from a kept answer";
            settle(turn.id, answer->first, answer->second);
        }
    }
}

QCoro::Task<bool> ChatSender::cancelTask(int number)
{
    QPointer<ChatSender> self(this);
    m_cancelling.insert(number);
    emit cancellingChanged();
    bool ok = true;
    try {
        co_await m_api.post(ChatEndpoints::stopTask(number), QJsonObject());
    } catch (const std::exception &e) {
        ok = false;
        qCInfo(lcChat) << "stopping task" << number << "failed:" << e.what();
    }
    if (!self)
        co_return ok;
    co_await m_sleeper.sleep(500ms);
    if (!self)
        co_return ok;
    co_await m_sync.refresh();
    if (!self)
        co_return ok;
    m_cancelling.remove(number);
    emit cancellingChanged();
    co_return ok;
}

QCoro::Task<bool> ChatSender::voteRoute(qint64 seq, QString want, QString level, QString note)
{
    QPointer<ChatSender> self(this);
    QJsonObject body;
    body.insert(u"vote"_s, want.isEmpty() ? u"keep"_s : u"change"_s);
    body.insert(u"want"_s, want);
    body.insert(u"level"_s, level);
    body.insert(u"note"_s, note);
    body.insert(u"seq"_s, seq);
    bool ok = true;
    try {
        co_await m_api.post(ChatEndpoints::routerFeedback(), body);
    } catch (...) {
        ok = false;
    }
    if (self && !ok)
        emit notice(L::t(u"ההצבעה לא נשמרה"_s, u"Vote not saved"_s, u"Голос не сохранён"_s));
    co_return ok;
}

QCoro::Task<bool> ChatSender::processed(QString turnID)
{
    QPointer<ChatSender> self(this);
    Sleeper *sleeper = &m_sleeper;
    for (int asked = 0; asked < 30; ++asked) { // every 2 s for a minute
        co_await sleeper->sleep(2s);
        if (!self || !turnOf(turnID))
            co_return true; // settled meanwhile (or the store is gone)
        using Heard = ChatEndpoints::VoiceStatus::Heard;
        Heard heard = Heard::Processing;
        try {
            // The status check carries its own content type, as the server expects of it.
            Api::Request request =
                m_api.authorized(ChatEndpoints::voiceStatus(turnID), "GET"_ba);
            request.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
            const Api::Reply reply = co_await m_api.exchange(request);
            heard = ChatEndpoints::VoiceStatus::fromJson(
                        QJsonDocument::fromJson(reply.data).object())
                        .heard;
        } catch (const std::exception &e) {
            qCDebug(lcChat) << "voice status unknown for now:" << e.what();
            continue;
        }
        if (!self)
            co_return false;
        if (heard == Heard::Unknown) {
            // The server never got the recording: it goes again, not as the answer kept before.
            if (auto *transfers = ChatBackgroundTransfer::shared())
                transfers->discard(ChatBackgroundTransfer::key(m_storageKey, u"voice"_s, turnID));
            const Delivery again = co_await deliverTurn(turnID);
            co_return again == Delivery::Settled;
        }
        if (heard == Heard::Done)
            co_return true;
    }
    co_return false;
}

