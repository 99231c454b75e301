#include "chatmessage.h"

#include "chat/chatjson.h"
#include "chat/tasknumber.h"

#include <QDateTime>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QUuid>

#include <tuple>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcModel, "halvenmark.chat.model", QtWarningMsg)

QString freshID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

double nowSeconds()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

auto content(const ChatMessage &m)
{
    return std::tie(m.seq, m.role, m.kind, m.text, m.voiceFile, m.runID, m.source,
                    m.clientRequestID, m.tgMessageID, m.replyToID, m.replyToRole, m.replyToText,
                    m.replyRef, m.taskNo, m.routeVote, m.createdAt, m.attachments);
}

} // namespace

ChatMessage ChatMessage::fromJson(const QJsonValue &value)
{
    return fromJson(value, nowSeconds());
}

ChatMessage ChatMessage::fromJson(const QJsonValue &value, double now)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    ChatMessage m;
    m.seq = r.integer(u"seq"_s);
    m.role = r.string(u"role"_s);
    m.kind = r.string(u"kind"_s);
    if (m.kind.isEmpty())
        m.kind = u"text"_s;
    m.text = r.string(u"text"_s);
    m.voiceFile = optionalString(r, u"voice_file"_s);
    m.runID = idText(r, u"run_id"_s);
    m.createdAt = r.number(u"created_at"_s, now);
    m.source = optionalString(r, u"source"_s);
    m.clientRequestID = idText(r, u"client_request_id"_s);
    m.tgMessageID = idText(r, u"tg_message_id"_s);
    m.replyToID = idText(r, u"reply_to_id"_s);
    m.replyToRole = optionalString(r, u"reply_to_role"_s);
    m.replyToText = optionalString(r, u"reply_to_text"_s);
    m.replyRef = idText(r, u"reply_ref"_s);
    m.taskNo = idText(r, u"task_no"_s);
    m.routeVote = optionalString(r, u"route_vote"_s);
    if (r.has(u"attachments"_s)) {
        const QJsonArray items = r.array(u"attachments"_s);
        QList<ChatAttachment> list;
        list.reserve(items.size());
        for (const QJsonValue &item : items) {
            try {
                list.append(ChatAttachment::fromJson(item));
            } catch (const DecodeError &e) {
                qCDebug(lcModel) << "attachment dropped from message" << m.seq << e.key
                                 << e.expected << e.found;
            }
        }
        m.attachments = std::move(list);
    }
    m.localID = freshID();
    return m;
}

QJsonObject ChatMessage::toJson() const
{
    QJsonObject o{
        {u"seq"_s, seq},
        {u"role"_s, role},
        {u"kind"_s, kind},
        {u"text"_s, text},
        {u"created_at"_s, createdAt},
    };
    const auto put = [&o](const QString &key, const std::optional<QString> &value) {
        if (value)
            o.insert(key, *value);
    };
    put(u"voice_file"_s, voiceFile);
    put(u"run_id"_s, runID);
    put(u"source"_s, source);
    put(u"client_request_id"_s, clientRequestID);
    put(u"tg_message_id"_s, tgMessageID);
    put(u"reply_to_id"_s, replyToID);
    put(u"reply_to_role"_s, replyToRole);
    put(u"reply_to_text"_s, replyToText);
    put(u"reply_ref"_s, replyRef);
    put(u"task_no"_s, taskNo);
    put(u"route_vote"_s, routeVote);
    if (attachments) {
        QJsonArray list;
        for (const ChatAttachment &a : *attachments)
            list.append(a.toJson());
        o.insert(u"attachments"_s, list);
    }
    return o;
}

ChatMessage ChatMessage::make(const QString &role, const QString &text, double createdAt)
{
    ChatMessage m;
    m.role = role;
    m.text = text;
    m.createdAt = createdAt;
    m.localID = freshID();
    return m;
}

std::optional<int> ChatMessage::taskNumber() const
{
    if (taskNo) {
        if (const auto n = TaskNumber::ofField(*taskNo))
            return n;
    }
    return TaskNumber::opening(text);
}

bool ChatMessage::isRouteCard() const
{
    return kind == u"route" || kind == u"route_card" || routeVote.has_value();
}

QString ChatMessage::rowID() const
{
    return u"seq:"_s + QString::number(seq);
}

bool ChatMessage::operator==(const ChatMessage &other) const
{
    return content(*this) == content(other);
}
