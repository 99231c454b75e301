#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

// Which conversation: the account's main one, or a project's. Every chat file name,
// request path and socket frame is told apart through it.
class ChatScope
{
public:
    ChatScope() = default; // the main conversation

    static ChatScope main();
    static ChatScope project(int id);

    bool isMain() const { return !m_project.has_value(); }
    std::optional<int> projectID() const { return m_project; }

    // base for the main conversation, base + "-project-N" for a project's.
    QString storageKey(const QString &base) const;
    // A server path with the project's query appended after "?" or "&", whichever fits.
    QString path(const QString &base) const;
    // What a request body adds: nothing for the main conversation.
    QJsonObject fields() const;
    // "main" or "project:N", as frames and run records name a conversation.
    QString conversationID() const;
    // The inverse; nothing for a name that is neither form (the id must be decimal digits
    // that fit an int).
    static std::optional<ChatScope> fromConversationID(const QString &id);

    bool operator==(const ChatScope &) const = default;

private:
    std::optional<int> m_project;
};
