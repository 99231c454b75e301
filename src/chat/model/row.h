#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/lane.h"

#include <QString>

#include <memory>
#include <variant>

// One row of the chat list: a message, or the live card of a run. The row shares its record
// read-only with the list it came from instead of copying it.
class Row
{
public:
    static Row message(ChatMessage message);
    static Row message(std::shared_ptr<const ChatMessage> message);
    static Row lane(Lane lane);

    bool isMessage() const
    {
        return std::holds_alternative<std::shared_ptr<const ChatMessage>>(m_content);
    }
    // The row's record, or nullptr when the row is of the other kind.
    const ChatMessage *message() const;
    const Lane *lane() const;

    // "seq:N" for a message, "lane:<run id>" for a lane.
    QString id() const;

    // The whole content: a lane whose text changed is a changed row.
    bool operator==(const Row &other) const;

private:
    using Content = std::variant<std::shared_ptr<const ChatMessage>, std::shared_ptr<const Lane>>;
    explicit Row(Content content);

    Content m_content;
};
