// The account's side of the chat stores: the conversations it has on this device, its
// unsent turns, and what a sign-out leaves of them.

#include "chat/store/chatstore.h"

#include "chat/outbox/chatoutbox.h"
#include "platform/appdata.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

QList<QPointer<ChatStore>> &ChatStore::liveStores()
{
    // Pointers only; main thread.
    static QList<QPointer<ChatStore>> stores;
    return stores;
}

QList<ChatScope> ChatStore::knownScopes(const QString &account)
{
    QList<ChatScope> scopes{ChatScope::main()};
    const QVariantMap known = AppData::setting(u"chat.projects."_s + account).toMap();
    for (auto it = known.begin(); it != known.end(); ++it) {
        bool number = false;
        const int id = it.key().toInt(&number);
        if (number)
            scopes.append(ChatScope::project(id));
    }
    return scopes;
}

namespace {

// What a sign-out leaves of one outbox folder: its unsent turns and their files, readable by
// this user only; the composer, drafts and stray files go. An empty outbox goes whole.
void keepUnsentOnly(const QString &folder)
{
    ChatOutbox outbox = ChatOutbox::at(folder);
    outbox.load();
    if (outbox.state().turns.isEmpty()) {
        outbox.removeAll();
        return;
    }
    outbox.setComposer(std::nullopt, std::nullopt);
    outbox.clearDrafts();
    outbox.sweep(std::chrono::seconds(0));
    QFile::setPermissions(folder,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

} // namespace

QStringList ChatStore::outboxFolders(const QString &account)
{
    QStringList out;
    for (const ChatScope &scope : knownScopes(account))
        out.append(ChatOutbox::folderFor(scope.storageKey(account)));
    return out;
}

int ChatStore::unsentCount(const QString &account)
{
    int n = 0;
    for (const QString &folder : outboxFolders(account)) {
        if (!QFileInfo(folder).isDir())
            continue;
        ChatOutbox outbox = ChatOutbox::at(folder);
        outbox.load();
        n += int(outbox.state().turns.size());
    }
    return n;
}

void ChatStore::removeOutboxes(const QStringList &folders)
{
    for (const QString &folder : folders)
        QDir(folder).removeRecursively();
}

void ChatStore::resetAll(Unsent unsent)
{
    for (const QPointer<ChatStore> &store : liveStores()) {
        if (!store)
            continue;
        store->close();
        store->flushDisk();
        store->reset();
    }
    for (const QString &folder : {u"transcript"_s, u"background-chat"_s}) {
        const QString path = AppData::path(folder);
        if (!path.isEmpty())
            QDir(path).removeRecursively();
    }
    const QString outboxes = AppData::path(u"chat-outbox"_s);
    if (!outboxes.isEmpty()) {
        if (unsent == Unsent::Remove) {
            QDir(outboxes).removeRecursively();
        } else {
            // Nothing the user sent is lost: an expired session keeps what it could not send.
            const QStringList folders = QDir(outboxes).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            for (const QString &name : folders)
                keepUnsentOnly(QDir(outboxes).filePath(name));
        }
    }
    for (const QPointer<ChatStore> &store : liveStores()) {
        if (!store)
            continue;
        store->m_outbox->load();
        store->m_composer.clear();
        store->m_replyTo.reset();
        store->m_attachments.clear();
        store->m_stamped.clear();
        store->restorePending();
        emit store->composerChanged();
    }
    AppData::removeSettings(u"chat.laneAnchors."_s);
    // The list of project conversations finds their kept turns at the next sign-in.
    if (unsent == Unsent::Remove)
        AppData::removeSettings(u"chat.projects."_s);
}
