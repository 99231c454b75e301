#include "chatstore.h"

#include "chat/chatbackoff.h"
#include "chat/chatjson.h"
#include "chat/chatorder.h"
#include "chat/chatbackgroundtransfer.h"
#include "chat/chatoutbox.h"
#include "chat/uploadmeter.h"
#include "chat/chatrowsmodel.h"
#include "chat/runrecord.h"
#include "chat/transcript.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/reachability.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QCoroWebSocket>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QWebSocket>

#include <algorithm>

Q_LOGGING_CATEGORY(lcChat, "halvenmark.chat", QtWarningMsg)

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QList<QPointer<ChatStore>> &liveStores()
{
    // Pointers only; main thread.
    static QList<QPointer<ChatStore>> stores;
    return stores;
}

QString seqKey(qint64 seq)
{
    return u"seq:"_s + QString::number(seq);
}

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

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

ChatStore::ChatStore(ChatScope scope, QString account, QString role, ChatDependencies deps,
                     QObject *parent)
    : QObject(parent)
    , m_scope(std::move(scope))
    , m_account(std::move(account))
    , m_role(std::move(role))
    , m_sleeper(deps.sleeper ? deps.sleeper : &Sleeper::real())
    , m_reachability(deps.reachability ? deps.reachability : Reachability::platform(this))
    , m_model(new ChatRowsModel(this))
    , m_outbox(std::make_unique<ChatOutbox>(m_scope.storageKey(m_account)))
    , m_courier(m_scope, m_scope.storageKey(m_account), m_sleeper)
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
    m_messages.clear();
    m_lanes.clear();
    m_history.clear();
    m_seen.clear();
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

void ChatStore::hydrate()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    const bool owner = m_role == u"owner";
    if (const auto bytes = AtomicFile::read(QDir(dir).filePath(Transcript::fileName(storageKey(), owner)))) {
        if (auto contents = Transcript::decode(*bytes)) {
            m_messages = std::move(contents->messages);
            m_cachedSeq = contents->cachedSeq;
            for (const ChatMessage &m : std::as_const(m_messages)) {
                if (m.seq >= 1) {
                    m_seen.insert(seqKey(m.seq));
                    m_cursor = std::max(m_cursor, m.seq);
                }
            }
            orderMessages(m_messages);
        }
    }
    if (const auto bytes = AtomicFile::read(QDir(dir).filePath(Transcript::activityFileName(storageKey())))) {
        for (Lane &lane : Transcript::decodeLanes(*bytes))
            (lane.finished ? m_history : m_lanes).append(std::move(lane));
        if (m_history.size() > maxHistory)
            m_history.remove(0, m_history.size() - maxHistory);
    }
    placeLanes();
    rebuild();
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
        QString base = u"webapi/messages?since="_s + QString::number(m_cursor);
        if (withActivity) {
            base += u"&activity_since="_s + QString::number(m_activityCursor);
        } else {
            QStringList tasks;
            for (const Lane &lane : std::as_const(m_lanes)) {
                if (const auto n = lane.taskNumber())
                    tasks.append(QString::number(*n));
            }
            if (!tasks.isEmpty())
                base += u"&tasks="_s + tasks.join(u',');
        }
        std::exception_ptr failed;
        MessagesFeed feed;
        bool tooLarge = false;
        try {
            const QByteArray body = co_await Api::fetch(m_scope.path(base));
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

void ChatStore::absorb(const MessagesFeed &feed, bool replacing)
{
    if (feed.conversationID != m_scope.conversationID())
        return;
    QHash<qint64, qsizetype> bySeq;
    QList<qsizetype> locals; // messages made here from frames or polls, not yet stamped
    for (qsizetype i = 0; i < m_messages.size(); ++i) {
        if (m_messages.at(i).seq >= 1)
            bySeq.insert(m_messages.at(i).seq, i);
        else
            locals.append(i);
    }
    QList<ChatMessage> added;
    bool replaced = false;
    int newReplies = 0;
    // The server's own cursor bounds ours: one bogus seq must not hide everything after it.
    const qint64 ceiling = feed.cursor >= 1 ? std::max(m_cursor, feed.cursor) : ChatJson::maxSeq;
    for (const ChatMessage &incoming : feed.messages) {
        if (incoming.seq < 1 || m_seen.contains(seqKey(incoming.seq)))
            continue;
        m_seen.insert(seqKey(incoming.seq));
        m_cursor = std::clamp(incoming.seq, m_cursor, ceiling);
        if (const auto at = bySeq.find(incoming.seq); at != bySeq.end()) {
            m_messages[*at] = incoming;
            replaced = true;
            continue;
        }
        // The stored copy of a reply or turn shown from a frame takes that copy's place.
        const auto local = std::find_if(locals.begin(), locals.end(), [&](qsizetype i) {
            const ChatMessage &m = m_messages.at(i);
            return m.role == incoming.role
                   && ((m.runID && m.runID == incoming.runID)
                       || (m.clientRequestID && m.clientRequestID == incoming.clientRequestID));
        });
        if (local != locals.end()) {
            replaced = true;
            m_messages[*local] = incoming;
            bySeq.insert(incoming.seq, *local);
            locals.erase(local);
            continue;
        }
        bySeq.insert(incoming.seq, m_messages.size());
        m_messages.append(incoming);
        added.append(incoming);
        if (!replacing && incoming.role == u"assistant")
            ++newReplies;
    }
    if (feed.messages.isEmpty())
        return;

    // Turns of this device that the server now holds are settled, even when the reply of the
    // send itself was lost; an answer still being made is followed by polling.
    QSet<QString> answered;
    for (const ChatMessage &m : std::as_const(m_messages)) {
        if (m.role == u"assistant" && m.runID)
            answered.insert(*m.runID);
    }
    // A stored reply ends the wait for its run, however it came.
    for (const QString &run : std::as_const(answered))
        m_awaitingRun.remove(run);
    reconcile(feed);
    for (const ChatMessage &m : feed.messages) {
        if (m.role != u"user" && m.source != u"telegram")
            continue;
        if (m.runID && !answered.contains(*m.runID) && !replacing) {
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
        orderMessages(m_messages);
        rebuild();
    }
    persist();
    if (newReplies) {
        m_unread += newReplies;
        emit unreadChanged();
    }
    for (const ChatMessage &m : std::as_const(added))
        emit messageAdded(m);
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

Lane &ChatStore::laneFor(const QString &runID)
{
    for (Lane &lane : m_lanes) {
        if (lane.id == runID)
            return lane;
    }
    for (Lane &lane : m_history) {
        if (lane.id == runID)
            return lane;
    }
    // No label or text yet: the card shows Lane::heading() until the run says something.
    Lane lane;
    lane.id = runID;
    lane.after = m_anchors.value(runID, 0);
    m_lanes.append(lane);
    return m_lanes.last();
}

bool ChatStore::laneFinished(const QString &runID) const
{
    const auto same = [&](const Lane &l) { return l.id == runID && l.finished; };
    return std::any_of(m_history.begin(), m_history.end(), same)
           || std::any_of(m_lanes.begin(), m_lanes.end(), same);
}

void ChatStore::upsert(const QString &runID, const QString &label, const QString &text,
                       std::optional<int> attempt)
{
    if (laneFinished(runID))
        return;
    const qsizetype lanesBefore = m_lanes.size() + m_history.size();
    Lane &lane = laneFor(runID);
    if (!label.isEmpty())
        lane.label = label;
    if (!text.isEmpty())
        lane.text = text;
    if (attempt)
        lane.attempt = attempt;
    const Lane copy = lane;
    if (m_lanes.size() + m_history.size() != lanesBefore)
        rebuild();
    else
        rebuildLane(copy);
    saveActivity();
    emit laneChanged(copy);
}

void ChatStore::rebuildLane(const Lane &lane)
{
    // A streamed lane changes one row; only a move or a new lane needs the whole list.
    const qsizetype at = m_laneRows.value(lane.id, -1);
    if (at < 0 || m_rows.at(at).lane()->after != lane.after) {
        rebuild();
        return;
    }
    m_rows[at] = Row::lane(lane);
    m_model->replace(int(at), m_rows.at(at));
}

void ChatStore::rebuild()
{
    QList<Lane> all = m_history;
    all.append(m_lanes);
    m_rows = buildRows(m_messages, all);
    m_laneRows.clear();
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (const Lane *lane = m_rows.at(i).lane())
            m_laneRows.insert(lane->id, i);
    }
    m_model->update(m_rows);
}

bool ChatStore::placeLanes()
{
    QHash<QString, qint64> turnOf; // run id → seq of the user message that started it
    for (const ChatMessage &m : std::as_const(m_messages)) {
        if (m.role == u"user" && m.runID && m.seq >= 1)
            turnOf.insert(*m.runID, m.seq);
    }
    bool moved = false;
    auto place = [&](Lane &lane) {
        if (lane.after < 1)
            lane.after = turnOf.value(lane.id, m_anchors.value(lane.id, 0));
        if (lane.after >= 1 && m_anchors.value(lane.id, 0) != lane.after) {
            m_anchors.insert(lane.id, lane.after);
            moved = true;
        }
    };
    std::for_each(m_lanes.begin(), m_lanes.end(), place);
    std::for_each(m_history.begin(), m_history.end(), place);
    if (!moved)
        return false;
    // Bounded: past the cap only the lanes still held keep their anchor.
    if (m_anchors.size() > maxAnchors) {
        QSet<QString> held;
        for (const Lane &lane : std::as_const(m_lanes))
            held.insert(lane.id);
        for (const Lane &lane : std::as_const(m_history))
            held.insert(lane.id);
        m_anchors.removeIf([&](const auto &it) { return !held.contains(it.key()); });
    }
    QVariantMap anchors;
    for (auto it = m_anchors.begin(); it != m_anchors.end(); ++it)
        anchors.insert(it.key(), it.value());
    AppData::setSetting(laneAnchorKey(), anchors);
    return true;
}

bool ChatStore::appendRows(const QList<ChatMessage> &added)
{
    // Only when the new messages simply follow the rows there are (the usual page of newer
    // messages): the rows end in a message, the new ones sort after it and in their order,
    // and no lane sits under them. Anything else takes the full rebuild.
    const qsizetype old = m_messages.size() - added.size();
    if (added.isEmpty() || old < 0 || m_rows.isEmpty() || !m_rows.constLast().isMessage())
        return false;
    QList<ChatMessage> tail{m_messages.at(old - 1 < 0 ? 0 : old - 1)};
    if (old == 0)
        tail.clear();
    tail.append(added);
    QList<ChatMessage> ordered = tail;
    orderMessages(ordered);
    for (qsizetype i = 0; i < tail.size(); ++i) {
        if (ordered.at(i).localID != tail.at(i).localID)
            return false;
    }
    QSet<qint64> seqs;
    for (const ChatMessage &m : added)
        seqs.insert(m.seq);
    for (const QList<Lane> *list : {&m_lanes, &m_history}) {
        for (const Lane &lane : *list) {
            if (lane.after < 1 || seqs.contains(lane.after))
                return false;
        }
    }
    QList<Row> rows;
    rows.reserve(added.size());
    for (const ChatMessage &m : added)
        rows.append(Row::message(m));
    m_rows.append(rows);
    m_model->append(rows);
    return true;
}

void ChatStore::finishActivity(const QString &runID, const QString &outcome)
{
    Lane &lane = laneFor(runID);
    lane.finished = true;
    lane.outcome = outcome;
    const Lane copy = lane;
    archive(runID);
    rebuild();
    saveActivity();
    emit laneChanged(copy);
}

void ChatStore::archive(const QString &runID)
{
    for (qsizetype i = 0; i < m_lanes.size(); ++i) {
        if (m_lanes.at(i).id == runID && m_lanes.at(i).finished) {
            m_history.append(m_lanes.takeAt(i));
            // The oldest finished lanes go first; their replies stay in the transcript.
            if (m_history.size() > maxHistory)
                m_history.remove(0, m_history.size() - maxHistory);
            return;
        }
    }
}

void ChatStore::appendReply(const QString &runID, const QString &text,
                            std::optional<double> createdAt, const QString &voiceFile)
{
    // Whichever comes first (frame, poll or fetch) shows the reply; the others find it there.
    for (const ChatMessage &m : std::as_const(m_messages)) {
        if (m.role == u"assistant" && m.runID == runID)
            return;
    }
    ChatMessage reply = ChatMessage::make(u"assistant"_s, text, createdAt.value_or(now()));
    reply.runID = runID;
    if (!voiceFile.isEmpty())
        reply.voiceFile = voiceFile;
    append(std::move(reply));
    ++m_unread;
    emit unreadChanged();
}

void ChatStore::append(ChatMessage message)
{
    const ChatMessage copy = message;
    m_messages.append(std::move(message));
    // Nearly always already in place; a stable sort keeps it cheap and exact.
    if (m_messages.size() > 1 && m_messages.at(m_messages.size() - 2).createdAt > copy.createdAt)
        orderMessages(m_messages);
    rebuild();
    persist();
    emit messageAdded(copy);
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
        const Lane copy = lane;
        placeLanes();
        rebuild();
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
        const Lane copy = lane;
        if (copy.after < 1)
            placeLanes();
        rebuildLane(copy);
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

void ChatStore::persist()
{
    // One pending write, newest wins: a first load of a hundred pages writes once.
    m_transcriptSave.schedule();
}

void ChatStore::writeTranscript()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    for (const ChatMessage &m : std::as_const(m_messages))
        m_cachedSeq = std::max(m_cachedSeq, m.seq);
    const QString file = QDir(dir).filePath(Transcript::fileName(storageKey(), m_role == u"owner"));
    // The list is shared, not copied, until this thread changes it again. Only the newest
    // messages are kept on the device; the server holds the rest.
    Transcript::Contents contents{m_messages.size() > maxTranscript
                                      ? m_messages.mid(m_messages.size() - maxTranscript)
                                      : m_messages,
                                  m_cachedSeq};
    m_disk.start([file, contents = std::move(contents)] {
        if (!AtomicFile::write(file, Transcript::encode(contents)))
            qCWarning(lcChat) << "could not write the transcript" << file;
    });
}

void ChatStore::saveActivity()
{
    m_activitySave.schedule();
}

void ChatStore::writeActivity()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    QList<Lane> all = m_history;
    all.append(m_lanes);
    const QString file = QDir(dir).filePath(Transcript::activityFileName(storageKey()));
    m_disk.start([file, all = std::move(all)] {
        if (!AtomicFile::write(file, Transcript::encodeLanes(all)))
            qCWarning(lcChat) << "could not write the lanes" << file;
    });
}

void ChatStore::flushDisk()
{
    m_transcriptSave.flush();
    m_activitySave.flush();
    m_disk.waitForDone();
}

QList<ChatScope> ChatStore::knownScopes(const QString &account)
{
    QList<ChatScope> scopes{ChatScope::main()};
    const QVariantMap known = AppData::setting(u"chat.projects."_s + account).toMap();
    for (auto it = known.begin(); it != known.end(); ++it) {
        bool number = false;
        const int id = it.key().toInt(&number);
        if (number)
            scopes.append(ChatScope::project(id));
    }
    return scopes;
}

namespace {

// What a sign-out leaves of one outbox folder: its unsent turns and their files, readable by
// this user only; the composer, drafts and stray files go. An empty outbox goes whole.
void keepUnsentOnly(const QString &folder)
{
    ChatOutbox outbox = ChatOutbox::at(folder);
    outbox.load();
    if (outbox.state().turns.isEmpty()) {
        outbox.removeAll();
        return;
    }
    outbox.setComposer(std::nullopt, std::nullopt);
    outbox.clearDrafts();
    outbox.sweep(std::chrono::seconds(0));
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                      | QFileDevice::ExeOwner);
}

} // namespace

QStringList ChatStore::outboxFolders(const QString &account)
{
    QStringList out;
    for (const ChatScope &scope : knownScopes(account))
        out.append(ChatOutbox::folderFor(scope.storageKey(account)));
    return out;
}

int ChatStore::unsentCount(const QString &account)
{
    int n = 0;
    for (const QString &folder : outboxFolders(account)) {
        if (!QFileInfo(folder).isDir())
            continue;
        ChatOutbox outbox = ChatOutbox::at(folder);
        outbox.load();
        n += int(outbox.state().turns.size());
    }
    return n;
}

void ChatStore::removeOutboxes(const QStringList &folders)
{
    for (const QString &folder : folders)
        QDir(folder).removeRecursively();
}

void ChatStore::resetAll(Unsent unsent)
{
    for (const QPointer<ChatStore> &store : liveStores()) {
        if (!store)
            continue;
        store->close();
        store->flushDisk();
        store->reset();
    }
    for (const QString &folder : {u"transcript"_s, u"background-chat"_s}) {
        const QString path = AppData::path(folder);
        if (!path.isEmpty())
            QDir(path).removeRecursively();
    }
    const QString outboxes = AppData::path(u"chat-outbox"_s);
    if (!outboxes.isEmpty()) {
        if (unsent == Unsent::Remove) {
            QDir(outboxes).removeRecursively();
        } else {
            // Nothing the user sent is lost: an expired session keeps what it could not send.
            const QStringList folders = QDir(outboxes).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            for (const QString &name : folders)
                keepUnsentOnly(QDir(outboxes).filePath(name));
        }
    }
    for (const QPointer<ChatStore> &store : liveStores()) {
        if (!store)
            continue;
        store->m_outbox->load();
        store->m_composer.clear();
        store->m_replyTo.reset();
        store->m_attachments.clear();
        store->m_stamped.clear();
        store->restorePending();
        emit store->composerChanged();
    }
    AppData::removeSettings(u"chat.laneAnchors."_s);
    // The list of project conversations finds their kept turns at the next sign-in.
    if (unsent == Unsent::Remove)
        AppData::removeSettings(u"chat.projects."_s);
}
