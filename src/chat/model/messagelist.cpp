#include "chat/model/messagelist.h"

#include "chat/model/chatorder.h"

MessageList::MessageList(QList<ChatMessage> messages)
{
    m_items.reserve(messages.size());
    for (ChatMessage &m : messages)
        m_items.append(std::make_shared<const ChatMessage>(std::move(m)));
}

QList<ChatMessage> MessageList::toList() const
{
    QList<ChatMessage> out;
    out.reserve(m_items.size());
    for (const Ptr &m : m_items)
        out.append(*m);
    return out;
}

MessageList MessageList::newest(qsizetype count) const
{
    MessageList out;
    out.m_items = m_items.size() > count ? m_items.mid(m_items.size() - count) : m_items;
    return out;
}

bool MessageList::order()
{
    if (m_items.size() < 2)
        return false;
    std::vector<const ChatMessage *> all;
    all.reserve(m_items.size());
    for (const Ptr &m : std::as_const(m_items))
        all.push_back(m.get());
    const std::vector<qsizetype> order = messageOrder(all);
    bool unchanged = true;
    for (qsizetype i = 0; i < qsizetype(order.size()) && unchanged; ++i)
        unchanged = order[i] == i;
    if (unchanged)
        return false;
    QList<Ptr> sorted;
    sorted.reserve(m_items.size());
    for (qsizetype i : order)
        sorted.append(std::move(m_items[i]));
    m_items = std::move(sorted);
    return true;
}
