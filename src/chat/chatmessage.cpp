#include "chatmessage.h"

#include "chat/chatjson.h"
#include "chat/tasknumber.h"
#include "text/l.h"

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
    const JsonRecord r(value); // throws only for a value that is not an object
    ChatMessage m;
    // Lenient: a key of the wrong type (or a number out of range) takes its default, and the
    // message stays.
    const auto take = [&](const char16_t *key, auto read, auto fallback) {
        try {
            return read(QString::fromUtf16(key));
        } catch (const DecodeError &e) {
            qCDebug(lcModel) << "message key" << e.key << "should be" << e.expected << "found"
                             << e.found << "- default used";
            return decltype(read(QString()))(fallback);
        }
    };
    const auto text = [&](const QString &key) { return r.string(key); };
    const auto optional = [&](const QString &key) { return optionalString(r, key); };
    const auto id = [&](const QString &key) { return idText(r, key); };
    const std::optional<QString> none;

    m.seq = take(u"seq", [&](const QString &key) { return r.integer(key); }, qint64(0));
    if (m.seq < 0 || m.seq > maxSeq) {
        qCDebug(lcModel) << "message seq" << m.seq << "out of range - default used";
        m.seq = 0;
    }
    m.role = take(u"role", text, QString());
    m.kind = take(u"kind", text, QString());
    if (m.kind.isEmpty())
        m.kind = u"text"_s;
    m.text = take(u"text", text, QString());
    if (m.text.size() > maxText) {
        m.text.truncate(maxText);
        m.text += L::t(u"\n\n[ההודעה קוצרה: היא ארוכה ממה שהמכשיר הזה מציג]"_s,
                       u"\n\n[Message cut: it is longer than this device shows]"_s,
                       u"\n\n[Сообщение обрезано: оно длиннее, чем показывает это устройство]"_s);
    }
    m.voiceFile = take(u"voice_file", optional, none);
    m.runID = take(u"run_id", id, none);
    m.createdAt = take(u"created_at", [&](const QString &key) { return r.number(key, now); }, now);
    if (!isSaneTime(m.createdAt)) {
        qCDebug(lcModel) << "message time" << m.createdAt << "out of range - now used";
        m.createdAt = now;
    }
    m.source = take(u"source", optional, none);
    m.clientRequestID = take(u"client_request_id", id, none);
    m.tgMessageID = take(u"tg_message_id", id, none);
    m.replyToID = take(u"reply_to_id", id, none);
    m.replyToRole = take(u"reply_to_role", optional, none);
    m.replyToText = take(u"reply_to_text", optional, none);
    m.replyRef = take(u"reply_ref", id, none);
    m.taskNo = take(u"task_no", id, none);
    m.routeVote = take(u"route_vote", optional, none);
    const QJsonArray items =
        take(u"attachments", [&](const QString &key) { return r.array(key); }, QJsonArray());
    if (r.has(u"attachments"_s) && r.object().value(u"attachments").isArray()) {
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
