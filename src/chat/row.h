#pragma once

#include "chat/chatmessage.h"
#include "chat/lane.h"

#include <QString>

#include <variant>

// One row of the chat list: a message, or the live card of a run.
class Row
{
public:
    static Row message(ChatMessage message);
    static Row lane(Lane lane);

    bool isMessage() const { return std::holds_alternative<ChatMessage>(m_content); }
    // The row's record, or nullptr when the row is of the other kind.
    const ChatMessage *message() const { return std::get_if<ChatMessage>(&m_content); }
    const Lane *lane() const { return std::get_if<Lane>(&m_content); }

    // "seq:N" for a message, "lane:<run id>" for a lane.
    QString id() const;

    // The whole content: a lane whose text changed is a changed row.
    bool operator==(const Row &) const = default;

private:
    explicit Row(std::variant<ChatMessage, Lane> content);

    std::variant<ChatMessage, Lane> m_content;
};
