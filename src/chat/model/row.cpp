#include "chat/model/row.h"

using namespace Qt::StringLiterals;

Row::Row(Content content)
    : m_content(std::move(content))
{}

Row Row::message(ChatMessage message)
{
    return Row(std::make_shared<const ChatMessage>(std::move(message)));
}

Row Row::message(std::shared_ptr<const ChatMessage> message)
{
    return Row(std::move(message));
}

Row Row::lane(Lane lane)
{
    return Row(std::make_shared<const Lane>(std::move(lane)));
}

const ChatMessage *Row::message() const
{
    const auto *m = std::get_if<std::shared_ptr<const ChatMessage>>(&m_content);
    return m ? m->get() : nullptr;
}

const Lane *Row::lane() const
{
    const auto *l = std::get_if<std::shared_ptr<const Lane>>(&m_content);
    return l ? l->get() : nullptr;
}

QString Row::id() const
{
    if (const ChatMessage *m = message())
        return m->rowID();
    return u"lane:"_s + lane()->id;
}

bool Row::operator==(const Row &other) const
{
    // Shared records are the same record; others are compared by content.
    if (m_content.index() != other.m_content.index())
        return false;
    if (const ChatMessage *m = message()) {
        const ChatMessage *o = other.message();
        return m == o || *m == *o;
    }
    const Lane *l = lane();
    const Lane *o = other.lane();
    return l == o || *l == *o;
}
