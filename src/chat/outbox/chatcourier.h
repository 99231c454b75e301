#pragma once

#include "chat/model/chatscope.h"
#include "chat/model/delivery.h"
#include "chat/outbox/outboxturn.h"

#include <QCoroTask>
#include <QString>

class Api;
class ChatOutbox;
class Sleeper;

// One delivery attempt of one outbox turn: its files, then its text, each as a background
// transfer named after the turn, so a second attempt finds the first one's answer.
class ChatCourier
{
public:
    struct Result {
        Delivery delivery = Delivery::Offline;
        QString error;       // what the turn shows when it is not settled
        TurnFailure failure = TurnFailure::None;
        QString reason;      // the server's (or the device's) own words, when there are any
        qint64 userSeq = 0;  // the seq the server gave the user's message
        QString runID;       // the agent run that answers it
        bool deadReply = false; // the message it answers is gone from the server
        bool unconfirmed = false; // taken by the server without confirming
    };

    ChatCourier(Api &api, ChatScope scope, QString storageKey, Sleeper &sleeper);

    // Touches neither this courier nor the outbox after its first wait: what it needs is
    // copied first, so the store may go while it runs.
    QCoro::Task<Result> deliver(OutboxTurn turn, const ChatOutbox *outbox) const;

    // The texts a turn keeps after a failed attempt.
    static QString savedForRetry() { return OutboxTurn::savedForRetry(); }
    static QString notConfirmed() { return OutboxTurn::notConfirmed(); }

private:
    struct Route {
        Api *api;
        ChatScope scope;
        QString storageKey;
        Sleeper *sleeper;
    };
    static QCoro::Task<Result> deliverWith(Route route, OutboxTurn turn, QStringList dataPaths);
    static QCoro::Task<Result> sendText(Route route, OutboxTurn turn, QStringList attachmentLines);

    Api &m_api;
    ChatScope m_scope;
    QString m_storageKey;
    Sleeper *m_sleeper;
};
