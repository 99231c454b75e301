// The live half of the chat store: the chat socket with its back-off, the periodic
// refresh and the polling of runs whose frames may have been lost.

#include "chat/store/chatstore.h"
#include "chat/model/chatendpoints.h"
#include "chat/chatlogging.h"

#include "chat/store/chatbackoff.h"
#include "chat/model/runrecord.h"
#include "net/api.h"
#include "platform/shutdown.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QElapsedTimer>
#include <QCoroWebSocket>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QWebSocket>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

struct DeleteLater {
    void operator()(QObject *o) const
    {
        if (o)
            o->deleteLater();
    }
};

} // namespace

void ChatStore::onSocketText(const QString &text)
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

void ChatStore::connectSocket()
{
    if (m_socketLoop || !m_open)
        return;
    m_socketLoop = true;
    socketLoop(this);
}

QCoro::Task<> ChatStore::socketLoop(QPointer<ChatStore> store)
{
    const int session = store->m_session;
    Sleeper *sleeper = store->m_sleeper;
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
                         &ChatStore::onSocketText);
        store->m_socket = socket.get();
        const bool opened = co_await qCoro(socket.get()).open(request, 15s);
        if (!current())
            break;
        if (opened) {
            store->m_frames = 0;
            store->setConnected(true);
            // Back after a drop: what waited in the outbox goes now.
            if (std::exchange(reopening, true))
                store->drain();
            QElapsedTimer open;
            open.start();
            // Looked at four times a second rather than awaiting the signal with a time-out,
            // whose QCoro 0.8 timer can outlive the wait.
            // The real sleeper, not the store's: it wakes when the process ends.
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

void ChatStore::startPolling()
{
    if (m_pollLoop || !m_open)
        return;
    m_pollLoop = true;
    pollLoop(this);
}

QCoro::Task<> ChatStore::pollLoop(QPointer<ChatStore> store)
{
    const int session = store->m_session;
    Sleeper *sleeper = store->m_sleeper;
    for (;;) {
        co_await sleeper->sleep(12s);
        if (!store || !store->m_open || store->m_session != session || Shutdown::begun())
            co_return;
        co_await store->refresh();
    }
}

void ChatStore::poll(const QString &runID)
{
    if (runID.isEmpty() || m_polling.contains(runID) || !m_awaitingRun.contains(runID))
        return;
    // A few at once; the others wait their turn (frames and refreshes still reach them).
    if (m_polling.size() >= maxPolls)
        return;
    m_polling.insert(runID);
    followRun(this, runID);
}

QCoro::Task<> ChatStore::followRun(QPointer<ChatStore> store, QString runID)
{
    Sleeper *sleeper = store->m_sleeper;
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
            store->upsert(runID, run->label, run->text, run->attempt);
            continue;
        }
        store->m_awaitingRun.remove(runID);
        store->finishActivity(runID, run->outcome.isEmpty() ? u"complete"_s : run->outcome);
        QString text = run->text;
        if (text.isEmpty() && (!run->error.isEmpty() || run->status == u"error"))
            text = run->error.isEmpty() ? L::t(u"משהו נכשל."_s, u"Something failed."_s,
                                               u"Что-то пошло не так."_s)
                                        : run->error;
        if (!text.isEmpty())
            store->appendReply(runID, text, run->createdAt, run->voiceFile().value_or(QString()));
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
