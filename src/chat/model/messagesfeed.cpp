#include "chat/model/messagesfeed.h"
#include "chat/chatlogging.h"

#include "chat/model/chatjson.h"
#include "chat/model/chatscope.h"

#include <QDateTime>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

// Decodes each element on its own: a bad one is logged and counted, the rest kept.
template<class T, class Decode>
QList<T> elements(const QJsonArray &items, const char *what, int *skipped, Decode decode)
{
    QList<T> out;
    out.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        try {
            out.append(decode(items.at(i)));
        } catch (const DecodeError &e) {
            ++*skipped;
            qCInfo(lcModel) << what << i << "skipped:" << e.key << "should be" << e.expected
                            << "found" << e.found;
        }
    }
    return out;
}

} // namespace

MessagesFeed MessagesFeed::fromJson(const QJsonValue &value)
{
    return fromJson(value, double(QDateTime::currentMSecsSinceEpoch()) / 1000.0);
}

MessagesFeed MessagesFeed::fromJson(const QJsonValue &value, double now)
{
    const JsonRecord r(value);
    MessagesFeed f;
    f.ok = r.boolean(u"ok"_s);
    const QString conversation = r.string(u"conversation_id"_s);
    if (!conversation.isEmpty())
        f.conversationID = conversation;
    f.projectID = ChatJson::optionalInt(r, u"project_id"_s);
    f.messages = elements<ChatMessage>(r.array(u"messages"_s), "message", &f.skipped,
                                       [now](const QJsonValue &v) {
                                           return ChatMessage::fromJson(v, now);
                                       });
    f.cursor = r.integer(u"cursor"_s);
    f.hasMore = r.boolean(u"has_more"_s);
    f.taskStates = r.record(u"task_states"_s).object();
    f.live = r.array(u"live"_s);
    f.runs = r.array(u"runs"_s);
    f.activity = elements<ActivityUpdate>(r.array(u"activity"_s), "activity update",
                                          &f.skippedActivity, &ActivityUpdate::fromJson);
    f.activityCursor = ChatJson::optionalInteger(r, u"activity_cursor"_s);
    f.activityHasMore = r.boolean(u"activity_has_more"_s);
    return f;
}

bool MessagesFeed::isFor(const ChatScope &scope) const
{
    return conversationID == scope.conversationID();
}
