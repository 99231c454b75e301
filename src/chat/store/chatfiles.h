#pragma once

#include "chat/model/chatscope.h"
#include "platform/debouncer.h"

#include <QHash>
#include <QObject>
#include <QThreadPool>

class ChatTimeline;
class Clock;
class Sleeper;

// Everything one chat store keeps on the device besides the outbox: the transcript and the
// lanes (written on one disk thread, coalesced: one pending write, newest wins), the lane
// anchors and the list of project conversations in the settings.
class ChatFiles : public QObject
{
    Q_OBJECT

public:
    // The newest messages kept in the transcript file; the server holds the rest.
    static constexpr qsizetype maxTranscript = 20000;

    ChatFiles(ChatScope scope, QString account, bool owner, ChatTimeline &timeline,
              Sleeper &sleeper, Clock &clock, QObject *parent = nullptr);

    // The transcript and lanes from disk into the timeline.
    void hydrate();
    // The lane anchors the settings keep.
    QHash<QString, qint64> anchors() const;
    // Remembers a project conversation, so that a later start finds its kept turns.
    void rememberProject() const;
    void saveTranscript();
    void saveActivity();
    // Runs pending writes now and waits for every disk write.
    void flush();
    // Forgets what was read (a reset): the next transcript write starts anew.
    void forget() { m_cachedSeq = 0; }

    // The settings prefix of every conversation's lane anchors.
    static QString anchorsPrefix();

private:
    QString storageKey() const { return m_scope.storageKey(m_account); }
    void writeTranscript();
    void writeActivity();

    ChatScope m_scope;
    QString m_account;
    bool m_owner;
    ChatTimeline &m_timeline;
    Clock &m_clock;
    qint64 m_cachedSeq = 0;
    Debouncer m_activitySave;
    Debouncer m_transcriptSave;
    QThreadPool m_disk; // "chat.activity.disk": one writer, in order
};
