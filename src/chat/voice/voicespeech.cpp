#include "voicespeech.h"

#include "chat/model/chatjson.h"

#include <QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

VoiceSpeech VoiceSpeech::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    const QJsonObject &o = r.object();
    VoiceSpeech out;
    out.status = looseText(o.value(u"status"_s)).value_or(QString());
    out.voiceURL = looseText(o.value(u"voice_url"_s)).value_or(QString());
    out.total = std::max(0, looseInt(o.value(u"total"_s)).value_or(0));
    for (const QJsonValue &item : o.value(u"parts"_s).toArray()) {
        const auto index = looseInt(item.toObject().value(u"index"_s));
        const auto seconds = looseNumber(item.toObject().value(u"seconds"_s));
        if (!index || *index < 0)
            continue;
        const bool seen = std::any_of(out.parts.begin(), out.parts.end(),
                                      [&](const Part &p) { return p.index == *index; });
        if (!seen)
            out.parts.append(Part{*index, std::max(0.0, seconds.value_or(0))});
    }
    std::sort(out.parts.begin(), out.parts.end(),
              [](const Part &a, const Part &b) { return a.index < b.index; });
    return out;
}
