#include "chat/model/activityupdate.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

ActivityUpdate ActivityUpdate::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    ActivityUpdate u;
    u.seq = r.integer(u"seq"_s);
    u.id = r.has(u"id"_s) ? *idText(r, u"id"_s) : idText(r, u"run_id"_s).value_or(QString());
    u.label = r.string(u"label"_s);
    u.text = r.string(u"text"_s);
    u.after = r.integer(u"after"_s);
    u.attempt = optionalInt(r, u"attempt"_s);
    u.finished = r.boolean(u"finished"_s);
    u.outcome = optionalString(r, u"outcome"_s);
    if (r.has(u"tool"_s)) {
        const JsonRecord t = r.record(u"tool"_s);
        Tool tool{t.string(u"name"_s), t.string(u"summary"_s), t.string(u"status"_s)};
        if (!tool.name.isEmpty() || !tool.summary.isEmpty())
            u.tool = std::move(tool);
    }
    return u;
}

QJsonObject ActivityUpdate::toJson() const
{
    QJsonObject o{
        {u"seq"_s, seq},     {u"id"_s, id},   {u"label"_s, label},
        {u"text"_s, text},   {u"after"_s, after}, {u"finished"_s, finished},
    };
    if (attempt)
        o.insert(u"attempt"_s, *attempt);
    if (outcome)
        o.insert(u"outcome"_s, *outcome);
    if (tool)
        o.insert(u"tool"_s, QJsonObject{{u"name"_s, tool->name},
                                        {u"summary"_s, tool->summary},
                                        {u"status"_s, tool->status}});
    return o;
}
