// The chat store's files: the transcript and lanes read at start, and written on one disk
// thread, coalesced (one pending write, newest wins).

#include "chat/store/chatstore.h"
#include "chat/chatlogging.h"

#include "chat/store/transcript.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"

#include <QDir>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

void ChatStore::hydrate()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    const bool owner = m_role == u"owner";
    if (const auto bytes =
            AtomicFile::read(QDir(dir).filePath(Transcript::fileName(storageKey(), owner)))) {
        if (auto contents = Transcript::decode(*bytes)) {
            m_messages = std::move(contents->messages);
            m_messages.order();
            m_cachedSeq = contents->cachedSeq;
            m_seen.clear();
            m_answered.clear();
            m_turnOf.clear();
            m_locals = 0;
            m_seen.reserve(m_messages.size());
            for (const ChatMessage &m : m_messages) {
                index(m);
                m_cursor = std::max(m_cursor, m.seq);
            }
        }
    }
    if (const auto bytes =
            AtomicFile::read(QDir(dir).filePath(Transcript::activityFileName(storageKey())))) {
        for (Lane &lane : Transcript::decodeLanes(*bytes))
            (lane.finished ? m_history : m_lanes).append(std::move(lane));
        if (m_history.size() > maxHistory)
            m_history.remove(0, m_history.size() - maxHistory);
    }
    placeLanes();
    rebuild();
}

void ChatStore::persist()
{
    // One pending write, newest wins: a first load of a hundred pages writes once.
    m_transcriptSave.schedule();
}

void ChatStore::writeTranscript()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    for (const ChatMessage &m : m_messages)
        m_cachedSeq = std::max(m_cachedSeq, m.seq);
    const QString file = QDir(dir).filePath(Transcript::fileName(storageKey(), m_role == u"owner"));
    // The list is shared, not copied, until this thread changes it again. Only the newest
    // messages are kept on the device; the server holds the rest.
    Transcript::Contents contents{m_messages.newest(maxTranscript), m_cachedSeq};
    m_disk.start([file, contents = std::move(contents)] {
        if (!AtomicFile::write(file, Transcript::encode(contents)))
            qCWarning(lcChat) << "could not write the transcript" << file;
    });
}

void ChatStore::saveActivity()
{
    m_activitySave.schedule();
}

void ChatStore::writeActivity()
{
    QVariantMap anchors;
    for (auto it = m_anchors.begin(); it != m_anchors.end(); ++it)
        anchors.insert(it.key(), it.value());
    if (AppData::setting(laneAnchorKey()).toMap() != anchors)
        AppData::setSetting(laneAnchorKey(), anchors);
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    QList<Lane> all = m_history;
    all.append(m_lanes);
    const QString file = QDir(dir).filePath(Transcript::activityFileName(storageKey()));
    m_disk.start([file, all = std::move(all)] {
        if (!AtomicFile::write(file, Transcript::encodeLanes(all)))
            qCWarning(lcChat) << "could not write the lanes" << file;
    });
}

void ChatStore::flushDisk()
{
    m_transcriptSave.flush();
    m_activitySave.flush();
    m_disk.waitForDone();
}
