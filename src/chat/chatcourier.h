#pragma once

#include "chat/chatscope.h"
#include "chat/delivery.h"
#include "chat/outboxturn.h"

#include <QCoroTask>
#include <QString>

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
        qint64 userSeq = 0;  // the seq the server gave the user's message
        QString runID;       // the agent run that answers it
        bool deadReply = false; // the message it answers is gone from the server
    };

    ChatCourier(ChatScope scope, QString storageKey, Sleeper *sleeper);

    QCoro::Task<Result> deliver(OutboxTurn turn, const ChatOutbox *outbox);

    // The texts a turn keeps after a failed attempt.
    static QString savedForRetry();
    static QString notConfirmed();
    // Whether an error text is the one an offline attempt leaves (in any of our languages):
    // such turns go out with the next drain; any other error waits for the user's Retry.
    static bool isOfflineError(const QString &error);

private:
    QCoro::Task<Result> sendText(OutboxTurn turn, QStringList attachmentLines);

    ChatScope m_scope;
    QString m_storageKey;
    Sleeper *m_sleeper;
};
