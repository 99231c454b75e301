#include "chat/model/chatmessage.h"
#include "chat/chatlogging.h"

#include "chat/model/chatjson.h"
#include "chat/model/tasknumber.h"
#include "text/l.h"

#include <QDateTime>
#include <QJsonArray>
#include <QLoggingCategory>

#include <atomic>
#include <cmath>
#include <tuple>

using namespace Qt::StringLiterals;
using namespace Qt::Literals::StringLiterals;

namespace {

// Unique within this process, which is all a local id needs; a counter costs nothing per
// decoded message, where a random id cost a system call.
QString freshID()
{
    static std::atomic<quint64> next{0};
    return QString::number(++next, 36);
}

QString shared(const QString &word)
{
    static const QString user = u"user"_s, assistant = u"assistant"_s, text = u"text"_s;
    for (const QString *known : {&user, &assistant, &text}) {
        if (word == *known)
            return *known;
    }
    return word;
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

namespace {

// One look-up per key, no key text made: a transcript of tens of thousands of messages is
// decoded at close to the speed of reading it. Lenient: a key of the wrong type (or a number
// out of range) takes its default, and the message stays.
class Reader
{
public:
    using Field = ChatMessage::Field;

    explicit Reader(const ChatMessage::Fields &field)
        : m_field(field)
    {
    }

    Field get(QLatin1StringView key) const { return m_field(key); }
    QString string(QLatin1StringView key) const
    {
        Field v = get(key);
        if (v.type == QJsonValue::String)
            return std::move(v.text);
        if (v.type != QJsonValue::Undefined)
            wrong(key, "a string", v);
        return {};
    }
    std::optional<QString> optional(QLatin1StringView key) const
    {
        Field v = get(key);
        if (v.type == QJsonValue::String)
            return std::move(v.text);
        if (v.type != QJsonValue::Undefined)
            wrong(key, "a string", v);
        return std::nullopt;
    }
    // Ids sent as numbers are kept as their digits.
    std::optional<QString> id(QLatin1StringView key) const
    {
        Field v = get(key);
        if (v.type == QJsonValue::String)
            return std::move(v.text);
        if (v.type == QJsonValue::Double) {
            if (auto text = ChatJson::looseText(QJsonValue(v.number)))
                return text;
        }
        if (v.type != QJsonValue::Undefined)
            wrong(key, "a string", v);
        return std::nullopt;
    }
    static void wrong(QLatin1StringView key, const char *expected, const Field &v)
    {
        qCDebug(lcModel) << "message key" << key << "should be" << expected << "found"
                         << Decode::typeName(QJsonValue(v.type)) << "- default used";
    }

private:
    const ChatMessage::Fields &m_field;
};

} // namespace

ChatMessage ChatMessage::fromJson(const QJsonValue &value, double now)
{
    if (!value.isObject())
        throw DecodeError({}, u"an object"_s, Decode::typeName(value));
    const QJsonObject object = value.toObject();
    return fromFields(
        [&object](QLatin1StringView key) {
            const QJsonValue v = object.value(key);
            Field f;
            f.type = v.isNull() ? QJsonValue::Undefined : v.type();
            if (v.isString())
                f.text = v.toString();
            else if (v.isDouble())
                f.number = v.toDouble();
            else if (v.isArray())
                f.list = v.toArray();
            return f;
        },
        now);
}

ChatMessage ChatMessage::fromFields(const Fields &field, double now)
{
    using namespace ChatJson;
    const Reader r(field);
    ChatMessage m;

    if (const Field seq = r.get("seq"_L1); seq.type == QJsonValue::Double) {
        const double d = seq.number;
        if (d == std::floor(d) && d >= 0 && d <= double(maxSeq))
            m.seq = qint64(d);
        else
            qCDebug(lcModel) << "message seq" << d << "out of range - default used";
    } else if (seq.type != QJsonValue::Undefined) {
        Reader::wrong("seq"_L1, "a whole number", seq);
    }
    // The usual words shared, not one copy per message: a long transcript holds tens of
    // thousands of them.
    m.role = shared(r.string("role"_L1));
    m.kind = shared(r.string("kind"_L1));
    if (m.kind.isEmpty())
        m.kind = u"text"_s;
    m.text = r.string("text"_L1);
    if (m.text.size() > maxText) {
        m.text.truncate(maxText);
        m.text += L::t(u"\n\n[ההודעה קוצרה: היא ארוכה ממה שהמכשיר הזה מציג]"_s,
                       u"\n\n[Message cut: it is longer than this device shows]"_s,
                       u"\n\n[Сообщение обрезано: оно длиннее, чем показывает это устройство]"_s);
    }
    m.voiceFile = r.optional("voice_file"_L1);
    m.runID = r.id("run_id"_L1);
    m.createdAt = now;
    if (const Field created = r.get("created_at"_L1); created.type == QJsonValue::Double)
        m.createdAt = created.number;
    else if (created.type != QJsonValue::Undefined)
        Reader::wrong("created_at"_L1, "a number", created);
    if (!isSaneTime(m.createdAt)) {
        qCDebug(lcModel) << "message time" << m.createdAt << "out of range - now used";
        m.createdAt = now;
    }
    m.source = r.optional("source"_L1);
    m.clientRequestID = r.id("client_request_id"_L1);
    m.tgMessageID = r.id("tg_message_id"_L1);
    m.replyToID = r.id("reply_to_id"_L1);
    m.replyToRole = r.optional("reply_to_role"_L1);
    m.replyToText = r.optional("reply_to_text"_L1);
    m.replyRef = r.id("reply_ref"_L1);
    m.taskNo = r.id("task_no"_L1);
    m.routeVote = r.optional("route_vote"_L1);
    if (const Field items = r.get("attachments"_L1); items.type == QJsonValue::Array) {
        const QJsonArray &list = items.list;
        QList<ChatAttachment> out;
        out.reserve(list.size());
        for (const QJsonValue &item : list) {
            try {
                out.append(ChatAttachment::fromJson(item));
            } catch (const DecodeError &e) {
                qCDebug(lcModel) << "attachment dropped from message" << m.seq << e.key
                                 << e.expected << e.found;
            }
        }
        m.attachments = std::move(out);
    } else if (items.type != QJsonValue::Undefined) {
        Reader::wrong("attachments"_L1, "a list", items);
    }
    if (m.seq < 1) // the row of a stamped message goes by its seq
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
