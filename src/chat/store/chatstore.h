#pragma once

#include "chat/model/chatframe.h"
#include "chat/model/chatmessage.h"
#include "chat/model/chatscope.h"
#include "chat/model/lane.h"
#include "chat/model/messagelist.h"
#include "chat/model/messagesfeed.h"
#include "chat/model/pendingturn.h"
#include "chat/model/row.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatcomposer.h"
#include "chat/store/chatfiles.h"
#include "chat/store/chatports.h"
#include "chat/store/chatsender.h"
#include "chat/store/chatsync.h"
#include "chat/store/chattimeline.h"
#include "chat/store/chatrowsmodel.h"
#include "chat/store/composerattachment.h"
#include "chat/store/composerattachmentsmodel.h"
#include "chat/store/pendingturnsmodel.h"

#include <QCoroTask>
#include <QObject>
#include <QSet>

#include <memory>

// One conversation for the screen: the timeline, its files, the live sync, the sender and
// the composer, wired together. Lives on the main thread.
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
    // The same turns as a list model, with the progress of their uploads.
    Q_PROPERTY(PendingTurnsModel *pendingModel READ pendingModel CONSTANT)
    // How many turns wait in the outbox.
    Q_PROPERTY(int queuedCount READ queuedCount NOTIFY pendingChanged)
    // The composer's text (saved half a second after the last change).
    Q_PROPERTY(QString composerText READ composerText WRITE setComposerText NOTIFY composerChanged)
    // The message the next turn answers; empty when none.
    Q_PROPERTY(QVariantMap replyTo READ replyToForQml NOTIFY composerChanged)
    // The composer's attachments.
    Q_PROPERTY(QVariantList attachments READ attachmentsForQml NOTIFY composerChanged)
    // The same attachments as a list model.
    Q_PROPERTY(ComposerAttachmentsModel *attachmentModel READ attachmentModel CONSTANT)
    // The last sending failure; "" when none.
    Q_PROPERTY(QString sendError READ sendError NOTIFY sendErrorChanged)
    // Task numbers whose stop is under way.
    Q_PROPERTY(QVariantList cancellingTasks READ cancellingForQml NOTIFY cancellingChanged)

public:
    using DrainSummary = ChatSender::DrainSummary;

    static constexpr qsizetype maxPolls = ChatSync::maxPolls;
    static constexpr qsizetype maxHistory = ChatTimeline::maxHistory;
    static constexpr qsizetype maxAnchors = ChatTimeline::maxAnchors;
    static constexpr qsizetype maxPageBytes = ChatSync::maxPageBytes;
    static constexpr qsizetype maxTranscript = ChatFiles::maxTranscript;
    static constexpr std::chrono::seconds steadySocket = ChatSync::steadySocket;

    ChatStore(ChatScope scope, QString account, QString role, ChatPorts ports,
              QObject *parent = nullptr);
    ~ChatStore() override;

    // The parts, for callers that need more than the screen does.
    ChatTimeline &timeline() const { return *m_timeline; }
    ChatSync &sync() const { return *m_sync; }
    ChatSender &sender() const { return *m_sender; }
    ChatComposer &composer() const { return *m_composer; }

    const ChatScope &scope() const { return m_scope; }
    QString account() const { return m_account; }
    QString storageKey() const { return m_scope.storageKey(m_account); }
    const MessageList &messages() const { return m_timeline->messages(); }
    const QList<Lane> &lanes() const { return m_timeline->lanes(); }
    const QList<Lane> &activityHistory() const { return m_timeline->history(); }
    const QList<Row> &builtRows() const { return m_timeline->rows(); }
    ChatRowsModel *rows() const { return m_timeline->model(); }
    qint64 cursor() const { return m_timeline->cursor(); }
    bool connected() const { return m_sync->connected(); }
    bool loading() const { return m_sync->loading(); }
    int unread() const { return m_timeline->unread(); }
    QString failure() const { return m_sync->failure(); }
    // The last load failed because the network or the server was down.
    bool failureUnreachable() const { return m_sync->failureUnreachable(); }
    QString banner() const { return m_banner; }
    bool networkAvailable() const { return m_sync->networkAvailable(); }
    const QSet<QString> &awaitingRuns() const { return m_sync->awaitingRuns(); }

    // Brings the store up: prepare(), then goLive().
    void open();
    // What is on this device: the outbox, the transcript and lanes, the composer; turns whose
    // answer a background transfer kept are settled. No network.
    void prepare();
    // The server: a load, the socket, the poller, and a drain of the outbox.
    void goLive();
    // Ends the socket, the poller and every poll; state stays for a later open().
    void close();
    bool isOpen() const { return m_sync->isOpen(); }

    // The transcript and lanes from disk only (what open() shows first).
    void hydrate() { m_files->hydrate(); }
    QCoro::Task<> load() { return m_sync->load(); }
    QCoro::Task<> refresh() { return m_sync->refresh(); }
    void connectSocket() { m_sync->connectSocket(); }
    void startPolling() { m_sync->startPolling(); }
    void handle(const ChatFrame &frame) { m_sync->handle(frame); }
    void absorb(const MessagesFeed &feed, bool replacing);
    void absorbActivity(const MessagesFeed &feed) { m_timeline->absorbActivity(feed); }
    void markRead() { m_timeline->markRead(); }

    // Makes a turn of the text and the composer's attachments and reply target, writes it to
    // the outbox (on disk before anything else), then delivers. "/stop N" stops task N
    // instead. Returns the turn id; empty when nothing was made (sendError says why).
    // With deliver false the turn only waits in the outbox (a caller drains it itself).
    QString send(const QString &text, bool fromVoice = false, bool deliver = true)
    {
        return m_sender->send(text, fromVoice, deliver);
    }
    // Delivers every waiting turn in order; stops at the first one the network keeps.
    QCoro::Task<DrainSummary> drain() { return m_sender->drain(); }
    PendingTurn pending(const OutboxTurn &turn) const { return m_sender->pending(turn); }
    const QList<PendingTurn> &pendingTurns() const { return m_sender->pendingTurns(); }
    PendingTurnsModel *pendingModel() const { return m_sender->pendingModel(); }
    void restorePending() { m_sender->restorePending(); }
    // Deliver one failed turn again: retry keeps its transfers' names, resend starts anew.
    QCoro::Task<Delivery> retry(QString turnID) { return m_sender->retry(std::move(turnID)); }
    QCoro::Task<Delivery> resend(QString turnID) { return m_sender->resend(std::move(turnID)); }
    // A pending turn got its seq; a turn's stored message arrived (the turn is done).
    void stamp(qint64 seq, const QString &requestID) { m_sender->stamp(seq, requestID); }
    void acknowledge(const QString &requestID) { m_sender->acknowledge(requestID); }
    void reconcile(const MessagesFeed &feed) { m_sender->reconcile(feed); }
    void discardDeadReply(const QString &turnID) { m_sender->discardDeadReply(turnID); }
    // The user takes a turn back from the outbox: its text and files return to the composer.
    void takeBack(const QString &turnID) { m_sender->takeBack(turnID); }
    // Settles, without sending, every turn whose answer a background transfer kept.
    void resumeBackgroundTransfers() { m_sender->resumeBackgroundTransfers(); }

    QString composerText() const { return m_composer->text(); }
    void setComposerText(const QString &text) { m_composer->setText(text); }
    void saveComposer() { m_composer->save(); }
    std::optional<ChatMessage> replyToMessage() const { return m_composer->replyTo(); }
    void setReplyTo(const std::optional<ChatMessage> &message) { m_composer->setReplyTo(message); }
    // The next turn answers task `number`.
    void continueTask(int number, const QString &text) { m_composer->continueTask(number, text); }
    QCoro::Task<bool> cancelTask(int number) { return m_sender->cancelTask(number); }
    QCoro::Task<bool> voteRoute(qint64 seq, QString want, QString level, QString note)
    {
        return m_sender->voteRoute(seq, std::move(want), std::move(level), std::move(note));
    }
    // For a voice turn the server is still transcribing: asks every 2 s, for at most a minute,
    // whether it has processed it; a server that never got it ("unknown_request") gets it again.
    QCoro::Task<bool> processed(QString turnID) { return m_sender->processed(std::move(turnID)); }
    // Copies a recording into the outbox and makes a voice turn of it ("Voice message"), then
    // delivers it unless told not to. The turn id; empty when the recording could not be kept
    // (sendError says so) and then no turn was made.
    QString submitVoice(float peak, const QByteArray &wav, bool deliver = true)
    {
        return m_sender->submitVoice(peak, wav, deliver);
    }
    // What the server heard in a recording, for the composer; throws like Api.
    QCoro::Task<QString> transcribe(float peak, QByteArray wav) const;
    // The message with this seq has that voice file.
    void attachVoice(qint64 seq, const QString &file) { m_timeline->attachVoice(seq, file); }
    // Copies a file into the outbox as a composer attachment. False (and sendError) when the
    // device would not take it.
    bool attach(const QString &name, const QString &mime, const QByteArray &data)
    {
        return m_composer->attach(name, mime, data);
    }
    bool attachFile(const QString &path, const QString &name = {}, const QString &mime = {})
    {
        return m_composer->attachFile(path, name, mime);
    }
    void removeAttachment(const QString &id) { m_composer->removeAttachment(id); }
    const QList<ComposerAttachment> &composerAttachments() const
    {
        return m_composer->attachments();
    }
    ComposerAttachmentsModel *attachmentModel() const { return m_composer->attachmentsModel(); }
    const ChatOutbox &outbox() const { return *m_outbox; }
    QString sendError() const { return m_sender->sendError(); }
    int queuedCount() const { return int(m_sender->pendingTurns().size()); }

    // Runs pending debounced saves now and waits for every disk write.
    void flushDisk() { m_files->flush(); }

    // A sign-out begins: the store closes and forgets what it showed.
    void forget();
    // The files of a sign-out are gone: the outbox is read again and the composer empties.
    void reloadOutbox();

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
    void reset();
    void setBanner(const QString &text);

    Api &m_api;
    ChatScope m_scope;
    QString m_account;
    QString m_banner;
    // Declared in the order they need each other: the parts go before the outbox they use.
    std::unique_ptr<ChatOutbox> m_outbox;
    std::unique_ptr<ChatTimeline> m_timeline;
    std::unique_ptr<ChatFiles> m_files;
    std::unique_ptr<ChatComposer> m_composer;
    std::unique_ptr<ChatSync> m_sync;
    std::unique_ptr<ChatSender> m_sender;
};
