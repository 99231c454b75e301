#include "chat/store/chatsync.h"
#include "chat/chatlogging.h"

#include "chat/model/chatendpoints.h"
#include "chat/model/runrecord.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatbackoff.h"
#include "chat/store/chattimeline.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "platform/reachability.h"
#include "platform/shutdown.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QCoroWebSocket>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QWebSocket>

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

struct DeleteLater {
    void operator()(QObject *o) const
    {
        if (o)
            o->deleteLater();
    }
};

} // namespace

ChatSync::ChatSync(Api &api, ChatScope scope, ChatTimeline &timeline, const ChatOutbox &outbox,
                   Sleeper &sleeper, Reachability &reachability, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_scope(std::move(scope))
    , m_timeline(timeline)
    , m_outbox(outbox)
    , m_sleeper(sleeper)
    , m_networkAvailable(reachability.available())
{
    QObject::connect(&reachability, &Reachability::availableChanged, this,
                     &ChatSync::setNetworkAvailable);
}

void ChatSync::setConnected(bool connected)
{
    if (m_connected == connected)
        return;
    m_connected = connected;
    emit connectedChanged();
}

void ChatSync::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    emit loadingChanged();
}

void ChatSync::setFailure(const QString &failure)
{
    if (m_failure == failure)
        return;
    m_failure = failure;
    emit failureChanged();
}

void ChatSync::setNetworkAvailable(bool available)
{
    if (m_networkAvailable == available)
        return;
    m_networkAvailable = available;
    emit networkAvailableChanged();
    // Back on the network: catch up on what the socket missed, and send what waited.
    if (available && m_open) {
        refresh();
        emit recovered();
    }
}

bool ChatSync::ownTurn(const QString &requestID) const
{
    if (requestID.isEmpty())
        return false;
    const QList<OutboxTurn> &turns = m_outbox.state().turns;
    return std::any_of(turns.begin(), turns.end(),
                       [&](const OutboxTurn &t) { return t.id == requestID; });
}

void ChatSync::clear()
{
    m_awaitingRun.clear();
    setFailure(QString());
}

void ChatSync::open()
{
    if (m_open)
        return;
    m_open = true;
    load();
    connectSocket();
    startPolling();
}

void ChatSync::close()
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

void ChatSync::follow(const MessagesFeed &feed, bool replacing)
{
    // Turns of this device that the server now holds are settled, even when the reply of the
    // send itself was lost; an answer still being made is followed by polling. A stored reply
    // ends the wait for its run, however it came.
    m_awaitingRun.removeIf([this](const QString &run) { return m_timeline.answered(run); });
    if (replacing)
        return;
    for (const ChatMessage &m : feed.messages) {
        if (m.role != u"user" && m.source != u"telegram")
            continue;
        if (m.runID && !m_timeline.answered(*m.runID) && !m_timeline.laneFinished(*m.runID)) {
            m_awaitingRun.insert(*m.runID);
            poll(*m.runID);
        }
    }
}

void ChatSync::await(const QString &runID)
{
    m_awaitingRun.insert(runID);
    poll(runID);
}

QCoro::Task<> ChatSync::load()
{
    co_await fetch(true);
}

QCoro::Task<> ChatSync::refresh()
{
    if (m_refreshing) {
        m_refreshPending = true;
        co_return;
    }
    QPointer<ChatSync> self(this);
    m_refreshing = true;
    do {
        m_refreshPending = false;
        co_await fetch(false);
    } while (self && m_refreshPending);
    if (self)
        m_refreshing = false;
}

QCoro::Task<> ChatSync::fetch(bool withActivity)
{
    QPointer<ChatSync> self(this);
    setLoading(true);
    for (;;) {
        const QString path = ChatEndpoints::messagesSince(
            m_scope, m_timeline.cursor(),
            withActivity ? std::optional<qint64>(m_timeline.activityCursor()) : std::nullopt,
            withActivity ? QStringList() : m_timeline.laneTasks());
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
            emit recovered();
        if (!self)
            co_return;
        const qint64 before = m_timeline.cursor();
        const qint64 activityBefore = m_timeline.activityCursor();
        emit pageArrived(feed, m_timeline.messages().isEmpty());
        if (!self)
            co_return;
        // The rest of a long history comes at once; a reply that moves nothing ends it.
        const bool more = (feed.hasMore && m_timeline.cursor() > before)
                          || (feed.activityHasMore && m_timeline.activityCursor() > activityBefore);
        if (!more)
            break;
        withActivity = withActivity || feed.activityHasMore;
    }
    setLoading(false);
}

void ChatSync::handle(const ChatFrame &frame)
{
    if (frame.conversationID != m_scope.conversationID())
        return;
    const QString &type = frame.type;
    // A late frame of a run that has ended (a delta after its final, a tool step after it
    // completed) never reopens or relabels its lane.
    const bool late = type == u"run_started" || type == u"delta" || type == u"tool";
    if (late && m_timeline.laneFinished(frame.runID))
        return;
    if (type == u"run_started") {
        // Followed by polling only when it answers a turn of this client.
        const bool ours = (!frame.clientRequestID.isEmpty() && ownTurn(frame.clientRequestID))
                          || m_awaitingRun.contains(frame.runID);
        if (frame.userSeq >= 1 && !frame.clientRequestID.isEmpty())
            emit stamped(frame.userSeq, frame.clientRequestID);
        m_timeline.startLane(frame.runID, frame.userSeq);
        if (ours) {
            m_awaitingRun.insert(frame.runID);
            poll(frame.runID);
        }
    } else if (type == u"delta") {
        m_timeline.upsert(frame.runID, frame.label, frame.text, frame.attempt);
    } else if (type == u"tool") {
        m_timeline.recordTool(frame.runID, frame.name, frame.summary, frame.status);
    } else if (type == u"final") {
        m_timeline.finishActivity(frame.runID, frame.finalOutcome());
        m_awaitingRun.remove(frame.runID);
        if (!frame.text.isEmpty())
            m_timeline.appendReply(frame.runID, frame.text, frame.createdAt, frame.voiceFile().value_or(QString()));
    } else if (type == u"error") {
        m_timeline.finishActivity(frame.runID, u"error"_s);
        m_awaitingRun.remove(frame.runID);
        m_timeline.appendReply(frame.runID,
                    frame.error.isEmpty() ? L::t(u"משהו נכשל."_s, u"Something failed."_s,
                                                 u"Что-то пошло не так."_s)
                                          : frame.error,
                    std::nullopt, QString());
    } else if (type == u"tg_live" || type == u"tg_message") {
        refresh();
    }
}

void ChatSync::onSocketText(const QString &text)
{
    ++m_frames;
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
    if (!doc.isObject())
        return;
    try {
        const ChatFrame frame = ChatFrame::fromJson(doc.object());
        emit frameArrived(frame);
        handle(frame);
    } catch (const DecodeError &e) {
        qCDebug(lcChat) << "ignoring a frame:" << e.description();
    }
}

void ChatSync::connectSocket()
{
    if (m_socketLoop || !m_open)
        return;
    m_socketLoop = true;
    socketLoop(this);
}

QCoro::Task<> ChatSync::socketLoop(QPointer<ChatSync> store)
{
    const int session = store->m_session;
    Sleeper *sleeper = &store->m_sleeper;
    auto current = [&] {
        return store && store->m_open && store->m_session == session && !Shutdown::begun();
    };
    bool reopening = false;
    while (current()) {
        // Deleted later, never from inside one of its own signals.
        std::unique_ptr<QWebSocket, DeleteLater> socket;
        QNetworkRequest request;
        try {
            Api::PendingSocket pending = store->m_api.socket(ChatEndpoints::socket(store->m_scope));
            socket.reset(pending.socket.release());
            request = pending.request;
        } catch (const Api::Unauthorized &) {
            break; // signed out: the session takes it from here
        }
        QObject::connect(socket.get(), &QWebSocket::textMessageReceived, store,
                         &ChatSync::onSocketText);
        store->m_socket = socket.get();
        const bool opened = co_await qCoro(socket.get()).open(request, 15s);
        if (!current())
            break;
        if (opened) {
            store->m_frames = 0;
            store->setConnected(true);
            // Back after a drop: what waited in the outbox goes now.
            if (std::exchange(reopening, true))
                emit store->recovered();
            QElapsedTimer open;
            open.start();
            // Looked at four times a second rather than awaiting the signal with a time-out,
            // whose QCoro 0.8 timer can outlive the wait. The real sleeper, not the store's:
            // it wakes when the process ends.
            while (current() && socket->state() == QAbstractSocket::ConnectedState)
                co_await Sleeper::real().sleep(250ms);
            if (!store)
                co_return;
            store->setConnected(false);
            if (!current())
                break;
            // A server that closes right after opening keeps the back-off growing.
            if (store->m_frames > 0 || open.elapsed() >= std::chrono::milliseconds(steadySocket).count())
                store->m_retries = 0;
        }
        ++store->m_retries;
        const auto wait = ChatBackoff::delay(store->m_retries);
        qCDebug(lcChat) << "chat socket down; trying again in" << wait.count() << "ms";
        co_await sleeper->sleep(wait);
    }
    if (store && store->m_session == session)
        store->m_socketLoop = false;
}

void ChatSync::startPolling()
{
    if (m_pollLoop || !m_open)
        return;
    m_pollLoop = true;
    pollLoop(this);
}

QCoro::Task<> ChatSync::pollLoop(QPointer<ChatSync> store)
{
    const int session = store->m_session;
    Sleeper *sleeper = &store->m_sleeper;
    for (;;) {
        co_await sleeper->sleep(12s);
        if (!store || !store->m_open || store->m_session != session || Shutdown::begun())
            co_return;
        co_await store->refresh();
    }
}

void ChatSync::poll(const QString &runID)
{
    if (runID.isEmpty() || m_polling.contains(runID) || !m_awaitingRun.contains(runID))
        return;
    // A few at once; the others wait their turn (frames and refreshes still reach them).
    if (m_polling.size() >= maxPolls)
        return;
    m_polling.insert(runID);
    followRun(this, runID);
}

QCoro::Task<> ChatSync::followRun(QPointer<ChatSync> store, QString runID)
{
    Sleeper *sleeper = &store->m_sleeper;
    auto awaited = [&] {
        return store && store->m_open && store->m_awaitingRun.contains(runID) && !Shutdown::begun();
    };
    while (awaited()) {
        co_await sleeper->sleep(2s);
        if (!awaited())
            break;
        std::optional<RunRecord> run;
        try {
            const auto body = co_await store->m_api.raw(ChatEndpoints::run(runID), "GET"_ba, 25s);
            if (body)
                run = RunRecord::fromJson(*body);
        } catch (const std::exception &e) {
            qCDebug(lcChat) << "run poll failed, trying again:" << e.what();
        }
        if (!awaited() || !run)
            continue;
        if (!run->done) {
            store->m_timeline.upsert(runID, run->label, run->text, run->attempt);
            continue;
        }
        store->m_awaitingRun.remove(runID);
        store->m_timeline.finishActivity(runID, run->outcome.isEmpty() ? u"complete"_s : run->outcome);
        QString text = run->text;
        if (text.isEmpty() && (!run->error.isEmpty() || run->status == u"error"))
            text = run->error.isEmpty() ? L::t(u"משהו נכשל."_s, u"Something failed."_s,
                                               u"Что-то пошло не так."_s)
                                        : run->error;
        if (!text.isEmpty())
            store->m_timeline.appendReply(runID, text, run->createdAt, run->voiceFile().value_or(QString()));
        break;
    }
    if (!store)
        co_return;
    store->m_polling.remove(runID);
    if (!store->m_open)
        co_return;
    for (const QString &next : std::as_const(store->m_awaitingRun)) {
        if (!store->m_polling.contains(next)) {
            store->poll(next);
            break;
        }
    }
}
