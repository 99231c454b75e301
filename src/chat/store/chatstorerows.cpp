// The chat store's timeline: lanes of agent work and the rows the screen draws, kept by
// small edits (a page appended, one lane in or changed) and rebuilt only when order changes.

#include "chat/store/chatstore.h"

#include "chat/model/chatorder.h"
#include "chat/store/chatrowsmodel.h"
#include "platform/appdata.h"

#include <QDateTime>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

double now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

} // namespace

Lane &ChatStore::laneFor(const QString &runID)
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

bool ChatStore::laneFinished(const QString &runID) const
{
    const auto same = [&](const Lane &l) { return l.id == runID && l.finished; };
    return std::any_of(m_history.begin(), m_history.end(), same) ||
           std::any_of(m_lanes.begin(), m_lanes.end(), same);
}

void ChatStore::upsert(const QString &runID, const QString &label, const QString &text,
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
    saveActivity();
    emit laneChanged(copy);
}

void ChatStore::showLane(const Lane &lane)
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

void ChatStore::rebuild()
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

bool ChatStore::placeLanes()
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
    saveActivity();
    return true;
}

bool ChatStore::appendRows(const QList<MessageList::Ptr> &added)
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

void ChatStore::finishActivity(const QString &runID, const QString &outcome)
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
    saveActivity();
    emit laneChanged(copy);
}

void ChatStore::archive(const QString &runID)
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

void ChatStore::appendReply(const QString &runID, const QString &text,
                            std::optional<double> createdAt, const QString &voiceFile)
{
    // Whichever comes first (frame, poll or fetch) shows the reply; the others find it there.
    if (m_answered.contains(runID))
        return;
    ChatMessage reply = ChatMessage::make(u"assistant"_s, text, createdAt.value_or(now()));
    reply.runID = runID;
    if (!voiceFile.isEmpty())
        reply.voiceFile = voiceFile;
    append(std::move(reply));
    ++m_unread;
    emit unreadChanged();
}

void ChatStore::append(ChatMessage message)
{
    auto added = std::make_shared<const ChatMessage>(std::move(message));
    m_messages.append(added);
    index(*added);
    // Nearly always in place after the last row; otherwise ordered again and rebuilt.
    if (!appendRows({added})) {
        m_messages.order();
        rebuild();
    }
    persist();
    emit messageAdded(*added);
}
