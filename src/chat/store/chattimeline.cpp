// The timeline's edits: lanes of agent work and the rows the screen draws, kept by small
// edits (a page appended, one lane in or changed) and rebuilt only when order changes.

#include "chat/store/chattimeline.h"

#include "chat/model/chatorder.h"
#include "chat/store/chatrowsmodel.h"
#include "platform/clock.h"

#include <algorithm>

using namespace Qt::StringLiterals;

ChatTimeline::ChatTimeline(QString conversationID, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_conversationID(std::move(conversationID))
    , m_clock(clock)
    , m_model(new ChatRowsModel(this))
{
}

qint64 ChatTimeline::lastSeq() const
{
    for (auto it = m_messages.rbegin(); it != m_messages.rend(); ++it) {
        if (it->seq >= 1)
            return it->seq;
    }
    return 0;
}

QStringList ChatTimeline::laneTasks() const
{
    QStringList tasks;
    for (const Lane &lane : m_lanes) {
        if (const auto n = lane.taskNumber())
            tasks.append(QString::number(*n));
    }
    return tasks;
}

void ChatTimeline::clear(const QHash<QString, qint64> &anchors)
{
    m_messages.clear();
    m_lanes.clear();
    m_history.clear();
    m_seen.clear();
    m_answered.clear();
    m_turnOf.clear();
    m_locals = 0;
    m_cursor = 0;
    m_activityCursor = 0;
    m_unread = 0;
    m_anchors = anchors;
    rebuild();
    emit unreadChanged();
}

void ChatTimeline::restore(MessageList messages, QList<Lane> lanes)
{
    if (!messages.isEmpty()) {
        m_messages = std::move(messages);
        m_messages.order();
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
    for (Lane &lane : lanes)
        (lane.finished ? m_history : m_lanes).append(std::move(lane));
    if (m_history.size() > maxHistory)
        m_history.remove(0, m_history.size() - maxHistory);
    placeLanes();
    rebuild();
}

void ChatTimeline::index(const ChatMessage &m)
{
    if (m.seq >= 1)
        m_seen.insert(m.seq);
    else
        ++m_locals;
    if (!m.runID)
        return;
    if (m.role == u"assistant")
        m_answered.insert(*m.runID);
    else if (m.role == u"user" && m.seq >= 1)
        m_turnOf.insert(*m.runID, m.seq);
}

std::optional<TimelineMerge> ChatTimeline::merge(const MessagesFeed &feed, bool replacing)
{
    if (feed.conversationID != m_conversationID || feed.messages.isEmpty())
        return std::nullopt;
    TimelineMerge merged =
        TimelineMerge::plan(m_messages, m_seen, m_locals > 0, m_cursor, feed, replacing);
    m_cursor = merged.cursor;
    for (const TimelineMerge::Replacement &r : std::as_const(merged.replaced)) {
        m_messages.replace(r.at, r.message);
        --m_locals;
        index(*r.message);
    }
    for (const MessageList::Ptr &m : std::as_const(merged.added)) {
        m_messages.append(m);
        index(*m);
    }
    return merged;
}

void ChatTimeline::show(const TimelineMerge &merged)
{
    // A page of newer messages appends rows; anything else rebuilds them.
    const bool moved = placeLanes();
    if (!merged.replaced.isEmpty() || moved || !appendRows(merged.added)) {
        m_messages.order();
        rebuild();
    }
    emit messagesChanged();
    addUnread(merged.newReplies);
    for (const MessageList::Ptr &m : merged.added)
        emit messageAdded(*m);
}

void ChatTimeline::absorbActivity(const MessagesFeed &feed)
{
    if (feed.activity.isEmpty())
        return;
    QSet<QString> touched;
    for (const ActivityUpdate &update : feed.activity) {
        if (update.seq >= 1 && update.seq <= m_activityCursor)
            continue;
        laneFor(update.id).replay(update);
        m_activityCursor = std::max(m_activityCursor, update.seq);
        touched.insert(update.id);
    }
    if (feed.activityCursor)
        m_activityCursor = std::max(m_activityCursor, *feed.activityCursor);
    m_lanes = Lane::coalesced(m_lanes);
    for (const QString &id : std::as_const(touched)) {
        if (std::any_of(m_lanes.begin(), m_lanes.end(),
                        [&](const Lane &l) { return l.id == id && l.finished; }))
            archive(id);
    }
    placeLanes();
    rebuild();
    emit lanesChanged();
    for (const QString &id : std::as_const(touched))
        emit laneChanged(laneFor(id));
}

void ChatTimeline::startLane(const QString &runID, qint64 userSeq)
{
    Lane &lane = laneFor(runID);
    if (userSeq >= 1)
        lane.after = userSeq;
    placeLanes();
    const Lane copy = laneFor(runID);
    showLane(copy);
    emit lanesChanged();
    emit laneChanged(copy);
}

void ChatTimeline::recordTool(const QString &runID, const QString &name, const QString &summary,
                              const QString &status)
{
    Lane &lane = laneFor(runID);
    lane.recordTool(name, summary, status);
    if (lane.after < 1)
        placeLanes();
    const Lane copy = laneFor(runID);
    showLane(copy);
    emit lanesChanged();
    emit laneChanged(copy);
}

void ChatTimeline::anchorRun(const QString &runID, qint64 userSeq)
{
    Lane &lane = laneFor(runID);
    if (lane.after < 1)
        lane.after = userSeq;
    placeLanes();
    showLane(laneFor(runID));
    emit lanesChanged();
}

void ChatTimeline::attachVoice(qint64 seq, const QString &file)
{
    for (qsizetype i = 0; i < m_messages.size(); ++i) {
        const ChatMessage &m = m_messages.at(i);
        if (m.seq != seq || m.voiceFile == file)
            continue;
        auto changed = std::make_shared<ChatMessage>(m);
        changed->voiceFile = file;
        m_messages.replace(i, std::move(changed));
        rebuild();
        emit messagesChanged();
        return;
    }
}

void ChatTimeline::addUnread(int n)
{
    if (n == 0)
        return;
    m_unread += n;
    emit unreadChanged();
}

void ChatTimeline::markRead()
{
    if (m_unread == 0)
        return;
    m_unread = 0;
    emit unreadChanged();
}

Lane &ChatTimeline::laneFor(const QString &runID)
{
    for (Lane &lane : m_lanes) {
        if (lane.id == runID)
            return lane;
    }
    for (Lane &lane : m_history) {
        if (lane.id == runID)
            return lane;
    }
    // No label or text yet: the card shows Lane::heading() until the run says something.
    Lane lane;
    lane.id = runID;
    lane.after = m_anchors.value(runID, 0);
    m_lanes.append(lane);
    return m_lanes.last();
}

bool ChatTimeline::laneFinished(const QString &runID) const
{
    const auto same = [&](const Lane &l) { return l.id == runID && l.finished; };
    return std::any_of(m_history.begin(), m_history.end(), same) ||
           std::any_of(m_lanes.begin(), m_lanes.end(), same);
}

void ChatTimeline::upsert(const QString &runID, const QString &label, const QString &text,
                       std::optional<int> attempt)
{
    if (laneFinished(runID))
        return;
    Lane &lane = laneFor(runID);
    if (!label.isEmpty())
        lane.label = label;
    if (!text.isEmpty())
        lane.text = text;
    if (attempt)
        lane.attempt = attempt;
    const Lane copy = lane;
    showLane(copy);
    emit lanesChanged();
    emit laneChanged(copy);
}

void ChatTimeline::showLane(const Lane &lane)
{
    // A streamed lane changes one row and a new lane adds one; only a lane that moved, or
    // one that is not the newest, needs the whole list.
    const qsizetype at = m_laneRows.value(lane.id, -1);
    if (at >= 0) {
        if (m_rows.at(at).lane()->after != lane.after) {
            rebuild();
            return;
        }
        m_rows[at] = Row::lane(lane);
        m_model->replace(int(at), m_rows.at(at));
        return;
    }
    if (m_lanes.isEmpty() || m_lanes.constLast().id != lane.id) {
        rebuild();
        return;
    }
    // The newest lane goes last among the lanes under its turn, or at the very end when its
    // turn is not held. New turns are near the end, so the search starts there.
    qsizetype pos = m_rows.size();
    if (lane.after >= 1) {
        for (qsizetype i = m_rows.size() - 1; i >= 0; --i) {
            const ChatMessage *m = m_rows.at(i).message();
            if (!m || m->seq != lane.after)
                continue;
            pos = i + 1;
            while (pos < m_rows.size() && m_rows.at(pos).lane() &&
                   m_rows.at(pos).lane()->after == lane.after)
                ++pos;
            break;
        }
    }
    for (qsizetype &row : m_laneRows) {
        if (row >= pos)
            ++row;
    }
    m_laneRows.insert(lane.id, pos);
    m_rows.insert(pos, Row::lane(lane));
    m_model->insert(int(pos), m_rows.at(pos));
}

void ChatTimeline::rebuild()
{
    QList<Lane> all = m_history;
    all.append(m_lanes);
    m_rows = buildRows(m_messages, all);
    m_laneRows.clear();
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (const Lane *lane = m_rows.at(i).lane())
            m_laneRows.insert(lane->id, i);
    }
    m_model->update(m_rows);
}

bool ChatTimeline::placeLanes()
{
    bool moved = false;
    auto place = [&](Lane &lane) {
        if (lane.after < 1)
            lane.after = m_turnOf.value(lane.id, m_anchors.value(lane.id, 0));
        if (lane.after >= 1 && m_anchors.value(lane.id, 0) != lane.after) {
            m_anchors.insert(lane.id, lane.after);
            moved = true;
        }
    };
    std::for_each(m_lanes.begin(), m_lanes.end(), place);
    std::for_each(m_history.begin(), m_history.end(), place);
    if (!moved)
        return false;
    // Bounded: past the cap only the lanes still held keep their anchor.
    if (m_anchors.size() > maxAnchors) {
        QSet<QString> held;
        for (const Lane &lane : std::as_const(m_lanes))
            held.insert(lane.id);
        for (const Lane &lane : std::as_const(m_history))
            held.insert(lane.id);
        m_anchors.removeIf([&](const auto &it) { return !held.contains(it.key()); });
    }
    // Kept with the lanes: a settings write per frame would cost more than the frame.
    emit lanesChanged();
    return true;
}

bool ChatTimeline::appendRows(const QList<MessageList::Ptr> &added)
{
    // Only when the new messages simply follow the rows there are (the usual page of newer
    // messages): the rows end in a message, the new ones sort after it and in their order,
    // and no lane sits under them. Anything else takes the full rebuild.
    const qsizetype old = m_messages.size() - added.size();
    if (added.isEmpty() || old < 1 || m_rows.isEmpty() ||
        m_rows.constLast().message() != &m_messages.at(old - 1))
        return false;
    std::vector<const ChatMessage *> tail;
    tail.reserve(added.size() + 1);
    if (old > 0)
        tail.push_back(&m_messages.at(old - 1));
    for (const MessageList::Ptr &m : added)
        tail.push_back(m.get());
    const std::vector<qsizetype> order = messageOrder(tail);
    for (qsizetype i = 0; i < qsizetype(order.size()); ++i) {
        if (order[i] != i)
            return false;
    }
    QSet<qint64> seqs;
    for (const MessageList::Ptr &m : added)
        seqs.insert(m->seq);
    for (const QList<Lane> *list : {&m_lanes, &m_history}) {
        for (const Lane &lane : *list) {
            if (lane.after < 1 || seqs.contains(lane.after))
                return false;
        }
    }
    QList<Row> rows;
    rows.reserve(added.size());
    for (const MessageList::Ptr &m : added)
        rows.append(Row::message(m));
    m_rows.append(rows);
    m_model->append(rows);
    return true;
}

void ChatTimeline::finishActivity(const QString &runID, const QString &outcome)
{
    Lane &lane = laneFor(runID);
    lane.finished = true;
    lane.outcome = outcome;
    const Lane copy = lane;
    const qsizetype lanesBefore = m_lanes.size() + m_history.size();
    archive(runID);
    // Finishing moves the lane among the finished ones: the same place unless it shares its
    // turn with another lane.
    const qsizetype at = m_laneRows.value(runID, -1);
    const auto sameTurn = [&](const Lane &l) { return l.after == copy.after; };
    const bool alone = copy.after >= 1 && m_lanes.size() + m_history.size() == lanesBefore &&
                       at > 0 && m_rows.at(at).lane()->after == copy.after &&
                       m_rows.at(at - 1).message() &&
                       m_rows.at(at - 1).message()->seq == copy.after &&
                       std::count_if(m_lanes.begin(), m_lanes.end(), sameTurn) +
                               std::count_if(m_history.begin(), m_history.end(), sameTurn) ==
                           1;
    if (alone) {
        m_rows[at] = Row::lane(copy);
        m_model->replace(int(at), m_rows.at(at));
    } else {
        rebuild();
    }
    emit lanesChanged();
    emit laneChanged(copy);
}

void ChatTimeline::archive(const QString &runID)
{
    for (qsizetype i = 0; i < m_lanes.size(); ++i) {
        if (m_lanes.at(i).id == runID && m_lanes.at(i).finished) {
            m_history.append(m_lanes.takeAt(i));
            // The oldest finished lanes go first; their replies stay in the transcript.
            if (m_history.size() > maxHistory)
                m_history.remove(0, m_history.size() - maxHistory);
            return;
        }
    }
}

void ChatTimeline::appendReply(const QString &runID, const QString &text,
                            std::optional<double> createdAt, const QString &voiceFile)
{
    // Whichever comes first (frame, poll or fetch) shows the reply; the others find it there.
    if (m_answered.contains(runID))
        return;
    ChatMessage reply =
        ChatMessage::make(u"assistant"_s, text, createdAt.value_or(m_clock.epochSeconds()));
    reply.runID = runID;
    if (!voiceFile.isEmpty())
        reply.voiceFile = voiceFile;
    append(std::move(reply));
    addUnread(1);
}

void ChatTimeline::append(ChatMessage message)
{
    auto added = std::make_shared<const ChatMessage>(std::move(message));
    m_messages.append(added);
    index(*added);
    // Nearly always in place after the last row; otherwise ordered again and rebuilt.
    if (!appendRows({added})) {
        m_messages.order();
        rebuild();
    }
    emit messagesChanged();
    emit messageAdded(*added);
}
