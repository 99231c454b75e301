#include "chat/store/timelinemerge.h"

#include "chat/model/chatjson.h"

#include <algorithm>

using namespace Qt::StringLiterals;

TimelineMerge TimelineMerge::plan(const MessageList &held, const QSet<qint64> &seen,
                                  bool hasLocals, qint64 cursor, const MessagesFeed &feed,
                                  bool replacing)
{
    TimelineMerge out;
    out.cursor = cursor;
    QList<qsizetype> locals; // held messages made here, not yet stamped
    if (hasLocals) {
        for (qsizetype i = 0; i < held.size(); ++i) {
            if (held.at(i).seq < 1)
                locals.append(i);
        }
    }
    QSet<qint64> taken; // seqs of this page already placed
    // The server's own cursor bounds ours: one bogus seq must not hide everything after it.
    const qint64 ceiling = feed.cursor >= 1 ? std::max(cursor, feed.cursor) : ChatJson::maxSeq;
    for (const ChatMessage &incoming : feed.messages) {
        if (incoming.seq < 1 || seen.contains(incoming.seq) || taken.contains(incoming.seq))
            continue;
        taken.insert(incoming.seq);
        out.cursor = std::clamp(incoming.seq, out.cursor, ceiling);
        auto message = std::make_shared<const ChatMessage>(incoming);
        // The stored copy of a reply or turn shown from a frame takes that copy's place.
        const auto local = std::find_if(locals.begin(), locals.end(), [&](qsizetype i) {
            const ChatMessage &m = held.at(i);
            return m.role == incoming.role
                   && ((m.runID && m.runID == incoming.runID)
                       || (m.clientRequestID && m.clientRequestID == incoming.clientRequestID));
        });
        if (local != locals.end()) {
            out.replaced.append({*local, std::move(message)});
            locals.erase(local);
            continue;
        }
        if (!replacing && incoming.role == u"assistant")
            ++out.newReplies;
        out.added.append(std::move(message));
    }
    return out;
}
