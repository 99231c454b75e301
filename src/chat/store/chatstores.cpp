#include "chat/store/chatstores.h"
#include "chat/chatlogging.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatfiles.h"
#include "chat/store/chatsender.h"
#include "chat/store/chatstore.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "platform/appdata.h"
#include "platform/clock.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

ChatStores::ChatStores(ChatPorts ports, QObject *parent)
    : QObject(parent)
    , m_ports(ports)
{
}

ChatStore *ChatStores::follow(ChatStore *store)
{
    m_stores.removeAll(nullptr);
    m_stores.append(store);
    return store;
}

std::unique_ptr<ChatStore> ChatStores::make(ChatScope scope, QString account, QString role)
{
    auto store =
        std::make_unique<ChatStore>(std::move(scope), std::move(account), std::move(role), m_ports);
    follow(store.get());
    return store;
}

ChatStore *ChatStores::make(ChatScope scope, QString account, QString role, QObject *parent)
{
    return follow(
        new ChatStore(std::move(scope), std::move(account), std::move(role), m_ports, parent));
}

QList<ChatStore *> ChatStores::live() const
{
    QList<ChatStore *> out;
    for (const QPointer<ChatStore> &store : m_stores) {
        if (store)
            out.append(store);
    }
    return out;
}

QList<ChatScope> ChatStores::knownScopes(const QString &account)
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
void keepUnsentOnly(const QString &folder, const QDateTime &now)
{
    ChatOutbox outbox = ChatOutbox::at(folder);
    outbox.load();
    if (outbox.state().turns.isEmpty()) {
        outbox.removeAll();
        return;
    }
    outbox.setComposer(std::nullopt, std::nullopt);
    outbox.clearDrafts();
    outbox.sweep(std::chrono::seconds(0), now);
    QFile::setPermissions(folder,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

} // namespace

QStringList ChatStores::outboxFolders(const QString &account)
{
    QStringList out;
    for (const ChatScope &scope : knownScopes(account))
        out.append(ChatOutbox::folderFor(scope.storageKey(account)));
    return out;
}

int ChatStores::unsentCount(const QString &account)
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

void ChatStores::removeOutboxes(const QStringList &folders)
{
    for (const QString &folder : folders)
        QDir(folder).removeRecursively();
}

void ChatStores::reset(Unsent unsent)
{
    const QList<ChatStore *> stores = live();
    for (ChatStore *store : stores)
        store->forget();
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
                keepUnsentOnly(QDir(outboxes).filePath(name), m_ports.clock.now());
        }
    }
    for (ChatStore *store : stores)
        store->reloadOutbox();
    AppData::removeSettings(ChatFiles::anchorsPrefix());
    // The list of project conversations finds their kept turns at the next sign-in.
    if (unsent == Unsent::Remove)
        AppData::removeSettings(u"chat.projects."_s);
}

namespace {

// Folders of transfers no kept turn names, left by a kill between two steps. Young ones are
// spared: another process may have just started them.
constexpr auto strayTransferAge = std::chrono::hours(1);
// ".data" files no turn names (a composer attachment never sent): a day, for the same reason.
constexpr auto strayDataAge = std::chrono::hours(24);

void sweepTransfers(const QSet<QString> &wanted, const Clock &clock)
{
    auto *transfers = ChatBackgroundTransfer::shared();
    const QString root = AppData::path(u"background-chat"_s);
    if (!transfers || root.isEmpty())
        return;
    const QDateTime before = clock.now().addSecs(
        -std::chrono::duration_cast<std::chrono::seconds>(strayTransferAge).count());
    const QFileInfoList folders = QDir(root).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QFileInfo &folder : folders) {
        if (wanted.contains(folder.fileName()) || folder.lastModified().toUTC() > before)
            continue;
        QDir(folder.filePath()).removeRecursively();
    }
}

} // namespace

void ChatStores::resumeBackgroundTransfers(const QString &account) const
{
    // No store here: a store not yet hydrated would write its empty lanes over the real ones.
    // The turn only leaves the outbox; its lane comes with the conversation's next load.
    QSet<QString> wanted;
    auto *transfers = ChatBackgroundTransfer::shared();
    for (const ChatScope &scope : knownScopes(account)) {
        const QString key = scope.storageKey(account);
        ChatOutbox outbox(key);
        outbox.load();
        const QList<OutboxTurn> turns = outbox.state().turns;
        for (const OutboxTurn &turn : turns) {
            const QStringList keys = ChatSender::transferKeys(key, turn);
            if (ChatSender::keptAnswer(key, turn) && outbox.remove(turn.id)) {
                qCInfo(lcChat) << "settled turn" << turn.id << "from a kept answer";
                for (const OutboxFile &file : turn.files)
                    outbox.removeData(file.fileID);
                if (turn.voiceNote)
                    outbox.removeData(turn.voiceNote->fileID);
                if (transfers)
                    transfers->acknowledged(keys);
                continue;
            }
            for (const QString &k : keys)
                wanted.insert(QFileInfo(ChatBackgroundTransfer::folder(k)).fileName());
        }
        outbox.sweep(std::chrono::duration_cast<std::chrono::seconds>(strayDataAge),
                     m_ports.clock.now());
    }
    sweepTransfers(wanted, m_ports.clock);
}
