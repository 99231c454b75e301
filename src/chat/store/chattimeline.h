#pragma once

#include "chat/model/lane.h"
#include "chat/model/messagelist.h"
#include "chat/model/messagesfeed.h"
#include "chat/model/row.h"
#include "chat/store/timelinemerge.h"

#include <QHash>
#include <QObject>
#include <QSet>

#include <optional>

class ChatRowsModel;
class Clock;

// One conversation as the screen shows it: the messages, the lanes of agent work, and the
// rows drawn from both, kept by small edits and rebuilt only when order changes.
class ChatTimeline : public QObject
{
    Q_OBJECT

public:
    // Finished lanes kept for display, and lane anchors kept in the settings.
    static constexpr qsizetype maxHistory = 200;
    static constexpr qsizetype maxAnchors = 500;

    ChatTimeline(QString conversationID, Clock &clock, QObject *parent = nullptr);

    const MessageList &messages() const { return m_messages; }
    const QList<Lane> &lanes() const { return m_lanes; }
    const QList<Lane> &history() const { return m_history; }
    const QList<Row> &rows() const { return m_rows; }
    ChatRowsModel *model() const { return m_model; }
    const QHash<QString, qint64> &anchors() const { return m_anchors; }
    qint64 cursor() const { return m_cursor; }
    qint64 activityCursor() const { return m_activityCursor; }
    int unread() const { return m_unread; }
    // The newest seq the server gave, for a turn written now.
    qint64 lastSeq() const;
    bool answered(const QString &runID) const { return m_answered.contains(runID); }
    bool laneFinished(const QString &runID) const;
    // The task numbers of the lanes held (for a refresh that asks about them).
    QStringList laneTasks() const;

    // Empty, with the lane anchors kept in the settings.
    void clear(const QHash<QString, qint64> &anchors);
    // What the device kept: the stored transcript and the lanes.
    void restore(MessageList messages, QList<Lane> lanes);

    // A page in: its messages are merged (nothing else is touched); show() then draws them.
    std::optional<TimelineMerge> merge(const MessagesFeed &feed, bool replacing);
    void show(const TimelineMerge &merged);
    void absorbActivity(const MessagesFeed &feed);

    // A run began under the turn with `userSeq` (0 when unknown).
    void startLane(const QString &runID, qint64 userSeq);
    void recordTool(const QString &runID, const QString &name, const QString &summary,
                    const QString &status);
    void upsert(const QString &runID, const QString &label, const QString &text,
                std::optional<int> attempt);
    void finishActivity(const QString &runID, const QString &outcome);
    void appendReply(const QString &runID, const QString &text, std::optional<double> createdAt,
                     const QString &voiceFile);
    // A turn of this device was taken: the lane of its run sits under it.
    void anchorRun(const QString &runID, qint64 userSeq);
    // The message with this seq has that voice file.
    void attachVoice(qint64 seq, const QString &file);
    void markRead();

signals:
    // One change of a lane (label, text, a tool step, its end), for followers of the work.
    void laneChanged(const Lane &lane);
    // A message was added to the transcript (by fetch, frame or poll).
    void messageAdded(const ChatMessage &message);
    void unreadChanged();
    // The messages changed: the transcript file follows.
    void messagesChanged();
    // The lanes or their anchors changed: their file follows.
    void lanesChanged();

private:
    Lane &laneFor(const QString &runID);
    void archive(const QString &runID);
    void append(ChatMessage message);
    bool placeLanes(); // true when a lane moved
    bool appendRows(const QList<MessageList::Ptr> &added);
    void rebuild();
    // Shows a changed lane: in place, as one new row, or by a rebuild when it moved.
    void showLane(const Lane &lane);
    // Keeps the indexes of held messages in step with one message taken in.
    void index(const ChatMessage &message);
    void addUnread(int n);

    QString m_conversationID;
    Clock &m_clock;
    ChatRowsModel *m_model;

    MessageList m_messages;
    QList<Lane> m_lanes;
    QList<Lane> m_history;
    QList<Row> m_rows;
    QHash<QString, qsizetype> m_laneRows; // run id → its row
    QSet<qint64> m_seen; // seqs held
    QSet<QString> m_answered; // runs whose reply is held
    QHash<QString, qint64> m_turnOf; // run id → seq of the user message that started it
    qsizetype m_locals = 0; // held messages made here, not yet stamped
    qint64 m_cursor = 0;
    qint64 m_activityCursor = 0;
    QHash<QString, qint64> m_anchors; // run id → the seq its lane sits under
    int m_unread = 0;
};
