#pragma once

#include "chat/model/messagelist.h"
#include "chat/model/messagesfeed.h"

#include <QList>
#include <QSet>

// What a page of messages does to the held transcript, worked out without touching it: the
// local copies it replaces, the messages it adds, and where the cursor goes. Work in
// proportion to the page, not to the history held.
struct TimelineMerge {
    struct Replacement {
        qsizetype at; // index in the held list
        MessageList::Ptr message;
    };
    QList<Replacement> replaced;
    QList<MessageList::Ptr> added;
    qint64 cursor = 0;
    int newReplies = 0; // assistant messages that are news to the reader

    // `seen` holds the seqs already held; `hasLocals` says whether any held message was made
    // here (from a frame or a poll) and waits for its stored copy.
    static TimelineMerge plan(const MessageList &held, const QSet<qint64> &seen, bool hasLocals,
                              qint64 cursor, const MessagesFeed &feed, bool replacing);
};
