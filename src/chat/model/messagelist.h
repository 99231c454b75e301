#pragma once

#include "chat/model/chatmessage.h"

#include <QList>

#include <iterator>
#include <memory>

// The transcript in order. Each message is held once and shared read-only by the rows that
// show it and the transcript write on the disk thread; a changed message is a new one.
class MessageList
{
public:
    using Ptr = std::shared_ptr<const ChatMessage>;

    class const_iterator
    {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = ChatMessage;
        using difference_type = qsizetype;
        using pointer = const ChatMessage *;
        using reference = const ChatMessage &;

        const_iterator() = default;
        explicit const_iterator(QList<Ptr>::const_iterator it)
            : m_it(it)
        {}
        reference operator*() const { return **m_it; }
        pointer operator->() const { return m_it->get(); }
        reference operator[](difference_type n) const { return *m_it[n]; }
        const_iterator &operator++()
        {
            ++m_it;
            return *this;
        }
        const_iterator operator++(int) { return const_iterator(m_it++); }
        const_iterator &operator--()
        {
            --m_it;
            return *this;
        }
        const_iterator operator--(int) { return const_iterator(m_it--); }
        const_iterator &operator+=(difference_type n)
        {
            m_it += n;
            return *this;
        }
        const_iterator &operator-=(difference_type n)
        {
            m_it -= n;
            return *this;
        }
        friend const_iterator operator+(const_iterator a, difference_type n) { return a += n; }
        friend const_iterator operator+(difference_type n, const_iterator a) { return a += n; }
        friend const_iterator operator-(const_iterator a, difference_type n) { return a -= n; }
        friend difference_type operator-(const const_iterator &a, const const_iterator &b)
        {
            return a.m_it - b.m_it;
        }
        friend bool operator==(const const_iterator &a, const const_iterator &b)
        {
            return a.m_it == b.m_it;
        }
        friend bool operator<(const const_iterator &a, const const_iterator &b)
        {
            return a.m_it < b.m_it;
        }

    private:
        QList<Ptr>::const_iterator m_it;
    };
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    MessageList() = default;
    explicit MessageList(QList<ChatMessage> messages);

    qsizetype size() const { return m_items.size(); }
    bool isEmpty() const { return m_items.isEmpty(); }
    const ChatMessage &at(qsizetype i) const { return *m_items.at(i); }
    const ChatMessage &operator[](qsizetype i) const { return *m_items.at(i); }
    const ChatMessage &first() const { return *m_items.first(); }
    const ChatMessage &last() const { return *m_items.last(); }
    const Ptr &ptr(qsizetype i) const { return m_items.at(i); }
    const QList<Ptr> &ptrs() const { return m_items; }
    const_iterator begin() const { return const_iterator(m_items.cbegin()); }
    const_iterator end() const { return const_iterator(m_items.cend()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    QList<ChatMessage> toList() const;

    void append(Ptr message) { m_items.append(std::move(message)); }
    void replace(qsizetype i, Ptr message) { m_items[i] = std::move(message); }
    void clear() { m_items.clear(); }
    // The newest `count` messages only.
    MessageList newest(qsizetype count) const;
    // Puts the messages in transcript order (orderMessages); false when they already were.
    bool order();

private:
    QList<Ptr> m_items;
};
