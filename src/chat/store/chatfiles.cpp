#include "chat/store/chatfiles.h"
#include "chat/chatlogging.h"

#include "chat/store/chattimeline.h"
#include "chat/store/transcript.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"

#include <QDir>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

ChatFiles::ChatFiles(ChatScope scope, QString account, bool owner, ChatTimeline &timeline,
                     Sleeper &sleeper, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_scope(std::move(scope))
    , m_account(std::move(account))
    , m_owner(owner)
    , m_timeline(timeline)
    , m_clock(clock)
    , m_activitySave(this, 400ms, [this] { writeActivity(); }, &sleeper)
    , m_transcriptSave(this, 300ms, [this] { writeTranscript(); }, &sleeper)
{
    m_disk.setMaxThreadCount(1);
    m_disk.setObjectName(u"chat.activity.disk"_s);
}

QString ChatFiles::anchorsPrefix()
{
    return u"chat.laneAnchors."_s;
}

QHash<QString, qint64> ChatFiles::anchors() const
{
    QHash<QString, qint64> out;
    const QVariantMap kept = AppData::setting(anchorsPrefix() + storageKey()).toMap();
    for (auto it = kept.begin(); it != kept.end(); ++it)
        out.insert(it.key(), it.value().toLongLong());
    return out;
}

void ChatFiles::rememberProject() const
{
    const auto project = m_scope.projectID();
    if (!project)
        return;
    const QString key = u"chat.projects."_s + m_account;
    QVariantMap known = AppData::setting(key).toMap();
    if (!known.contains(QString::number(*project))) {
        known.insert(QString::number(*project), true);
        AppData::setSetting(key, known);
    }
}

void ChatFiles::hydrate()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    MessageList messages;
    if (const auto bytes =
            AtomicFile::read(QDir(dir).filePath(Transcript::fileName(storageKey(), m_owner)))) {
        if (auto contents = Transcript::decode(*bytes, m_clock.epochSeconds())) {
            messages = std::move(contents->messages);
            m_cachedSeq = contents->cachedSeq;
        }
    }
    QList<Lane> lanes;
    if (const auto bytes =
            AtomicFile::read(QDir(dir).filePath(Transcript::activityFileName(storageKey()))))
        lanes = Transcript::decodeLanes(*bytes);
    m_timeline.restore(std::move(messages), std::move(lanes));
}

void ChatFiles::saveTranscript()
{
    // One pending write, newest wins: a first load of a hundred pages writes once.
    m_transcriptSave.schedule();
}

void ChatFiles::writeTranscript()
{
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    for (const ChatMessage &m : m_timeline.messages())
        m_cachedSeq = std::max(m_cachedSeq, m.seq);
    const QString file = QDir(dir).filePath(Transcript::fileName(storageKey(), m_owner));
    // The list is shared, not copied, until the main thread changes it again.
    Transcript::Contents contents{m_timeline.messages().newest(maxTranscript), m_cachedSeq};
    m_disk.start([file, contents = std::move(contents)] {
        if (!AtomicFile::write(file, Transcript::encode(contents)))
            qCWarning(lcChat) << "could not write the transcript" << file;
    });
}

void ChatFiles::saveActivity()
{
    m_activitySave.schedule();
}

void ChatFiles::writeActivity()
{
    QVariantMap anchors;
    const QHash<QString, qint64> &held = m_timeline.anchors();
    for (auto it = held.begin(); it != held.end(); ++it)
        anchors.insert(it.key(), it.value());
    const QString key = anchorsPrefix() + storageKey();
    if (AppData::setting(key).toMap() != anchors)
        AppData::setSetting(key, anchors);
    const QString dir = Transcript::folder();
    if (dir.isEmpty())
        return;
    QList<Lane> all = m_timeline.history();
    all.append(m_timeline.lanes());
    const QString file = QDir(dir).filePath(Transcript::activityFileName(storageKey()));
    m_disk.start([file, all = std::move(all)] {
        if (!AtomicFile::write(file, Transcript::encodeLanes(all)))
            qCWarning(lcChat) << "could not write the lanes" << file;
    });
}

void ChatFiles::flush()
{
    m_transcriptSave.flush();
    m_activitySave.flush();
    m_disk.waitForDone();
}
