#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/lane.h"
#include "chat/model/messagelist.h"
#include "chat/model/row.h"

#include <QList>

#include <vector>

// Orders the transcript, stably: by created_at; on equal created_at by the integer value of
// tg_message_id when both messages have one that parses (ChatJson::parseInteger), else by
// seq; equal keys keep their arrival order. A created_at that is not a number sorts first.
//
// When one created_at is shared by messages with and without a bridge id, that pairwise
// rule can contradict itself (a before b by id, b before c by seq, c before a by seq). The
// group is then ordered by seq, and the messages that carry an id are re-dealt, in id order,
// onto the places they took: still one order, and every pair of bridged messages by id.
// O(n log n).
void orderMessages(QList<ChatMessage> &messages);
// The same order as the messages' indices, for lists that hold them otherwise.
std::vector<qsizetype> messageOrder(const std::vector<const ChatMessage *> &messages);

// The chat rows: each message followed by the lanes whose after equals its seq (after of 1
// or more only), in the lanes' order; lanes anchored to no message in the list follow at
// the end, in their order. O(n + m).
QList<Row> buildRows(const MessageList &messages, const QList<Lane> &lanes);
QList<Row> buildRows(const QList<ChatMessage> &messages, const QList<Lane> &lanes);
