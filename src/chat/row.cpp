#include "row.h"

using namespace Qt::StringLiterals;

Row::Row(std::variant<ChatMessage, Lane> content)
    : m_content(std::move(content))
{
}

Row Row::message(ChatMessage message)
{
    return Row(std::move(message));
}

Row Row::lane(Lane lane)
{
    return Row(std::move(lane));
}

QString Row::id() const
{
    if (const ChatMessage *m = message())
        return m->rowID();
    return u"lane:"_s + std::get<Lane>(m_content).id;
}
