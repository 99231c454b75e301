// The sending half of the chat store: the outbox, delivery, retries and the composer.
// A turn is on disk before any network work, and leaves the outbox only when the server
// has confirmed it (its reply, its message in a fetch, or a receipt kept from an earlier run).

#include "chat/store/chatstore.h"
#include "chat/model/chatendpoints.h"
#include "chat/chatlogging.h"

#include "chat/model/tasknumber.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/model/chatjson.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatrowsmodel.h"
#include "net/api.h"
#include "platform/appdata.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QDateTime>
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

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

QString freshID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString couldNotSaveFile()
{
    return L::t(u"לא ניתן לשמור את הקובץ במכשיר הזה."_s, u"Could not save the file on this device."_s,
                u"Не удалось сохранить файл на этом устройстве."_s);
}

QStringList transferKeys(const QString &storageKey, const OutboxTurn &turn)
{
    QStringList keys{ChatBackgroundTransfer::key(storageKey, u"chat"_s, turn.id),
                     ChatBackgroundTransfer::key(storageKey, u"voice"_s, turn.id)};
    for (const OutboxFile &file : turn.files)
        keys.append(ChatBackgroundTransfer::key(storageKey, u"upload"_s, file.id));
    return keys;
}

} // namespace

std::optional<OutboxTurn> ChatStore::turnOf(const QString &turnID) const
{
    for (const OutboxTurn &turn : m_outbox->state().turns) {
        if (turn.id == turnID)
            return turn;
    }
    return std::nullopt;
}

void ChatStore::setSendError(const QString &error)
{
    if (m_sendError == error)
        return;
    m_sendError = error;
    emit sendErrorChanged();
}

QString ChatStore::send(const QString &raw, bool fromVoice, bool deliver)
{
    const QString text = raw.trimmed();
    if (const auto task = TaskNumber::stopCommand(text)) {
        cancelTask(*task);
        setComposerText(QString());
        return {};
    }
    if (text.isEmpty() && m_attachments.isEmpty())
        return {};

    OutboxTurn turn;
    turn.id = freshID();
    turn.text = text;
    turn.fromVoice = fromVoice;
    turn.voiceReply = AppData::setting(u"voice_mode"_s).toBool();
    if (m_replyTo) {
        turn.replyID = m_replyTo->taskNo ? u"task:"_s + *m_replyTo->taskNo
                                         : QString::number(m_replyTo->seq);
        turn.replyText = m_replyTo->text;
        turn.replyRole = m_replyTo->role;
    }
    turn.created = now();
    for (const ComposerAttachment &a : std::as_const(m_attachments)) {
        if (!a.failed)
            turn.files.append(OutboxFile{a.id, a.name, a.mime, a.fileID});
    }
    for (auto it = m_messages.rbegin(); it != m_messages.rend(); ++it) {
        if (it->seq >= 1) {
            turn.afterSeq = it->seq;
            break;
        }
    }
    // On disk first: if this fails nothing was sent and the composer keeps everything.
    if (!m_outbox->append(turn)) {
        setSendError(L::t(u"לא ניתן לשמור את ההודעה במכשיר הזה."_s,
                          u"Could not save the message on this device."_s,
                          u"Не удалось сохранить сообщение на этом устройстве."_s));
        return {};
    }
    setSendError(QString());
    m_attachments.clear();
    m_replyTo.reset();
    m_composer.clear();
    saveComposer();
    emit composerChanged();
    restorePending();
    emit turnQueued(turn.id);
    if (deliver)
        drain();
    return turn.id;
}

QCoro::Task<ChatStore::DrainSummary> ChatStore::drain()
{
    DrainSummary summary;
    if (m_draining) {
        // The running drain goes round once more and takes the new turn in order.
        m_drainAgain = true;
        co_return summary;
    }
    QPointer<ChatStore> self(this);
    m_draining = true;
    // Another process (a second terminal) may have added or settled turns meanwhile.
    if (m_outbox->refresh())
        restorePending();
    bool stop = false;
    do {
        m_drainAgain = false;
        const QList<OutboxTurn> turns = m_outbox->state().turns;
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
                summary.offline = int(m_outbox->state().turns.size()) - summary.refused;
                stop = true;
                break;
            }
            co_await m_sleeper->sleep(100ms);
            if (!self)
                co_return summary;
        }
    } while (m_drainAgain && !stop);
    m_draining = false;
    co_return summary;
}

QCoro::Task<Delivery> ChatStore::deliverTurn(QString turnID)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn || m_inFlight.contains(turnID))
        co_return Delivery::Stopped;
    QPointer<ChatStore> self(this);
    m_inFlight.insert(turnID);
    const ChatCourier::Result result = co_await m_courier.deliver(*turn, m_outbox.get());
    if (!self)
        co_return result.delivery;
    m_inFlight.remove(turnID);
    if (result.delivery == Delivery::Settled) {
        settle(turnID, result.userSeq, result.runID);
    } else if (result.deadReply) {
        discardDeadReply(turnID);
    } else if (std::optional<OutboxTurn> kept = turnOf(turnID)) {
        // Still here (a fetch may have settled it meanwhile): it keeps the reason.
        kept->error = result.error;
        kept->failure = result.failure;
        kept->reason = result.reason;
        kept->unconfirmed = result.unconfirmed;
        m_outbox->update(*kept);
        setSendError(result.error);
        restorePending();
    }
    emit delivered(turnID, result.delivery, result.error);
    co_return result.delivery;
}

void ChatStore::settle(const QString &turnID, qint64 userSeq, const QString &runID)
{
    stamp(userSeq, turnID);
    if (!runID.isEmpty()) {
        Lane &lane = laneFor(runID);
        if (lane.after < 1)
            lane.after = userSeq;
        m_awaitingRun.insert(runID);
        placeLanes();
        showLane(laneFor(runID));
        saveActivity();
        poll(runID);
    }
    acknowledge(turnID);
    setSendError(QString());
    emit settled(turnID, userSeq, runID);
}

void ChatStore::stamp(qint64 seq, const QString &requestID)
{
    if (seq < 1 || !turnOf(requestID))
        return;
    m_stamped.insert(requestID, seq);
    restorePending();
}

void ChatStore::acknowledge(const QString &requestID)
{
    const std::optional<OutboxTurn> turn = turnOf(requestID);
    if (!turn)
        return;
    forgetTurn(*turn, false);
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->acknowledged(transferKeys(storageKey(), *turn));
    restorePending();
}

void ChatStore::forgetTurn(const OutboxTurn &turn, bool keepFiles)
{
    m_outbox->remove(turn.id);
    if (!keepFiles) {
        for (const OutboxFile &file : turn.files)
            m_outbox->removeData(file.fileID);
        if (turn.voiceNote)
            m_outbox->removeData(turn.voiceNote->fileID);
    }
    m_stamped.remove(turn.id);
    m_inFlight.remove(turn.id);
}

void ChatStore::reconcile(const MessagesFeed &feed)
{
    for (const ChatMessage &m : feed.messages) {
        if (m.clientRequestID && (m.role == u"user" || m.source == u"telegram"))
            acknowledge(*m.clientRequestID);
    }
}

void ChatStore::discardDeadReply(const QString &turnID)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        return;
    // The text goes back to the composer; the files too, still in the outbox folder.
    forgetTurn(*turn, true);
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->acknowledged(transferKeys(storageKey(), *turn));
    // Whatever the user typed meanwhile stays; the withdrawn text comes after it.
    if (m_composer.trimmed().isEmpty())
        m_composer = turn->text;
    else if (!turn->text.isEmpty() && !m_composer.contains(turn->text))
        m_composer += u"\n"_s + turn->text;
    for (const OutboxFile &file : turn->files)
        m_attachments.append(ComposerAttachment{file.id, file.name, file.mime, file.fileID});
    m_replyTo.reset();
    saveComposer();
    emit composerChanged();
    m_banner = L::t(u"המשימה שעניתם לה כבר לא זמינה"_s, u"The task you replied to is no longer available"_s,
                    u"Задача, на которую вы ответили, больше недоступна"_s);
    emit bannerChanged();
    restorePending();
    emit withdrawn(turnID);
}

void ChatStore::takeBack(const QString &turnID)
{
    // The same road as a dead reply, without its notice: the user asked for this.
    const QString banner = m_banner;
    discardDeadReply(turnID);
    if (m_banner != banner) {
        m_banner = banner;
        emit bannerChanged();
    }
}

PendingTurn ChatStore::pending(const OutboxTurn &turn) const
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
    p.online = m_networkAvailable;
    p.processing = m_stamped.contains(turn.id);
    p.created = turn.created;
    for (const OutboxFile &file : turn.files) {
        if (const auto text = m_uploads.constFind(file.id); text != m_uploads.constEnd())
            p.uploads.insert(file.id, *text);
    }
    return p;
}

void ChatStore::restorePending()
{
    QList<PendingTurn> next;
    for (const OutboxTurn &turn : m_outbox->state().turns)
        next.append(pending(turn));
    if (next == m_pending)
        return;
    m_pending = std::move(next);
    emit pendingChanged();
}

QCoro::Task<Delivery> ChatStore::retry(QString turnID)
{
    std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        co_return Delivery::Stopped;
    turn->error.clear();
    turn->failure = TurnFailure::None;
    turn->unconfirmed = false;
    turn->reason.clear();
    m_outbox->update(*turn);
    // The stale answer of the failed attempt must not answer again.
    if (auto *transfers = ChatBackgroundTransfer::shared())
        transfers->discard(ChatBackgroundTransfer::key(storageKey(), u"chat"_s, turnID));
    restorePending();
    co_return co_await deliverTurn(turnID);
}

QCoro::Task<Delivery> ChatStore::resend(QString turnID)
{
    const std::optional<OutboxTurn> turn = turnOf(turnID);
    if (!turn)
        co_return Delivery::Stopped;
    if (auto *transfers = ChatBackgroundTransfer::shared()) {
        for (const QString &key : transferKeys(storageKey(), *turn))
            transfers->discard(key);
    }
    co_return co_await retry(turnID);
}

namespace {

// The seq and run of a turn whose chat post an earlier attempt got a confirmed answer to.
std::optional<std::pair<qint64, QString>> keptAnswer(const QString &storageKey,
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

// Folders of transfers no kept turn names, left by a kill between two steps. Young ones are
// spared: another process may have just started them.
constexpr auto strayTransferAge = std::chrono::hours(1);
// ".data" files no turn names (a composer attachment never sent): a day, for the same reason.
constexpr auto strayDataAge = std::chrono::hours(24);

void sweepTransfers(const QSet<QString> &wanted)
{
    auto *transfers = ChatBackgroundTransfer::shared();
    const QString root = AppData::path(u"background-chat"_s);
    if (!transfers || root.isEmpty())
        return;
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(
        -std::chrono::duration_cast<std::chrono::seconds>(strayTransferAge).count());
    const QFileInfoList folders = QDir(root).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QFileInfo &folder : folders) {
        if (wanted.contains(folder.fileName()) || folder.lastModified().toUTC() > before)
            continue;
        QDir(folder.filePath()).removeRecursively();
    }
}

} // namespace

void ChatStore::resumeBackgroundTransfers()
{
    const QList<OutboxTurn> turns = m_outbox->state().turns;
    for (const OutboxTurn &turn : turns) {
        if (const auto answer = keptAnswer(storageKey(), turn)) {
            qCInfo(lcChat) << "settling turn" << turn.id << "from a kept answer";
            settle(turn.id, answer->first, answer->second);
        }
    }
}

void ChatStore::resumeAllBackgroundTransfers(const QString &account)
{
    // No store here: a store not yet hydrated would write its empty lanes over the real ones.
    // The turn only leaves the outbox; its lane comes with the conversation's next load.
    QSet<QString> wanted;
    auto *transfers = ChatBackgroundTransfer::shared();
    for (const ChatScope &scope : knownScopes(account)) {
        const QString key = scope.storageKey(account);
        ChatOutbox outbox(key);
        outbox.load();
        const QList<OutboxTurn> turns = outbox.state().turns;
        for (const OutboxTurn &turn : turns) {
            const QStringList keys = transferKeys(key, turn);
            if (keptAnswer(key, turn) && outbox.remove(turn.id)) {
                qCInfo(lcChat) << "settled turn" << turn.id << "from a kept answer";
                for (const OutboxFile &file : turn.files)
                    outbox.removeData(file.fileID);
                if (turn.voiceNote)
                    outbox.removeData(turn.voiceNote->fileID);
                if (transfers)
                    transfers->acknowledged(keys);
                continue;
            }
            for (const QString &k : keys)
                wanted.insert(QFileInfo(ChatBackgroundTransfer::folder(k)).fileName());
        }
        outbox.sweep(std::chrono::duration_cast<std::chrono::seconds>(strayDataAge));
    }
    sweepTransfers(wanted);
}

void ChatStore::setComposerText(const QString &text)
{
    if (m_composer == text)
        return;
    m_composer = text;
    emit composerChanged();
    m_composerSave.schedule();
}

void ChatStore::saveComposer()
{
    m_composerSave.flush();
    const std::optional<QString> text = m_composer.isEmpty() ? std::nullopt : std::optional(m_composer);
    if (!m_outbox->setComposer(text, m_replyTo))
        qCWarning(lcChat) << "could not save the composer";
}

void ChatStore::setReplyTo(const std::optional<ChatMessage> &message)
{
    m_replyTo = message;
    emit composerChanged();
    saveComposer();
}

void ChatStore::continueTask(int number, const QString &text)
{
    ChatMessage target = ChatMessage::make(u"assistant"_s, text, now());
    target.taskNo = QString::number(number);
    setReplyTo(target);
    emit focusComposer();
}

QCoro::Task<bool> ChatStore::cancelTask(int number)
{
    QPointer<ChatStore> self(this);
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
    co_await m_sleeper->sleep(500ms);
    if (!self)
        co_return ok;
    co_await refresh();
    if (!self)
        co_return ok;
    m_cancelling.remove(number);
    emit cancellingChanged();
    co_return ok;
}

QCoro::Task<bool> ChatStore::voteRoute(qint64 seq, QString want, QString level, QString note)
{
    QPointer<ChatStore> self(this);
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
    if (self && !ok) {
        m_banner = L::t(u"ההצבעה לא נשמרה"_s, u"Vote not saved"_s, u"Голос не сохранён"_s);
        emit bannerChanged();
    }
    co_return ok;
}

QCoro::Task<bool> ChatStore::processed(QString turnID)
{
    QPointer<ChatStore> self(this);
    Sleeper *sleeper = m_sleeper;
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
                transfers->discard(ChatBackgroundTransfer::key(storageKey(), u"voice"_s, turnID));
            const Delivery again = co_await deliverTurn(turnID);
            co_return again == Delivery::Settled;
        }
        if (heard == Heard::Done)
            co_return true;
    }
    co_return false;
}

bool ChatStore::attach(const QString &name, const QString &mime, const QByteArray &data)
{
    const ComposerAttachment a{freshID(), name, mime.isEmpty() ? u"application/octet-stream"_s : mime,
                               freshID()};
    if (!m_outbox->writeData(a.fileID, data)) {
        setSendError(couldNotSaveFile());
        return false;
    }
    m_attachments.append(a);
    emit composerChanged();
    return true;
}

bool ChatStore::attachFile(const QString &path, const QString &name, const QString &mime)
{
    const QFileInfo info(path);
    const QString shown = name.isEmpty() ? info.fileName() : name;
    const QString type = mime.isEmpty() ? QMimeDatabase().mimeTypeForFile(info).name() : mime;
    const ComposerAttachment a{freshID(), shown, type.isEmpty() ? u"application/octet-stream"_s : type,
                               freshID()};
    if (!info.isFile() || !m_outbox->copyData(a.fileID, path)) {
        setSendError(couldNotSaveFile());
        return false;
    }
    m_attachments.append(a);
    emit composerChanged();
    return true;
}

void ChatStore::removeAttachment(const QString &id)
{
    for (qsizetype i = 0; i < m_attachments.size(); ++i) {
        if (m_attachments.at(i).id == id) {
            m_outbox->removeData(m_attachments.at(i).fileID);
            m_attachments.removeAt(i);
            emit composerChanged();
            return;
        }
    }
}

QVariantList ChatStore::pendingTurnsForQml() const
{
    QVariantList out;
    for (const PendingTurn &p : m_pending)
        out.append(QVariantMap{{u"id"_s, p.id},
                               {u"text"_s, p.text},
                               {u"files"_s, p.files},
                               {u"error"_s, p.error},
                               {u"reason"_s, p.reason},
                               {u"refused"_s, p.refused},
                               {u"online"_s, p.online},
                               {u"processing"_s, p.processing}});
    return out;
}

QVariantMap ChatStore::replyToForQml() const
{
    if (!m_replyTo)
        return {};
    return {{u"seq"_s, m_replyTo->seq}, {u"role"_s, m_replyTo->role}, {u"text"_s, m_replyTo->text}};
}

QVariantList ChatStore::attachmentsForQml() const
{
    QVariantList out;
    for (const ComposerAttachment &a : m_attachments)
        out.append(QVariantMap{{u"id"_s, a.id}, {u"name"_s, a.name}, {u"failed"_s, a.failed}});
    return out;
}

QVariantList ChatStore::cancellingForQml() const
{
    QVariantList out;
    for (int n : m_cancelling)
        out.append(n);
    return out;
}
