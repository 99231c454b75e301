#pragma once

#include "chat/chatframe.h"
#include "chat/chatmessage.h"
#include "chat/chatscope.h"
#include "chat/lane.h"
#include "chat/messagesfeed.h"
#include "chat/row.h"
#include "platform/debouncer.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QThreadPool>

#include <memory>

class ChatRowsModel;
class QWebSocket;
class Reachability;
class Sleeper;

// What a chat store waits with and asks about the network; the platform's when null.
struct ChatDependencies {
    Sleeper *sleeper = nullptr;
    Reachability *reachability = nullptr;
};

// One conversation kept in step with the server: the stored transcript at once, what is new
// by fetch, the agent's work live over the chat socket, polling behind it, and the network
// watched. Lives on the main thread; every task it starts holds it weakly.
class ChatStore : public QObject
{
    Q_OBJECT
    // The rows the chat screen draws: messages, each followed by the lanes under it.
    Q_PROPERTY(ChatRowsModel *rows READ rows CONSTANT)
    // The chat socket is open.
    Q_PROPERTY(bool connected READ connected NOTIFY connectedChanged)
    // A load is running.
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    // Assistant messages that arrived since the screen last said it was at the bottom.
    Q_PROPERTY(int unread READ unread NOTIFY unreadChanged)
    // Why the conversation could not be loaded; "" when it could.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // A passing notice.
    Q_PROPERTY(QString banner READ banner NOTIFY bannerChanged)
    // The device has a network path.
    Q_PROPERTY(bool networkAvailable READ networkAvailable NOTIFY networkAvailableChanged)
    // Counters the screen watches: scroll to the end, jump, focus the composer, reveal a seq.
    Q_PROPERTY(int sentTick READ sentTick NOTIFY ticksChanged)
    Q_PROPERTY(int jumpTick READ jumpTick NOTIFY ticksChanged)
    Q_PROPERTY(int focusTick READ focusTick NOTIFY ticksChanged)
    Q_PROPERTY(qint64 revealSeq READ revealSeq NOTIFY ticksChanged)

public:
    ChatStore(ChatScope scope, QString account, QString role, ChatDependencies deps = {},
              QObject *parent = nullptr);
    ~ChatStore() override;

    const ChatScope &scope() const { return m_scope; }
    QString storageKey() const { return m_scope.storageKey(m_account); }
    const QList<ChatMessage> &messages() const { return m_messages; }
    const QList<Lane> &lanes() const { return m_lanes; }
    const QList<Lane> &activityHistory() const { return m_history; }
    const QList<Row> &builtRows() const { return m_rows; }
    ChatRowsModel *rows() const { return m_model; }
    qint64 cursor() const { return m_cursor; }
    bool connected() const { return m_connected; }
    bool loading() const { return m_loading; }
    int unread() const { return m_unread; }
    QString failure() const { return m_failure; }
    // The last load failed because the network or the server was down.
    bool failureUnreachable() const { return m_failureUnreachable; }
    QString banner() const { return m_banner; }
    bool networkAvailable() const { return m_networkAvailable; }
    int sentTick() const { return m_sentTick; }
    int jumpTick() const { return m_jumpTick; }
    int focusTick() const { return m_focusTick; }
    qint64 revealSeq() const { return m_revealSeq; }
    const QSet<QString> &awaitingRuns() const { return m_awaitingRun; }

    // Brings the store up: the transcript from disk, then the server, the socket and the poller.
    void open();
    // Ends the socket, the poller and every poll; state stays for a later open().
    void close();
    bool isOpen() const { return m_open; }

    // The transcript and lanes from disk only (what open() shows first).
    void hydrate();
    // One fetch from the cursor (with the activity); refresh() asks for open tasks instead.
    QCoro::Task<> load();
    QCoro::Task<> refresh();
    // Opens the chat socket unless one is open, and keeps it open with back-off.
    void connectSocket();
    void startPolling();
    // Follows one run by polling every 2 s until it is done (the socket may lose frames).
    void poll(const QString &runID);
    void handle(const ChatFrame &frame);
    void absorb(const MessagesFeed &feed, bool replacing);
    void absorbActivity(const MessagesFeed &feed);
    void markRead();

    // Seams for sending: a pending turn took a seq; a turn's stored message arrived.
    void stamp(qint64 seq, const QString &requestID);
    void acknowledge(const QString &requestID);

    // Runs a pending debounced activity save now and waits for every disk write.
    void flushDisk();

    // Forgets every conversation's files and every live store's state (sign-out).
    static void resetAll();

signals:
    void connectedChanged();
    void loadingChanged();
    void unreadChanged();
    void failureChanged();
    void bannerChanged();
    void networkAvailableChanged();
    void ticksChanged();
    // One change of a lane (label, text, a tool step, its end), for followers of the work.
    void laneChanged(const Lane &lane);
    // A message was added to the transcript (by fetch, frame or poll).
    void messageAdded(const ChatMessage &message);

private:
    QCoro::Task<> fetch(bool withActivity);
    static QCoro::Task<> socketLoop(QPointer<ChatStore> store);
    static QCoro::Task<> pollLoop(QPointer<ChatStore> store);
    static QCoro::Task<> followRun(QPointer<ChatStore> store, QString runID);
    void onSocketText(const QString &text);
    void reset();

    Lane &laneFor(const QString &runID);
    void upsert(const QString &runID, const QString &label, const QString &text,
                std::optional<int> attempt);
    void finishActivity(const QString &runID, const QString &outcome);
    void archive(const QString &runID);
    void appendReply(const QString &runID, const QString &text, std::optional<double> createdAt,
                     const QString &voiceFile);
    void append(ChatMessage message);
    void placeLanes();
    void rebuild();
    void rebuildLane(const Lane &lane);
    void persist();
    void saveActivity();
    void writeActivity();
    void setConnected(bool connected);
    void setLoading(bool loading);
    void setFailure(const QString &failure);
    void setNetworkAvailable(bool available);
    QString laneAnchorKey() const;

    ChatScope m_scope;
    QString m_account;
    QString m_role;
    Sleeper *m_sleeper;
    Reachability *m_reachability;
    ChatRowsModel *m_model;

    QList<ChatMessage> m_messages;
    QList<Lane> m_lanes;
    QList<Lane> m_history;
    QList<Row> m_rows;
    QHash<QString, qsizetype> m_laneRows; // run id → its row
    QSet<QString> m_seen;
    qint64 m_cursor = 0;
    qint64 m_activityCursor = 0;
    qint64 m_cachedSeq = 0;
    QHash<QString, qint64> m_anchors; // run id → the seq its lane sits under

    bool m_open = false;
    int m_session = 0; // bumped by close(): loops of an older opening stop
    bool m_connected = false;
    bool m_loading = false;
    int m_unread = 0;
    QString m_failure;
    bool m_failureUnreachable = false;
    QString m_banner;
    bool m_networkAvailable = true;
    int m_sentTick = 0;
    int m_jumpTick = 0;
    int m_focusTick = 0;
    qint64 m_revealSeq = 0;

    QPointer<QWebSocket> m_socket;
    bool m_socketLoop = false;
    bool m_pollLoop = false;
    int m_retries = 0;
    bool m_refreshing = false;
    bool m_refreshPending = false;
    QSet<QString> m_polling;
    QSet<QString> m_awaitingRun;

    Debouncer m_activitySave;
    QThreadPool m_disk; // "chat.activity.disk": one writer, in order
};
