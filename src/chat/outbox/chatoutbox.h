#pragma once

#include "chat/model/chatmessage.h"
#include "chat/outbox/outboxstate.h"
#include "chat/outbox/outboxturn.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

class QFile;

// One conversation's outbox folder: AppData "chat-outbox/<lower-case hex SHA-256 of the
// storage key>/". Holds the unconfirmed turns, the composer draft and the bytes of their files.
// Several processes may hold the same folder (an interactive chat beside a one-shot send):
// every change takes "state.lock" (a QLockFile) and first re-reads the files when another
// process changed them since this one last looked. One thread per object.
class ChatOutbox
{
public:
    explicit ChatOutbox(QString storageKey);
    ~ChatOutbox();
    ChatOutbox(ChatOutbox &&) noexcept;
    ChatOutbox &operator=(ChatOutbox &&) noexcept;

    static QString folderFor(const QString &storageKey);
    // The outbox in a folder found on disk.
    static ChatOutbox at(const QString &folder);
    QString folder() const { return m_folder; }
    const OutboxState &state() const { return m_state; }
    // Turns and changes the last load found damaged beyond reading (every other one was kept).
    int lost() const { return m_lost; }

    // Reads what is on disk (nothing there: an empty state). A damaged file never throws: what
    // can be read is kept, the rest is reported on stderr through a logging category, and a
    // damaged "state.json" is kept aside as "state-damaged.json".
    void load();
    // Re-reads the files when another process changed them; true when it did.
    bool refresh();

    // Every change below is durable (written and flushed to disk) before it returns true;
    // false when the disk refused it, and then the in-memory state is unchanged too.
    // A change made before load() loads first.
    bool append(const OutboxTurn &turn); // a turn whose id is already queued is replaced
    // The queued turn with the same id replaced. An id no longer queued changes nothing (a
    // settled turn never comes back) and is not a failure.
    bool update(const OutboxTurn &turn);
    bool remove(const QString &turnID); // the turn, not its data files; an unknown id is no-op
    bool setComposer(const std::optional<QString> &text, const std::optional<ChatMessage> &replyTo);
    bool clearDrafts();
    // Removes ".data" files that no queued turn or draft names and that are older than
    // minAge at now (a younger one may be another process's composer attachment). Returns how
    // many.
    int sweep(std::chrono::seconds minAge, const QDateTime &now);

    // The bytes of attachments and voice notes. A file id that could leave the folder ("",
    // "..", one holding a slash) has no path, and every operation on it fails.
    QString dataPath(const QString &fileID) const; // folder()/<fileID>.data
    bool writeData(const QString &fileID, const QByteArray &bytes);  // atomic
    bool copyData(const QString &fileID, const QString &sourcePath); // atomic, streamed
    std::optional<QByteArray> readData(const QString &fileID) const;
    void removeData(const QString &fileID);
    void removeAll(); // the whole folder; the state is empty afterwards

    // Bytes written for state changes (journal records and compactions), for the benchmark.
    qint64 bytesWritten() const { return m_written; }

private:
    // What the files looked like when this object last read or wrote them.
    struct Stamp {
        qint64 inode = -1, size = -1, modified = -1;
        bool operator==(const Stamp &) const = default;
    };
    struct Stamps {
        Stamp state, journal;
        bool operator==(const Stamps &) const = default;
    };
    Stamps stampNow() const;
    void loadUnlocked();
    bool commitUnlocked(const QJsonObject &record);
    bool commit(const QJsonObject &record);
    bool appendRecord(const QByteArray &line);
    bool compact(const OutboxState &next);
    bool ensureFolder();
    bool ensureLoaded();
    void closeJournal();
    QString statePath() const;
    QString journalPath() const;

    QString m_folder;
    OutboxState m_state;
    bool m_loaded = false;
    bool m_unreadable = false; // a file is there but cannot be read: never overwrite it
    std::unique_ptr<QFile> m_journal; // open for appending while its generation matches
    qint64 m_journalBytes = 0;
    qint64 m_stateBytes = 0;
    qint64 m_written = 0;
    Stamps m_seen;
    int m_lost = 0;
};
