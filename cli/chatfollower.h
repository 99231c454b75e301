#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/lane.h"

#include <QHash>
#include <QString>

class ChatStore;

// `chat follow`: what changes in lanes and each new reply, one line per event; with json one
// compact object per line ("type": "lane" or "message").
class ChatFollower
{
public:
    ChatFollower(ChatStore *store, bool json);

private:
    struct Seen {
        QString label, text;
        QHash<QString, QString> tools; // step id → status
        bool finished = false;
    };

    void onMessage(const ChatMessage &m);
    void onLane(const Lane &lane);

    bool m_json;
    QHash<QString, Seen> m_seen;
};
