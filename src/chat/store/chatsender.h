#pragma once

#include "chat/model/chatscope.h"
#include "chat/model/delivery.h"
#include "chat/model/messagesfeed.h"
#include "chat/model/pendingturn.h"
#include "chat/outbox/chatcourier.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QSet>

class ChatComposer;
class ChatOutbox;
class ChatSync;
class ChatTimeline;
class Api;
class Clock;
class PendingTurnsModel;
class Reachability;
class Sleeper;
class UploadMeter;

// Turns on their way to the server. A turn is on disk before any network work, and leaves
// the outbox only when the server has confirmed it (its reply, its message in a fetch, or a
// receipt kept from an earlier run). Every task it starts holds it weakly.
class ChatSender : public QObject
{
    Q_OBJECT

public:
    // What one drain did: turns accepted, turns kept for the network, turns waiting for Retry.
    struct DrainSummary {
        int settled = 0;
        int offline = 0;
        int refused = 0;
    };

    struct Parts {
        ChatOutbox &outbox;
        ChatComposer &composer;
        ChatTimeline &timeline;
        ChatSync &sync;
    };
    ChatSender(Api &api, ChatScope scope, QString storageKey, Parts parts, Sleeper &sleeper,
               Reachability &reachability, Clock &clock, QObject *parent = nullptr);

    const QList<PendingTurn> &pendingTurns() const;
    PendingTurnsModel *pendingModel() const { return m_pending; }
    PendingTurn pending(const OutboxTurn &turn) const;
    void restorePending();
    QString sendError() const { return m_sendError; }
    void setSendError(const QString &error);
    const QSet<int> &cancelling() const { return m_cancelling; }
    std::optional<OutboxTurn> turnOf(const QString &turnID) const;
    // Where a turn stands once a delivery has ended: gone from the outbox means accepted; a
    // turn still there waits for the network or, refused by the server, for the user's Retry.
    enum class Standing { Accepted, Kept, Refused };
    Standing standing(const QString &turnID) const;
    // Turns in the outbox that wait for the user's Retry.
    int refusedCount() const;

    QString send(const QString &text, bool fromVoice, bool deliver);
    QString submitVoice(float peak, const QByteArray &wav, bool deliver);
    QCoro::Task<DrainSummary> drain();
    QCoro::Task<Delivery> retry(QString turnID);
    QCoro::Task<Delivery> resend(QString turnID);
    void stamp(qint64 seq, const QString &requestID);
    void acknowledge(const QString &requestID);
    void reconcile(const MessagesFeed &feed);
    void discardDeadReply(const QString &turnID);
    void takeBack(const QString &turnID);
    void resumeBackgroundTransfers();
    QCoro::Task<bool> cancelTask(int number);
    QCoro::Task<bool> voteRoute(qint64 seq, QString want, QString level, QString note);
    QCoro::Task<bool> processed(QString turnID);
    // The transfers that may hold a turn's answers and uploads.
    static QStringList transferKeys(const QString &storageKey, const OutboxTurn &turn);
    // The seq and run of a turn whose chat post an earlier attempt got a confirmed answer to.
    static std::optional<std::pair<qint64, QString>> keptAnswer(const QString &storageKey,
                                                                const OutboxTurn &turn);
    // Sign-out: what is known of turns in flight goes.
    void forgetStamps() { m_stamped.clear(); }

signals:
    void pendingChanged();
    void sendErrorChanged();
    void cancellingChanged();
    void turnQueued(const QString &turnID);
    void delivered(const QString &turnID, Delivery delivery, const QString &error);
    void withdrawn(const QString &turnID);
    void settled(const QString &turnID, qint64 userSeq, const QString &runID);
    // A passing notice for the screen's banner.
    void notice(const QString &text);

private:
    QCoro::Task<Delivery> deliverTurn(QString turnID);
    void settle(const QString &turnID, qint64 userSeq, const QString &runID);
    void forgetTurn(const OutboxTurn &turn, bool keepFiles);
    // The turn leaves the outbox; its text and files go back to the composer.
    void withdraw(const QString &turnID, bool tell);
    // The reply target and the place in the conversation of a turn written now.
    void address(OutboxTurn &turn) const;

    Api &m_api;
    ChatScope m_scope;
    QString m_storageKey;
    ChatOutbox &m_outbox;
    ChatComposer &m_composer;
    ChatTimeline &m_timeline;
    ChatSync &m_sync;
    Sleeper &m_sleeper;
    Reachability &m_reachability;
    Clock &m_clock;
    ChatCourier m_courier;
    PendingTurnsModel *m_pending;
    QSet<QString> m_inFlight;
    QHash<QString, qint64> m_stamped; // turn id → its seq, once the server named it
    bool m_draining = false;
    bool m_drainAgain = false;
    QString m_sendError;
    QSet<int> m_cancelling;
    UploadMeter *m_meter;
    QHash<QString, QString> m_uploads; // file id → progress text of its running upload
};
