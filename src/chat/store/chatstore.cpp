#include "chat/store/chatstore.h"
#include "chat/model/chatendpoints.h"
#include "chat/chatlogging.h"

#include "chat/store/chatbackoff.h"
#include "chat/model/chatjson.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/transfer/uploadmeter.h"
#include "chat/store/chatrowsmodel.h"
#include "chat/model/runrecord.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "platform/appdata.h"
#include "platform/reachability.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QCoroWebSocket>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QWebSocket>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QString loadFailureText(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Unauthorized &) {
        return {};
    } catch (const DecodeError &) {
        return FailureText::of(error);
    } catch (const Api::Failed &failed) {
        return u"HTTP "_s + QString::number(failed.status);
    } catch (...) {
    }
    return L::t(u"לא ניתן לטעון את השיחה."_s, u"Could not load the conversation."_s,
                u"Не удалось загрузить разговор."_s);
}

} // namespace

ChatStore::ChatStore(Api &api, ChatScope scope, QString account, QString role,
                     ChatDependencies deps, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_scope(std::move(scope))
    , m_account(std::move(account))
    , m_role(std::move(role))
    , m_sleeper(deps.sleeper ? deps.sleeper : &Sleeper::real())
    , m_reachability(deps.reachability ? deps.reachability : Reachability::platform(this))
    , m_model(new ChatRowsModel(this))
    , m_outbox(std::make_unique<ChatOutbox>(m_scope.storageKey(m_account)))
    , m_courier(m_api, m_scope, m_scope.storageKey(m_account), m_sleeper)
    , m_meter(new UploadMeter(m_sleeper, {}, this))
    , m_composerSave(this, 500ms, [this] { saveComposer(); }, m_sleeper)
    , m_activitySave(this, 400ms, [this] { writeActivity(); }, m_sleeper)
    , m_transcriptSave(this, 300ms, [this] { writeTranscript(); }, m_sleeper)
{
    m_disk.setMaxThreadCount(1);
    m_disk.setObjectName(u"chat.activity.disk"_s);
    m_networkAvailable = m_reachability->available();
    QObject::connect(m_reachability, &Reachability::availableChanged, this,
                     &ChatStore::setNetworkAvailable);
    liveStores().append(this);
    // Upload progress of this conversation's files, shown under their pending turn.
    if (auto *transfers = ChatBackgroundTransfer::shared())
        QObject::connect(transfers, &ChatBackgroundTransfer::progress, m_meter, &UploadMeter::report);
    const QString uploads = storageKey() + u":upload:"_s;
    QObject::connect(m_meter, &UploadMeter::changed, this, [this, uploads](const QString &key, const QString &text) {
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

ChatStore::~ChatStore()
{
    if (m_composerSave.pending())
        saveComposer();
    close();
    flushDisk();
    liveStores().removeAll(this);
}

void ChatStore::setConnected(bool connected)
{
    if (m_connected == connected)
        return;
    m_connected = connected;
    emit connectedChanged();
}

void ChatStore::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    emit loadingChanged();
}

void ChatStore::setFailure(const QString &failure)
{
    if (m_failure == failure)
        return;
    m_failure = failure;
    emit failureChanged();
}

void ChatStore::setNetworkAvailable(bool available)
{
    if (m_networkAvailable == available)
        return;
    m_networkAvailable = available;
    emit networkAvailableChanged();
    // Back on the network: catch up on what the socket missed, and send what waited.
    if (available && m_open) {
        refresh();
        drain();
    }
    restorePending();
}

QString ChatStore::laneAnchorKey() const
{
    return u"chat.laneAnchors."_s + storageKey();
}

void ChatStore::reset()
{
    // Lanes and anchors still waiting to be written go first: they are read back below.
    m_activitySave.flush();
    m_messages.clear();
    m_lanes.clear();
    m_history.clear();
    m_seen.clear();
    m_answered.clear();
    m_turnOf.clear();
    m_locals = 0;
    m_cursor = 0;
    m_activityCursor = 0;
    m_cachedSeq = 0;
    m_unread = 0;
    m_awaitingRun.clear();
    m_anchors.clear();
    const QVariantMap anchors = AppData::setting(laneAnchorKey()).toMap();
    for (auto it = anchors.begin(); it != anchors.end(); ++it)
        m_anchors.insert(it.key(), it.value().toLongLong());
    setFailure(QString());
    rebuild();
    emit unreadChanged();
}

void ChatStore::open()
{
    if (m_open)
        return;
    prepare();
    goLive();
}

void ChatStore::prepare()
{
    reset();
    if (const auto project = m_scope.projectID()) {
        // Remembered so that a later start can settle this conversation's transfers too.
        QVariantMap known = AppData::setting(u"chat.projects."_s + m_account).toMap();
        if (!known.contains(QString::number(*project))) {
            known.insert(QString::number(*project), true);
            AppData::setSetting(u"chat.projects."_s + m_account, known);
        }
    }
    m_outbox->load();
    if (const int lost = m_outbox->lost(); lost > 0) {
        // Damaged files kept every turn they could; the user hears how many could not be.
        m_banner = L::t(u"לא ניתן היה לקרוא %1 מההודעות שחיכו לשליחה במכשיר הזה."_s,
                        u"%1 of the messages waiting on this device could not be read."_s,
                        u"Не удалось прочитать %1 из сообщений, ждавших отправки на этом устройстве."_s)
                       .arg(lost);
        emit bannerChanged();
    }
    hydrate();
    restorePending();
    m_composer = m_outbox->state().composerText.value_or(QString());
    m_replyTo = m_outbox->state().replyTo;
    emit composerChanged();
    resumeBackgroundTransfers();
}

void ChatStore::goLive()
{
    if (m_open)
        return;
    m_open = true;
    load();
    connectSocket();
    startPolling();
    drain();
}

void ChatStore::close()
{
    if (!m_open)
        return;
    m_open = false;
    ++m_session;
    m_socketLoop = false;
    m_pollLoop = false;
    m_awaitingRun.clear();
    if (m_socket)
        QMetaObject::invokeMethod(m_socket, &QWebSocket::abort, Qt::QueuedConnection);
    setConnected(false);
}

QCoro::Task<> ChatStore::load()
{
    co_await fetch(true);
}

QCoro::Task<> ChatStore::refresh()
{
    if (m_refreshing) {
        m_refreshPending = true;
        co_return;
    }
    QPointer<ChatStore> self(this);
    m_refreshing = true;
    do {
        m_refreshPending = false;
        co_await fetch(false);
    } while (self && m_refreshPending);
    if (self)
        m_refreshing = false;
}

QCoro::Task<> ChatStore::fetch(bool withActivity)
{
    QPointer<ChatStore> self(this);
    setLoading(true);
    for (;;) {
        QStringList tasks;
        if (!withActivity) {
            for (const Lane &lane : std::as_const(m_lanes)) {
                if (const auto n = lane.taskNumber())
                    tasks.append(QString::number(*n));
            }
        }
        const QString path = ChatEndpoints::messagesSince(
            m_scope, m_cursor,
            withActivity ? std::optional<qint64>(m_activityCursor) : std::nullopt, tasks);
        std::exception_ptr failed;
        MessagesFeed feed;
        bool tooLarge = false;
        try {
            const QByteArray body = co_await m_api.fetch(path);
            tooLarge = body.size() > maxPageBytes;
            if (!tooLarge)
                feed = Decode::from<MessagesFeed>(body);
        } catch (...) {
            failed = std::current_exception();
        }
        if (!self)
            co_return;
        if (tooLarge) {
            setFailure(L::t(u"השרת שלח דף גדול מכדי לשמור אותו במכשיר הזה."_s,
                            u"The server sent a page too large to keep on this device."_s,
                            u"Сервер прислал страницу, слишком большую для этого устройства."_s));
            break;
        }
        if (failed) {
            m_fetchFailed = true;
            m_failureUnreachable = FailureText::isUnreachable(failed);
            if (const QString text = loadFailureText(failed); !text.isEmpty())
                setFailure(text);
            break;
        }
        if (feed.conversationID != m_scope.conversationID()) {
            qCWarning(lcChat) << "ignoring messages of" << feed.conversationID << "for"
                              << m_scope.conversationID();
            break;
        }
        setFailure(QString());
        m_failureUnreachable = false;
        // The server is back after a failure: what waited in the outbox goes now.
        if (std::exchange(m_fetchFailed, false) && m_open)
            drain();
        const qint64 before = m_cursor;
        const qint64 activityBefore = m_activityCursor;
        absorb(feed, m_messages.isEmpty());
        absorbActivity(feed);
        // The rest of a long history comes at once; a reply that moves nothing ends it.
        const bool more = (feed.hasMore && m_cursor > before)
                          || (feed.activityHasMore && m_activityCursor > activityBefore);
        if (!more)
            break;
        withActivity = withActivity || feed.activityHasMore;
    }
    setLoading(false);
}

void ChatStore::index(const ChatMessage &m)
{
    if (m.seq >= 1)
        m_seen.insert(m.seq);
    else
        ++m_locals;
    if (!m.runID)
        return;
    if (m.role == u"assistant")
        m_answered.insert(*m.runID);
    else if (m.role == u"user" && m.seq >= 1)
        m_turnOf.insert(*m.runID, m.seq);
}

void ChatStore::absorb(const MessagesFeed &feed, bool replacing)
{
    if (feed.conversationID != m_scope.conversationID())
        return;
    // Work in proportion to the page, not to the history held: the indexes answer the rest.
    QList<qsizetype> locals; // messages made here from frames or polls, not yet stamped
    if (m_locals > 0) {
        for (qsizetype i = 0; i < m_messages.size(); ++i) {
            if (m_messages.at(i).seq < 1)
                locals.append(i);
        }
    }
    QList<MessageList::Ptr> added;
    bool replaced = false;
    int newReplies = 0;
    // The server's own cursor bounds ours: one bogus seq must not hide everything after it.
    const qint64 ceiling = feed.cursor >= 1 ? std::max(m_cursor, feed.cursor) : ChatJson::maxSeq;
    for (const ChatMessage &incoming : feed.messages) {
        if (incoming.seq < 1 || m_seen.contains(incoming.seq))
            continue;
        m_cursor = std::clamp(incoming.seq, m_cursor, ceiling);
        auto message = std::make_shared<const ChatMessage>(incoming);
        // The stored copy of a reply or turn shown from a frame takes that copy's place.
        const auto local = std::find_if(locals.begin(), locals.end(), [&](qsizetype i) {
            const ChatMessage &m = m_messages.at(i);
            return m.role == incoming.role
                   && ((m.runID && m.runID == incoming.runID)
                       || (m.clientRequestID && m.clientRequestID == incoming.clientRequestID));
        });
        if (local != locals.end()) {
            replaced = true;
            m_messages.replace(*local, message);
            --m_locals;
            index(*message);
            locals.erase(local);
            continue;
        }
        m_messages.append(message);
        index(*message);
        added.append(std::move(message));
        if (!replacing && incoming.role == u"assistant")
            ++newReplies;
    }
    if (feed.messages.isEmpty())
        return;

    // Turns of this device that the server now holds are settled, even when the reply of the
    // send itself was lost; an answer still being made is followed by polling. A stored reply
    // ends the wait for its run, however it came.
    m_awaitingRun.removeIf([this](const QString &run) { return m_answered.contains(run); });
    reconcile(feed);
    for (const ChatMessage &m : feed.messages) {
        if (m.role != u"user" && m.source != u"telegram")
            continue;
        if (m.runID && !m_answered.contains(*m.runID) && !replacing) {
            const bool finished = std::any_of(m_history.begin(), m_history.end(),
                                              [&](const Lane &l) { return l.id == *m.runID; });
            if (!finished) {
                m_awaitingRun.insert(*m.runID);
                poll(*m.runID);
            }
        }
    }

    // A page of newer messages appends rows; anything else rebuilds them.
    const bool moved = placeLanes();
    if (replaced || moved || !appendRows(added)) {
        m_messages.order();
        rebuild();
    }
    persist();
    if (newReplies) {
        m_unread += newReplies;
        emit unreadChanged();
    }
    for (const MessageList::Ptr &m : std::as_const(added))
        emit messageAdded(*m);
}

void ChatStore::absorbActivity(const MessagesFeed &feed)
{
    if (feed.activity.isEmpty())
        return;
    QSet<QString> touched;
    for (const ActivityUpdate &update : feed.activity) {
        if (update.seq >= 1 && update.seq <= m_activityCursor)
            continue;
        laneFor(update.id).replay(update);
        m_activityCursor = std::max(m_activityCursor, update.seq);
        touched.insert(update.id);
    }
    if (feed.activityCursor)
        m_activityCursor = std::max(m_activityCursor, *feed.activityCursor);
    m_lanes = Lane::coalesced(m_lanes);
    for (const QString &id : std::as_const(touched)) {
        if (std::any_of(m_lanes.begin(), m_lanes.end(),
                        [&](const Lane &l) { return l.id == id && l.finished; }))
            archive(id);
    }
    placeLanes();
    rebuild();
    saveActivity();
    for (const QString &id : std::as_const(touched))
        emit laneChanged(laneFor(id));
}

void ChatStore::handle(const ChatFrame &frame)
{
    if (frame.conversationID != m_scope.conversationID())
        return;
    const QString &type = frame.type;
    // A late frame of a run that has ended (a delta after its final, a tool step after it
    // completed) never reopens or relabels its lane.
    const bool late = type == u"run_started" || type == u"delta" || type == u"tool";
    if (late && laneFinished(frame.runID))
        return;
    if (type == u"run_started") {
        // Followed by polling only when it answers a turn of this client.
        const bool ours = (!frame.clientRequestID.isEmpty() && turnOf(frame.clientRequestID))
                          || m_awaitingRun.contains(frame.runID);
        if (frame.userSeq >= 1 && !frame.clientRequestID.isEmpty())
            stamp(frame.userSeq, frame.clientRequestID);
        Lane &lane = laneFor(frame.runID);
        if (frame.userSeq >= 1)
            lane.after = frame.userSeq;
        placeLanes();
        const Lane copy = laneFor(frame.runID);
        showLane(copy);
        saveActivity();
        emit laneChanged(copy);
        if (ours) {
            m_awaitingRun.insert(frame.runID);
            poll(frame.runID);
        }
    } else if (type == u"delta") {
        upsert(frame.runID, frame.label, frame.text, frame.attempt);
    } else if (type == u"tool") {
        Lane &lane = laneFor(frame.runID);
        lane.recordTool(frame.name, frame.summary, frame.status);
        if (lane.after < 1)
            placeLanes();
        const Lane copy = laneFor(frame.runID);
        showLane(copy);
        saveActivity();
        emit laneChanged(copy);
    } else if (type == u"final") {
        finishActivity(frame.runID, frame.finalOutcome());
        m_awaitingRun.remove(frame.runID);
        if (!frame.text.isEmpty())
            appendReply(frame.runID, frame.text, frame.createdAt, frame.voiceFile().value_or(QString()));
    } else if (type == u"error") {
        finishActivity(frame.runID, u"error"_s);
        m_awaitingRun.remove(frame.runID);
        appendReply(frame.runID,
                    frame.error.isEmpty() ? L::t(u"משהו נכשל."_s, u"Something failed."_s,
                                                 u"Что-то пошло не так."_s)
                                          : frame.error,
                    std::nullopt, QString());
    } else if (type == u"tg_live" || type == u"tg_message") {
        refresh();
    }
}

void ChatStore::markRead()
{
    if (m_unread == 0)
        return;
    m_unread = 0;
    emit unreadChanged();
}
