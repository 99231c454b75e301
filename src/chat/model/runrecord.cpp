#include "chat/model/runrecord.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

RunRecord RunRecord::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    const QJsonObject &o = r.object();
    const auto text = [&o](const QString &key) { return looseText(o.value(key)).value_or(QString()); };
    RunRecord run;
    const QString conversation = text(u"conversation_id"_s);
    if (!conversation.isEmpty())
        run.conversationID = conversation;
    run.status = text(u"status"_s);
    run.done = looseFlag(o.value(u"done"_s));
    run.text = text(u"text"_s);
    run.label = text(u"label"_s);
    run.attempt = looseInt(o.value(u"attempt"_s));
    run.error = text(u"error"_s);
    run.outcome = text(u"outcome"_s);
    run.voiceURL = text(u"voice_url"_s);
    run.createdAt = looseNumber(o.value(u"created_at"_s));
    return run;
}

QJsonObject RunRecord::toJson() const
{
    QJsonObject o{
        {u"conversation_id"_s, conversationID},
        {u"status"_s, status},
        {u"done"_s, done},
        {u"text"_s, text},
        {u"label"_s, label},
        {u"error"_s, error},
        {u"outcome"_s, outcome},
        {u"voice_url"_s, voiceURL},
    };
    if (attempt)
        o.insert(u"attempt"_s, *attempt);
    if (createdAt)
        o.insert(u"created_at"_s, *createdAt);
    return o;
}

QString RunRecord::finalOutcome() const
{
    return outcome.isEmpty() ? u"complete"_s : outcome;
}

std::optional<QString> RunRecord::voiceFile() const
{
    return ChatJson::fileNameOf(voiceURL);
}
