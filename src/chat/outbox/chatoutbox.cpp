// How the outbox stays durable without rewriting the whole queue on every change.
//
// Files in the folder:
//   state.json     the whole state (turns, drafts, composerText, replyTo), written atomically
//                  (temporary file, fsync, rename), plus "journal": the token of its journal.
//                  An older build reads it as it always did and ignores the token.
//   state.journal  changes made since state.json was written, one compact JSON object a line:
//                  first {"journal": token}, then {"op": "append"|"update"|"remove"|"composer"}.
//                  Each change is appended and fsynced before the call returns true.
//   <fileID>.data  the bytes of attachments and voice notes, each written atomically and
//                  synced into the folder before the turn that names it is recorded.
//
// A change costs one journal line. When the journal would outgrow the larger of state.json and
// a floor, the change is folded into a fresh state.json instead (compaction), so the bytes
// written over n sends stay linear: a rewrite of size S happens only after about S bytes of
// journal.
//
// Compaction: (1) state.json with the new state and a new token, then fsync of the folder so
// the rename itself is durable; (2) state.journal atomically replaced by a header with the new
// token. The journal is replayed only onto the state.json whose token it carries, so nothing
// is ever applied twice. Kill points:
//   - during a journal append: the last line has no newline; load ignores it and rewrites the
//     files, so the next line is never glued onto a torn one. The change was not confirmed.
//   - during (1): the old state.json and its journal are intact.
//   - between (1) and (2): the journal's token is the old one, so it is ignored; the new
//     state.json already holds every change it recorded.
//   - during (2): the journal file is the old one or the new header, never a mix.
// A failed append is cut back off the journal; if even that fails, the journal is abandoned
// and the next change compacts from memory, which does not hold the failed change.
//
// Load takes state.json and replays the matching journal; when it replayed anything (or found
// damage) it compacts at once, so state.json is complete again for an older build and the
// journal starts clean. A state.json that does not parse is moved aside to
// "state-damaged.json" and the journal, whatever its token, is replayed onto an empty state to
// keep what it can. A journal whose token does not match (an older build rewrote state.json)
// is ignored: replaying it could resend turns that build already delivered.
// A file that exists but cannot be read is never overwritten: changes are refused until it
// can be read.

#include "chat/outbox/chatoutbox.h"
#include "chat/chatlogging.h"

#include "chat/model/chatjson.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QSet>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLockFile>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QUuid>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Below this a journal is never worth compacting, however small the state.
constexpr qint64 journalFloor = 64 * 1024;
constexpr qint64 copyChunk = 1024 * 1024;

const QString stateName = u"state.json"_s;
const QString journalName = u"state.journal"_s;
const QString damagedName = u"state-damaged.json"_s;
const QString tokenKey = u"journal"_s;
const QString lockName = u"state.lock"_s;
// A writer holds the lock for one fsync or one compaction; a holder that died is noticed by
// QLockFile at once (its pid is gone).
constexpr int lockPatience = 10'000;

// The rename or creation of an entry is durable only once its folder is synced.
bool syncFolder(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

QByteArray line(const QJsonObject &record)
{
    return QJsonDocument(record).toJson(QJsonDocument::Compact) + '\n';
}

qsizetype indexOf(const QList<OutboxTurn> &turns, const QString &id)
{
    for (qsizetype i = 0; i < turns.size(); ++i) {
        if (turns.at(i).id == id)
            return i;
    }
    return -1;
}

// One recorded change, read back from its JSON line.
struct Change {
    enum Op { Append, Update, Remove, Composer, ClearDrafts } op = Append;
    OutboxTurn turn;
    QString id;
    std::optional<QString> composerText;
    std::optional<ChatMessage> replyTo;
};

// Throws DecodeError for a record that cannot be read. Live changes are read back through
// here too, before they are written, so memory holds exactly what a reload would.
Change decode(const QJsonObject &record)
{
    const JsonRecord r(record);
    const QString op = r.string(u"op"_s);
    Change c;
    if (op == u"append" || op == u"update") {
        c.op = op == u"append" ? Change::Append : Change::Update;
        c.turn = OutboxTurn::fromJson(record.value(u"turn"));
    } else if (op == u"remove") {
        c.op = Change::Remove;
        c.id = r.string(u"id"_s);
    } else if (op == u"composer") {
        c.op = Change::Composer;
        c.composerText = ChatJson::optionalString(r, u"composerText"_s);
        if (r.has(u"replyTo"_s))
            c.replyTo = ChatMessage::fromJson(record.value(u"replyTo"));
    } else if (op == u"drafts") {
        c.op = Change::ClearDrafts;
    } else {
        throw DecodeError(r.pathOf(u"op"_s), u"a known change"_s, op);
    }
    return c;
}

// The one place a change takes effect, live and on replay alike.
void apply(OutboxState &state, const Change &c)
{
    switch (c.op) {
    case Change::Append:
    case Change::Update: {
        const qsizetype at = indexOf(state.turns, c.turn.id);
        if (at >= 0)
            state.turns[at] = c.turn;
        else if (c.op == Change::Append)
            state.turns.append(c.turn);
        break;
    }
    case Change::Remove: {
        const qsizetype at = indexOf(state.turns, c.id);
        if (at >= 0)
            state.turns.removeAt(at);
        break;
    }
    case Change::Composer:
        state.composerText = c.composerText;
        state.replyTo = c.replyTo;
        break;
    case Change::ClearDrafts:
        state.drafts.clear();
        break;
    }
}

QJsonObject composerRecord(const std::optional<QString> &text,
                           const std::optional<ChatMessage> &replyTo)
{
    QJsonObject record{{u"op"_s, u"composer"_s}};
    if (text)
        record.insert(u"composerText"_s, *text);
    if (replyTo)
        record.insert(u"replyTo"_s, replyTo->toJson());
    return record;
}

bool safeFileID(const QString &fileID)
{
    return !fileID.isEmpty() && fileID != u"." && fileID != u".." && !fileID.contains(u'/')
           && !fileID.contains(u'\\') && !fileID.contains(QChar(0));
}

// What state.json held.
struct StateFile {
    bool present = false;
    bool unreadable = false;
    bool parsed = false;
    OutboxState state;
    QString token;
    qint64 size = 0;
    int lost = 0; // turns of a damaged file that could not be read back
};

// The turns of a state.json that does not parse (cut short, a flipped byte): every whole turn
// object in its "turns" list is read on its own. lost counts the ones that would not read.
QList<OutboxTurn> salvageTurns(const QByteArray &bytes, int &lost)
{
    QList<OutboxTurn> turns;
    const qsizetype key = bytes.indexOf("\"turns\"");
    const qsizetype open = key < 0 ? -1 : bytes.indexOf('[', key);
    if (open < 0)
        return turns;
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    qsizetype start = -1;
    for (qsizetype i = open + 1; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '{') {
            if (depth++ == 0)
                start = i;
        } else if (c == '}' && depth > 0) {
            if (--depth == 0) {
                const QJsonDocument doc = QJsonDocument::fromJson(bytes.mid(start, i - start + 1));
                try {
                    turns.append(OutboxTurn::fromJson(doc.object()));
                } catch (const DecodeError &) {
                    ++lost;
                }
                start = -1;
            }
        } else if (c == ']' && depth == 0) {
            return turns;
        }
    }
    if (start >= 0)
        ++lost; // the file ends inside a turn
    return turns;
}

// What state.journal held: only newline-ended lines count.
struct JournalFile {
    bool present = false;
    bool unreadable = false;
    bool headerOK = false;
    bool headerDamaged = false; // a first line is there but does not read as a header
    QString token;
    QList<QByteArray> records;
    bool tornTail = false;
    qint64 size = 0;
};

StateFile readState(const QString &path)
{
    StateFile out;
    QFile file(path);
    out.present = file.exists();
    if (!out.present)
        return out;
    if (!file.open(QIODevice::ReadOnly)) {
        out.unreadable = true;
        return out;
    }
    const QByteArray bytes = file.readAll();
    out.size = bytes.size();
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        out.state.turns = salvageTurns(bytes, out.lost);
        qCWarning(lcOutbox).noquote()
            << "outbox" << path << "is damaged (" << error.errorString() << "); kept aside as"
            << damagedName << "-" << out.state.turns.size() << "turns read back," << out.lost
            << "could not be";
        return out;
    }
    out.parsed = true;
    out.state = OutboxState::fromJson(doc.object());
    out.token = doc.object().value(tokenKey).toString();
    return out;
}

JournalFile readJournal(const QString &path)
{
    JournalFile out;
    QFile file(path);
    out.present = file.exists();
    if (!out.present)
        return out;
    if (!file.open(QIODevice::ReadOnly)) {
        out.unreadable = true;
        return out;
    }
    const QByteArray bytes = file.readAll();
    out.size = bytes.size();
    qsizetype start = 0;
    bool first = true;
    for (qsizetype end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', start)) {
        const QByteArray text = bytes.mid(start, end - start);
        start = end + 1;
        if (first) {
            first = false;
            const QJsonObject header = QJsonDocument::fromJson(text).object();
            out.token = header.value(tokenKey).toString();
            out.headerOK = !out.token.isEmpty();
            out.headerDamaged = !out.headerOK;
            if (!out.headerOK)
                qCWarning(lcOutbox).noquote() << "outbox" << path << "header is damaged";
            continue;
        }
        out.records.append(text);
    }
    out.tornTail = start < bytes.size();
    return out;
}

// Holds the folder's lock for one transaction; an unusable lock is logged, and the change
// goes ahead (a lone process must not lose a turn because its lock file cannot be made).
class FolderLock
{
public:
    explicit FolderLock(const QString &folder)
        : m_lock(QDir(folder).filePath(lockName))
    {
        if (!m_lock.tryLock(lockPatience))
            qCWarning(lcOutbox).noquote() << "outbox lock" << folder << "not taken:" << m_lock.error();
    }

private:
    QLockFile m_lock;
};

} // namespace

ChatOutbox::ChatOutbox(QString storageKey)
    : m_folder(folderFor(storageKey))
{
}

ChatOutbox::~ChatOutbox() = default;
ChatOutbox::ChatOutbox(ChatOutbox &&) noexcept = default;
ChatOutbox &ChatOutbox::operator=(ChatOutbox &&) noexcept = default;

ChatOutbox ChatOutbox::at(const QString &folder)
{
    ChatOutbox outbox({});
    outbox.m_folder = folder;
    return outbox;
}

QString ChatOutbox::folderFor(const QString &storageKey)
{
    const QString base = AppData::path(u"chat-outbox"_s);
    if (base.isEmpty())
        return {};
    const QByteArray digest =
        QCryptographicHash::hash(storageKey.toUtf8(), QCryptographicHash::Sha256).toHex();
    return QDir(base).filePath(QString::fromLatin1(digest));
}

QString ChatOutbox::statePath() const
{
    return m_folder.isEmpty() ? QString() : QDir(m_folder).filePath(stateName);
}

QString ChatOutbox::journalPath() const
{
    return m_folder.isEmpty() ? QString() : QDir(m_folder).filePath(journalName);
}

void ChatOutbox::closeJournal()
{
    m_journal.reset();
    m_journalBytes = 0;
}

ChatOutbox::Stamps ChatOutbox::stampNow() const
{
    auto of = [](const QString &path) {
        struct stat st{};
        if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &st) != 0)
            return Stamp{};
        return Stamp{qint64(st.st_ino), qint64(st.st_size),
                     qint64(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec};
    };
    return Stamps{of(statePath()), of(journalPath())};
}

void ChatOutbox::load()
{
    if (m_folder.isEmpty() || !QFileInfo(m_folder).isDir()) {
        loadUnlocked();
        return;
    }
    FolderLock lock(m_folder);
    loadUnlocked();
}

bool ChatOutbox::refresh()
{
    if (!m_loaded)
        return load(), true;
    if (m_folder.isEmpty() || stampNow() == m_seen)
        return false;
    load();
    return true;
}

void ChatOutbox::loadUnlocked()
{
    closeJournal();
    m_state = {};
    m_loaded = true;
    m_unreadable = false;
    m_stateBytes = 0;
    if (m_folder.isEmpty())
        return;

    StateFile state = readState(statePath());
    const JournalFile journal = readJournal(journalPath());
    if (state.unreadable || journal.unreadable) {
        qCWarning(lcOutbox).noquote() << "outbox" << m_folder
                                      << "cannot be read; changes are refused until it can";
        m_unreadable = true;
        return;
    }
    const bool stateDamaged = state.present && !state.parsed;
    if (stateDamaged) {
        QFile::remove(QDir(m_folder).filePath(damagedName));
        if (!QFile::rename(statePath(), QDir(m_folder).filePath(damagedName))) {
            qCWarning(lcOutbox).noquote() << "outbox could not keep the damaged state aside";
            m_unreadable = true;
            return;
        }
    }
    m_state = std::move(state.state);
    m_stateBytes = state.size;

    m_lost = state.lost;
    // Without a readable state.json the journal is all there is: keep what it says. A journal
    // whose header is damaged may be this state's or an earlier one's; its changes are replayed
    // all the same, since the state already holds whatever an earlier journal recorded and
    // each change sets a turn to what it last was: nothing is applied twice.
    const bool ownJournal = !state.token.isEmpty() && journal.token == state.token;
    const bool replay = (journal.headerOK && (!state.parsed || ownJournal)) || journal.headerDamaged;
    if (state.parsed && !state.token.isEmpty() && !journal.present)
        qCWarning(lcOutbox).noquote() << "outbox" << m_folder
                                      << "lost its journal: turns recorded since" << statePath()
                                      << "was last written may be gone";
    if (journal.present && !replay)
        qCInfo(lcOutbox) << "outbox journal does not belong to state.json; ignored";
    int damagedLines = 0;
    if (replay) {
        for (qsizetype i = 0; i < journal.records.size(); ++i) {
            try {
                apply(m_state, decode(Decode::from<QJsonObject>(journal.records.at(i))));
            } catch (const DecodeError &e) {
                ++damagedLines;
                ++m_lost;
                qCWarning(lcOutbox).noquote() << "outbox journal line" << i + 2
                                              << "is damaged and was skipped:" << e.key
                                              << e.expected << e.found;
            }
        }
        if (journal.tornTail)
            qCInfo(lcOutbox) << "outbox journal ends in a torn line; ignored";
    }

    // Turns written before the failure kind was kept: rewritten once with the kind.
    bool guessed = false;
    for (OutboxTurn &turn : m_state.turns)
        guessed = std::exchange(turn.failureGuessed, false) || guessed;

    const bool dirty = stateDamaged || damagedLines > 0 || guessed || journal.headerDamaged
                       || (replay && (!journal.records.isEmpty() || journal.tornTail));
    if (dirty) {
        if (!compact(m_state))
            qCWarning(lcOutbox).noquote() << "outbox" << m_folder << "could not be compacted";
        m_seen = stampNow();
        return;
    }
    if (replay) {
        auto file = std::make_unique<QFile>(journalPath());
        if (file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
            m_journal = std::move(file);
            m_journalBytes = journal.size;
        }
    }
    m_seen = stampNow();
}

bool ChatOutbox::ensureLoaded()
{
    if (!m_loaded || m_unreadable)
        load();
    else
        refresh();
    return !m_unreadable && !m_folder.isEmpty();
}

bool ChatOutbox::ensureFolder()
{
    if (m_folder.isEmpty())
        return false;
    if (QFileInfo(m_folder).isDir())
        return true;
    if (!QDir().mkpath(m_folder))
        return false;
    // The new folder's own entry, and "chat-outbox" in the data folder when that is new too.
    const QString parent = QFileInfo(m_folder).absolutePath();
    syncFolder(parent);
    syncFolder(QFileInfo(parent).absolutePath());
    return true;
}

bool ChatOutbox::commit(const QJsonObject &record)
{
    if (!ensureFolder())
        return false;
    FolderLock lock(m_folder);
    // Another process changed the files: build on what it wrote, never on a replaced journal.
    if (m_loaded && stampNow() != m_seen)
        loadUnlocked();
    const bool ok = commitUnlocked(record);
    m_seen = stampNow();
    return ok;
}

bool ChatOutbox::commitUnlocked(const QJsonObject &record)
{
    if (!m_loaded || m_unreadable)
        loadUnlocked();
    if (m_unreadable || m_folder.isEmpty())
        return false;
    Change change;
    try {
        change = decode(record);
    } catch (const DecodeError &e) {
        // Only a value JSON cannot carry gets here (a seq beyond 2^53).
        qCWarning(lcOutbox).noquote() << "outbox change cannot be stored:" << e.key << e.found;
        return false;
    }
    const QByteArray text = line(record);
    const qint64 limit = std::max(m_stateBytes, journalFloor);
    if (m_journal && m_journalBytes + text.size() <= limit) {
        if (!appendRecord(text))
            return false;
        apply(m_state, change);
        return true;
    }
    OutboxState next = m_state;
    apply(next, change);
    if (!compact(next))
        return false;
    m_state = std::move(next);
    return true;
}

bool ChatOutbox::appendRecord(const QByteArray &text)
{
    const qint64 before = m_journalBytes;
    if (m_journal->write(text) == text.size() && ::fsync(m_journal->handle()) == 0) {
        m_journalBytes += text.size();
        m_written += text.size();
        return true;
    }
    qCWarning(lcOutbox).noquote() << "outbox journal write failed:" << m_journal->errorString();
    m_journal->unsetError();
    // Cut the partial line off, so the next one does not land behind it.
    if (!m_journal->resize(before) || ::fsync(m_journal->handle()) != 0)
        closeJournal();
    return false;
}

bool ChatOutbox::compact(const OutboxState &next)
{
    if (!ensureFolder())
        return false;
    const QString token = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QJsonObject whole = next.toJson();
    whole.insert(tokenKey, token);
    const QByteArray stateBytes = QJsonDocument(whole).toJson(QJsonDocument::Compact);
    if (!AtomicFile::write(statePath(), stateBytes))
        return false;
    m_written += stateBytes.size();
    m_stateBytes = stateBytes.size();
    // From here the old journal no longer matches; the new one must not exist on disk before
    // the rename above does.
    closeJournal();
    if (!syncFolder(m_folder)) {
        qCWarning(lcOutbox).noquote() << "outbox folder" << m_folder << "could not be synced";
        return true;
    }
    const QByteArray header = line(QJsonObject{{tokenKey, token}});
    if (!AtomicFile::write(journalPath(), header) || !syncFolder(m_folder)) {
        qCWarning(lcOutbox).noquote() << "outbox journal could not be started";
        return true;
    }
    m_written += header.size();
    auto file = std::make_unique<QFile>(journalPath());
    if (file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        m_journal = std::move(file);
        m_journalBytes = header.size();
    }
    return true;
}

bool ChatOutbox::append(const OutboxTurn &turn)
{
    return commit(QJsonObject{{u"op"_s, u"append"_s}, {u"turn"_s, turn.toJson()}});
}

bool ChatOutbox::update(const OutboxTurn &turn)
{
    if (!ensureLoaded())
        return false;
    const qsizetype at = indexOf(m_state.turns, turn.id);
    if (at < 0 || m_state.turns.at(at) == turn)
        return true;
    return commit(QJsonObject{{u"op"_s, u"update"_s}, {u"turn"_s, turn.toJson()}});
}

bool ChatOutbox::remove(const QString &turnID)
{
    if (!ensureLoaded())
        return false;
    if (indexOf(m_state.turns, turnID) < 0)
        return true;
    return commit(QJsonObject{{u"op"_s, u"remove"_s}, {u"id"_s, turnID}});
}

bool ChatOutbox::setComposer(const std::optional<QString> &text,
                             const std::optional<ChatMessage> &replyTo)
{
    if (!ensureLoaded())
        return false;
    if (m_state.composerText == text && m_state.replyTo == replyTo)
        return true;
    return commit(composerRecord(text, replyTo));
}

bool ChatOutbox::clearDrafts()
{
    if (!ensureLoaded())
        return false;
    if (m_state.drafts.isEmpty())
        return true;
    return commit(QJsonObject{{u"op"_s, u"drafts"_s}});
}

int ChatOutbox::sweep(std::chrono::seconds minAge, const QDateTime &now)
{
    if (m_folder.isEmpty() || !QFileInfo(m_folder).isDir())
        return 0;
    FolderLock lock(m_folder);
    if (!m_loaded || stampNow() != m_seen)
        loadUnlocked();
    if (m_unreadable)
        return 0;
    QSet<QString> named;
    for (const QList<OutboxTurn> *list : {&m_state.turns, &m_state.drafts}) {
        for (const OutboxTurn &turn : *list) {
            for (const OutboxFile &file : turn.files)
                named.insert(file.fileID + u".data"_s);
            if (turn.voiceNote)
                named.insert(turn.voiceNote->fileID + u".data"_s);
        }
    }
    const QDateTime before = now.toUTC().addSecs(-minAge.count());
    int removed = 0;
    const QFileInfoList files = QDir(m_folder).entryInfoList({u"*.data"_s}, QDir::Files);
    for (const QFileInfo &file : files) {
        if (named.contains(file.fileName()) || file.lastModified().toUTC() > before)
            continue;
        if (QFile::remove(file.filePath()))
            ++removed;
    }
    if (removed > 0)
        qCInfo(lcOutbox) << "outbox" << m_folder << "swept" << removed << "stray files";
    return removed;
}

QString ChatOutbox::dataPath(const QString &fileID) const
{
    if (m_folder.isEmpty() || !safeFileID(fileID))
        return {};
    return QDir(m_folder).filePath(fileID + u".data"_s);
}

bool ChatOutbox::writeData(const QString &fileID, const QByteArray &bytes)
{
    const QString path = dataPath(fileID);
    if (path.isEmpty() || !ensureFolder() || !AtomicFile::write(path, bytes))
        return false;
    // The turn that names this file is recorded next; the file must outlive a power cut too.
    return syncFolder(m_folder);
}

bool ChatOutbox::copyData(const QString &fileID, const QString &sourcePath)
{
    const QString path = dataPath(fileID);
    if (path.isEmpty() || !ensureFolder())
        return false;
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly)) {
        qCDebug(lcOutbox) << "outbox copy: cannot read" << sourcePath << source.errorString();
        return false;
    }
    QSaveFile target(path);
    if (!target.open(QIODevice::WriteOnly))
        return false;
    QByteArray chunk;
    while (!source.atEnd()) {
        chunk = source.read(copyChunk);
        if (chunk.isEmpty())
            break;
        if (target.write(chunk) != chunk.size()) {
            target.cancelWriting();
            return false;
        }
    }
    if (source.error() != QFileDevice::NoError) {
        target.cancelWriting();
        return false;
    }
    return target.commit() && syncFolder(m_folder);
}

std::optional<QByteArray> ChatOutbox::readData(const QString &fileID) const
{
    const QString path = dataPath(fileID);
    if (path.isEmpty())
        return std::nullopt;
    return AtomicFile::read(path);
}

void ChatOutbox::removeData(const QString &fileID)
{
    const QString path = dataPath(fileID);
    if (!path.isEmpty())
        QFile::remove(path);
}

void ChatOutbox::removeAll()
{
    closeJournal();
    if (!m_folder.isEmpty())
        QDir(m_folder).removeRecursively();
    m_state = {};
    m_loaded = true;
    m_unreadable = false;
    m_stateBytes = 0;
}
