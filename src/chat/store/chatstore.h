#pragma once

#include "chat/model/chatframe.h"
#include "chat/model/chatmessage.h"
#include "chat/outbox/chatcourier.h"
#include "chat/model/chatscope.h"
#include "chat/store/composerattachment.h"
#include "chat/model/lane.h"
#include "chat/model/messagelist.h"
#include "chat/model/messagesfeed.h"
#include "chat/model/pendingturn.h"
#include "chat/model/row.h"
#include "platform/debouncer.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QThreadPool>

#include <memory>

class Api;

class ChatOutbox;
class ChatRowsModel;
class UploadMeter;
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
    // Turns still in the outbox, as the screen draws them after the last row.
    Q_PROPERTY(QVariantList pendingTurns READ pendingTurnsForQml NOTIFY pendingChanged)
    Q_PROPERTY(int queuedCount READ queuedCount NOTIFY pendingChanged)
    // The composer: its text (saved half a second after the last change), its reply target
    // and its attachments.
    Q_PROPERTY(QString composerText READ composerText WRITE setComposerText NOTIFY composerChanged)
    Q_PROPERTY(QVariantMap replyTo READ replyToForQml NOTIFY composerChanged)
    Q_PROPERTY(QVariantList attachments READ attachmentsForQml NOTIFY composerChanged)
    // The last sending failure; "" when none.
    Q_PROPERTY(QString sendError READ sendError NOTIFY sendErrorChanged)
    // Task numbers whose stop is under way.
    Q_PROPERTY(QVariantList cancellingTasks READ cancellingForQml NOTIFY cancellingChanged)

public:
    // Talks to the server through api, which must outlive it.
    ChatStore(Api &api, ChatScope scope, QString account, QString role,
              ChatDependencies deps = {}, QObject *parent = nullptr);
    ~ChatStore() override;

    const ChatScope &scope() const { return m_scope; }
    QString storageKey() const { return m_scope.storageKey(m_account); }
    const MessageList &messages() const { return m_messages; }
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
    const QSet<QString> &awaitingRuns() const { return m_awaitingRun; }

    // Runs followed by polling at once; the others wait for one of these to end.
    static constexpr qsizetype maxPolls = 4;
    // Finished lanes kept for display, and lane anchors kept in the settings.
    static constexpr qsizetype maxHistory = 200;
    static constexpr qsizetype maxAnchors = 500;
    // One fetched page, and the newest messages kept in the transcript file.
    static constexpr qsizetype maxPageBytes = 32 * 1024 * 1024;
    static constexpr qsizetype maxTranscript = 20000;
    // A socket that stays open this long (or delivers a frame) was healthy: back-off resets.
    static constexpr std::chrono::seconds steadySocket{30};

    // Brings the store up: prepare(), then goLive().
    void open();
    // What is on this device: the outbox, the transcript and lanes, the composer; turns whose
    // answer a background transfer kept are settled. No network.
    void prepare();
    // The server: a load, the socket, the poller, and a drain of the outbox.
    void goLive();
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

    // ---- Sending (chatstoresend.cpp) ----
    // What one drain did: turns accepted, turns kept for the network, turns waiting for Retry.
    struct DrainSummary {
        int settled = 0;
        int offline = 0;
        int refused = 0;
    };

    // Makes a turn of the text and the composer's attachments and reply target, writes it to
    // the outbox (on disk before anything else), then delivers. "/stop N" stops task N
    // instead. Returns the turn id; empty when nothing was made (sendError says why).
    // With deliver false the turn only waits in the outbox (a caller drains it itself).
    QString send(const QString &text, bool fromVoice = false, bool deliver = true);
    // Delivers every waiting turn in order; stops at the first one the network keeps.
    QCoro::Task<DrainSummary> drain();
    PendingTurn pending(const OutboxTurn &turn) const;
    const QList<PendingTurn> &pendingTurns() const { return m_pending; }
    void restorePending();
    // Deliver one failed turn again: retry keeps its transfers' names, resend starts anew.
    QCoro::Task<Delivery> retry(QString turnID);
    QCoro::Task<Delivery> resend(QString turnID);
    // A pending turn got its seq; a turn's stored message arrived (the turn is done).
    void stamp(qint64 seq, const QString &requestID);
    void acknowledge(const QString &requestID);
    void reconcile(const MessagesFeed &feed);
    void discardDeadReply(const QString &turnID);
    // The user takes a turn back from the outbox: its text and files return to the composer.
    void takeBack(const QString &turnID);
    // Settles, without sending, every turn whose answer a background transfer kept.
    void resumeBackgroundTransfers();
    // The same for the main conversation and every project conversation stored for an account.
    static void resumeAllBackgroundTransfers(const QString &account);

    QString composerText() const { return m_composer; }
    void setComposerText(const QString &text);
    void saveComposer();
    std::optional<ChatMessage> replyToMessage() const { return m_replyTo; }
    void setReplyTo(const std::optional<ChatMessage> &message);
    // The next turn answers task `number`.
    void continueTask(int number, const QString &text);
    QCoro::Task<bool> cancelTask(int number);
    QCoro::Task<bool> voteRoute(qint64 seq, QString want, QString level, QString note);
    // For a voice turn the server is still transcribing: asks every 2 s, for at most a minute,
    // whether it has processed it; a server that never got it ("unknown_request") gets it again.
    QCoro::Task<bool> processed(QString turnID);
    // ---- Voice notes (chatstorevoice.cpp) ----
    // Copies a recording into the outbox and makes a voice turn of it ("Voice message"), then
    // delivers it unless told not to. The turn id; empty when the recording could not be kept
    // (sendError says so) and then no turn was made.
    QString submitVoice(float peak, const QByteArray &wav, bool deliver = true);
    // What the server heard in a recording, for the composer; throws like Api.
    QCoro::Task<QString> transcribe(float peak, QByteArray wav) const;
    // The message with this seq has that voice file.
    void attachVoice(qint64 seq, const QString &file);
    // Copies a file into the outbox as a composer attachment. False (and sendError) when the
    // device would not take it.
    bool attach(const QString &name, const QString &mime, const QByteArray &data);
    bool attachFile(const QString &path, const QString &name = {}, const QString &mime = {});
    void removeAttachment(const QString &id);
    const QList<ComposerAttachment> &composerAttachments() const { return m_attachments; }
    const ChatOutbox &outbox() const { return *m_outbox; }
    QString sendError() const { return m_sendError; }
    int queuedCount() const { return int(m_pending.size()); }

    // Runs a pending debounced activity save now and waits for every disk write.
    void flushDisk();

    // Sign-out: forgets every conversation's transcript, lanes, composer and transfers and
    // every live store's state. Unsent turns stay on disk (owner-only) for the next sign-in
    // of their account unless `unsent` says they go too (sign-out forced, account deleted).
    enum class Unsent { Keep, Remove };
    static void resetAll(Unsent unsent = Unsent::Keep);
    // The main conversation and every project conversation stored for the account.
    static QList<ChatScope> knownScopes(const QString &account);
    // The outbox folders of an account's conversations known on this device.
    static QStringList outboxFolders(const QString &account);
    // Turns waiting in those folders.
    static int unsentCount(const QString &account);
    // Removes those folders (a forced sign-out, a deleted account).
    static void removeOutboxes(const QStringList &folders);

signals:
    void connectedChanged();
    void loadingChanged();
    void unreadChanged();
    void failureChanged();
    void bannerChanged();
    void networkAvailableChanged();
    // A turn went into the outbox: the screen scrolls to the end.
    void turnQueued(const QString &turnID);
    // The composer should take the focus (a task is being continued).
    void focusComposer();
    // One change of a lane (label, text, a tool step, its end), for followers of the work.
    void laneChanged(const Lane &lane);
    // A message was added to the transcript (by fetch, frame or poll).
    void messageAdded(const ChatMessage &message);
    void pendingChanged();
    void composerChanged();
    void sendErrorChanged();
    void cancellingChanged();
    // One delivery attempt ended.
    void delivered(const QString &turnID, Delivery delivery, const QString &error);
    // A turn was withdrawn (its reply target is gone); its text is back in the composer.
    void withdrawn(const QString &turnID);
    // The server took a turn: its message's seq and the run that answers it.
    void settled(const QString &turnID, qint64 userSeq, const QString &runID);
    // A frame as the live socket delivered it, whatever its conversation.
    void frameArrived(const ChatFrame &frame);

private:
    QVariantList pendingTurnsForQml() const;
    QVariantMap replyToForQml() const;
    QVariantList attachmentsForQml() const;
    QVariantList cancellingForQml() const;
    QCoro::Task<Delivery> deliverTurn(QString turnID);
    void settle(const QString &turnID, qint64 userSeq, const QString &runID);
    void forgetTurn(const OutboxTurn &turn, bool keepFiles);
    void setSendError(const QString &error);
    std::optional<OutboxTurn> turnOf(const QString &turnID) const;
    QCoro::Task<> fetch(bool withActivity);
    static QCoro::Task<> socketLoop(QPointer<ChatStore> store);
    static QCoro::Task<> pollLoop(QPointer<ChatStore> store);
    static QCoro::Task<> followRun(QPointer<ChatStore> store, QString runID);
    void onSocketText(const QString &text);
    void reset();
    static QList<QPointer<ChatStore>> &liveStores();

    Lane &laneFor(const QString &runID);
    bool laneFinished(const QString &runID) const;
    void upsert(const QString &runID, const QString &label, const QString &text,
                std::optional<int> attempt);
    void finishActivity(const QString &runID, const QString &outcome);
    void archive(const QString &runID);
    void appendReply(const QString &runID, const QString &text, std::optional<double> createdAt,
                     const QString &voiceFile);
    void append(ChatMessage message);
    bool placeLanes(); // true when a lane moved
    bool appendRows(const QList<MessageList::Ptr> &added);
    void rebuild();
    // Shows a changed lane: in place, as one new row, or by a rebuild when it moved.
    void showLane(const Lane &lane);
    // Keeps the indexes of held messages in step with one message taken in.
    void index(const ChatMessage &message);
    void persist();
    void writeTranscript();
    void saveActivity();
    void writeActivity();
    void setConnected(bool connected);
    void setLoading(bool loading);
    void setFailure(const QString &failure);
    void setNetworkAvailable(bool available);
    QString laneAnchorKey() const;

    Api &m_api;
    ChatScope m_scope;
    QString m_account;
    QString m_role;
    Sleeper *m_sleeper;
    Reachability *m_reachability;
    ChatRowsModel *m_model;

    MessageList m_messages;
    QList<Lane> m_lanes;
    QList<Lane> m_history;
    QList<Row> m_rows;
    QHash<QString, qsizetype> m_laneRows; // run id → its row
    QSet<qint64> m_seen; // seqs held
    QSet<QString> m_answered; // runs whose reply is held
    QHash<QString, qint64> m_turnOf; // run id → seq of the user message that started it
    qsizetype m_locals = 0; // held messages made here, not yet stamped
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

    std::unique_ptr<ChatOutbox> m_outbox;
    ChatCourier m_courier;
    QList<PendingTurn> m_pending;
    QSet<QString> m_inFlight;
    QHash<QString, qint64> m_stamped; // turn id → its seq, once the server named it
    bool m_draining = false;
    bool m_drainAgain = false;
    QString m_composer;
    std::optional<ChatMessage> m_replyTo;
    QList<ComposerAttachment> m_attachments;
    QString m_sendError;
    QSet<int> m_cancelling;
    UploadMeter *m_meter;
    QHash<QString, QString> m_uploads; // file id → progress text of its running upload

    Debouncer m_composerSave;
    Debouncer m_activitySave;
    Debouncer m_transcriptSave;
    QThreadPool m_disk; // "chat.activity.disk": one writer, in order
};
