#pragma once

#include "chat/model/chatframe.h"
#include "chat/model/chatscope.h"
#include "chat/model/messagesfeed.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QSet>

#include <chrono>

class Api;
class ChatOutbox;
class ChatTimeline;
class QWebSocket;
class Reachability;
class Sleeper;

// The conversation kept in step with the server: fetches from the cursor, the chat socket
// with its back-off, a refresh every 12 s, and the polling of runs whose frames may be lost.
// Every task it starts holds it weakly.
class ChatSync : public QObject
{
    Q_OBJECT

public:
    // Runs followed by polling at once; the others wait for one of these to end.
    static constexpr qsizetype maxPolls = 4;
    // One fetched page.
    static constexpr qsizetype maxPageBytes = 32 * 1024 * 1024;
    // A socket that stays open this long (or delivers a frame) was healthy: back-off resets.
    static constexpr std::chrono::seconds steadySocket{30};

    ChatSync(Api &api, ChatScope scope, ChatTimeline &timeline, const ChatOutbox &outbox,
             Sleeper &sleeper, Reachability &reachability, QObject *parent = nullptr);

    bool isOpen() const { return m_open; }
    bool connected() const { return m_connected; }
    bool loading() const { return m_loading; }
    QString failure() const { return m_failure; }
    bool failureUnreachable() const { return m_failureUnreachable; }
    bool networkAvailable() const { return m_networkAvailable; }
    const QSet<QString> &awaitingRuns() const { return m_awaitingRun; }

    // A load, the socket and the poller.
    void open();
    // Ends the socket, the poller and every poll.
    void close();
    // Forgets the runs waited for and the failure (a reset).
    void clear();

    // One fetch from the cursor (with the activity); refresh() asks for open tasks instead.
    QCoro::Task<> load();
    QCoro::Task<> refresh();
    void connectSocket();
    void startPolling();
    void handle(const ChatFrame &frame);
    // A page was taken in: runs of turns it holds that are still unanswered are followed.
    void follow(const MessagesFeed &feed, bool replacing);
    // Waits for the answer of a run (a turn of this device started it).
    void await(const QString &runID);

signals:
    void connectedChanged();
    void loadingChanged();
    void failureChanged();
    void networkAvailableChanged();
    // A page of messages came, to be taken in before the next is asked for.
    void pageArrived(const MessagesFeed &feed, bool replacing);
    // A frame as the socket delivered it, whatever its conversation.
    void frameArrived(const ChatFrame &frame);
    // The server named the seq of a turn of this device.
    void stamped(qint64 seq, const QString &requestID);
    // The server is reachable again after a failure: what waited may go.
    void recovered();

private:
    QCoro::Task<> fetch(bool withActivity);
    static QCoro::Task<> socketLoop(QPointer<ChatSync> sync);
    static QCoro::Task<> pollLoop(QPointer<ChatSync> sync);
    static QCoro::Task<> followRun(QPointer<ChatSync> sync, QString runID);
    void poll(const QString &runID);
    void onSocketText(const QString &text);
    bool ownTurn(const QString &requestID) const;
    void setConnected(bool connected);
    void setLoading(bool loading);
    void setFailure(const QString &failure);
    void setNetworkAvailable(bool available);

    Api &m_api;
    ChatScope m_scope;
    ChatTimeline &m_timeline;
    const ChatOutbox &m_outbox;
    Sleeper &m_sleeper;

    bool m_open = false;
    int m_session = 0; // bumped by close(): loops of an older opening stop
    bool m_connected = false;
    bool m_loading = false;
    QString m_failure;
    bool m_failureUnreachable = false;
    bool m_networkAvailable = true;

    QPointer<QWebSocket> m_socket;
    bool m_socketLoop = false;
    bool m_pollLoop = false;
    int m_retries = 0;
    int m_frames = 0; // frames received since the socket last opened
    bool m_fetchFailed = false; // the last fetch failed: the next success drains
    bool m_refreshing = false;
    bool m_refreshPending = false;
    QSet<QString> m_polling;
    QSet<QString> m_awaitingRun;
};
