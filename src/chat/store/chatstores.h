#pragma once

#include "chat/model/chatscope.h"
#include "chat/store/chatports.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class ChatStore;

// The chat stores of the signed-in account, made here and followed until they are gone, and
// what a session does to all of them at once: settling kept answers at start, and the reset
// of a sign-out. Held by the app (or the terminal client) beside its session.
class ChatStores : public QObject
{
    Q_OBJECT

public:
    explicit ChatStores(ChatPorts ports, QObject *parent = nullptr);

    const ChatPorts &ports() const { return m_ports; }
    // A store of one conversation with these ports; the caller owns it.
    std::unique_ptr<ChatStore> make(ChatScope scope, QString account, QString role);
    ChatStore *make(ChatScope scope, QString account, QString role, QObject *parent);
    QList<ChatStore *> live() const;

    // Sign-out: forgets every conversation's transcript, lanes, composer and transfers and
    // every live store's state. Unsent turns stay on disk (owner-only) for the next sign-in
    // of their account unless `unsent` says they go too (sign-out forced, account deleted).
    enum class Unsent { Keep, Remove };
    void reset(Unsent unsent = Unsent::Keep);

    // Settles, without sending, every turn of the account whose answer a background transfer
    // kept, in every conversation stored for it; sweeps what a kill left behind.
    void resumeBackgroundTransfers(const QString &account) const;
    // The main conversation and every project conversation stored for the account.
    static QList<ChatScope> knownScopes(const QString &account);
    // The outbox folders of an account's conversations known on this device.
    static QStringList outboxFolders(const QString &account);
    // Turns waiting in those folders.
    static int unsentCount(const QString &account);
    // Removes those folders (a forced sign-out, a deleted account).
    static void removeOutboxes(const QStringList &folders);

private:
    ChatStore *follow(ChatStore *store);

    ChatPorts m_ports;
    QList<QPointer<ChatStore>> m_stores;
};
