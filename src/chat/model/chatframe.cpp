#include "chat/model/chatframe.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

ChatFrame ChatFrame::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    const QJsonObject &o = r.object();
    const auto text = [&o](const QString &key) {
        return looseText(o.value(key)).value_or(QString());
    };
    ChatFrame f;
    f.type = text(u"type"_s);
    const QString conversation = text(u"conversation_id"_s);
    if (!conversation.isEmpty())
        f.conversationID = conversation;
    f.runID = text(u"run_id"_s);
    f.userSeq = looseInteger(o.value(u"user_seq"_s)).value_or(0);
    f.clientRequestID = text(u"client_request_id"_s);
    f.label = text(u"label"_s);
    f.text = text(u"text"_s);
    f.attempt = looseInt(o.value(u"attempt"_s));
    f.name = text(u"name"_s);
    f.summary = text(u"summary"_s);
    f.status = text(u"status"_s);
    f.outcome = text(u"outcome"_s);
    f.voiceURL = text(u"voice_url"_s);
    f.createdAt = looseNumber(o.value(u"created_at"_s));
    f.error = text(u"error"_s);
    return f;
}

QJsonObject ChatFrame::toJson() const
{
    QJsonObject o{
        {u"type"_s, type},
        {u"conversation_id"_s, conversationID},
        {u"user_seq"_s, userSeq},
    };
    const auto put = [&o](const QString &key, const QString &value) {
        if (!value.isEmpty())
            o.insert(key, value);
    };
    put(u"run_id"_s, runID);
    put(u"client_request_id"_s, clientRequestID);
    put(u"label"_s, label);
    put(u"text"_s, text);
    if (attempt)
        o.insert(u"attempt"_s, *attempt);
    put(u"name"_s, name);
    put(u"summary"_s, summary);
    put(u"status"_s, status);
    put(u"outcome"_s, outcome);
    put(u"voice_url"_s, voiceURL);
    if (createdAt)
        o.insert(u"created_at"_s, *createdAt);
    put(u"error"_s, error);
    return o;
}

QString ChatFrame::finalOutcome() const
{
    return outcome.isEmpty() ? u"completed"_s : outcome;
}

std::optional<QString> ChatFrame::voiceFile() const
{
    return ChatJson::fileNameOf(voiceURL);
}
