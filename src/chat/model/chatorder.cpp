#include "chat/model/chatorder.h"

#include "chat/model/chatjson.h"

#include <QHash>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace {

struct Key
{
    double created;
    qint64 seq;
    std::optional<qint64> bridge; // tg_message_id as an integer
};

} // namespace

std::vector<qsizetype> messageOrder(const std::vector<const ChatMessage *> &messages)
{
    const qsizetype n = qsizetype(messages.size());
    std::vector<Key> keys;
    keys.reserve(n);
    for (const ChatMessage *message : messages) {
        const ChatMessage &m = *message;
        const double created =
            std::isnan(m.createdAt) ? -std::numeric_limits<double>::infinity() : m.createdAt;
        keys.push_back({created, m.seq,
                        m.tgMessageID ? ChatJson::parseInteger(*m.tgMessageID) : std::nullopt});
    }

    std::vector<qsizetype> order(n);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&keys](qsizetype a, qsizetype b) {
        if (keys[a].created != keys[b].created)
            return keys[a].created < keys[b].created;
        return keys[a].seq < keys[b].seq;
    });

    std::vector<qsizetype> places;
    std::vector<qsizetype> bridged;
    for (qsizetype begin = 0; begin < n;) {
        qsizetype end = begin + 1;
        while (end < n && keys[order[end]].created == keys[order[begin]].created)
            ++end;
        places.clear();
        for (qsizetype p = begin; p < end; ++p) {
            if (keys[order[p]].bridge)
                places.push_back(p);
        }
        if (places.size() > 1) {
            bridged.clear();
            for (qsizetype p : places)
                bridged.push_back(order[p]);
            // Arrival order (the index) breaks ties of equal ids.
            std::sort(bridged.begin(), bridged.end(), [&keys](qsizetype a, qsizetype b) {
                if (*keys[a].bridge != *keys[b].bridge)
                    return *keys[a].bridge < *keys[b].bridge;
                return a < b;
            });
            for (size_t k = 0; k < places.size(); ++k)
                order[places[k]] = bridged[k];
        }
        begin = end;
    }

    return order;
}

void orderMessages(QList<ChatMessage> &messages)
{
    const qsizetype n = messages.size();
    if (n < 2)
        return;
    std::vector<const ChatMessage *> all;
    all.reserve(n);
    for (const ChatMessage &m : std::as_const(messages))
        all.push_back(&m);
    const std::vector<qsizetype> order = messageOrder(all);
    bool unchanged = true;
    for (qsizetype i = 0; i < n && unchanged; ++i)
        unchanged = order[i] == i;
    if (unchanged)
        return;
    QList<ChatMessage> sorted;
    sorted.reserve(n);
    for (qsizetype i : order)
        sorted.append(std::move(messages[i]));
    messages = std::move(sorted);
}

QList<Row> buildRows(const QList<ChatMessage> &messages, const QList<Lane> &lanes)
{
    MessageList list;
    for (const ChatMessage &m : messages)
        list.append(std::make_shared<const ChatMessage>(m));
    return buildRows(list, lanes);
}

QList<Row> buildRows(const MessageList &messages, const QList<Lane> &lanes)
{
    QHash<qint64, QList<qsizetype>> under;
    for (qsizetype i = 0; i < lanes.size(); ++i) {
        if (lanes[i].after >= 1)
            under[lanes[i].after].append(i);
    }
    std::vector<bool> placed(lanes.size(), false);
    QList<Row> rows;
    rows.reserve(messages.size() + lanes.size());
    for (const MessageList::Ptr &ptr : messages.ptrs()) {
        const ChatMessage &m = *ptr;
        rows.append(Row::message(ptr));
        if (m.seq < 1 || under.isEmpty())
            continue;
        const auto found = under.constFind(m.seq);
        if (found == under.cend())
            continue;
        for (qsizetype i : *found) {
            rows.append(Row::lane(lanes[i]));
            placed[i] = true;
        }
        under.erase(found);
    }
    for (qsizetype i = 0; i < lanes.size(); ++i) {
        if (!placed[i])
            rows.append(Row::lane(lanes[i]));
    }
    return rows;
}
