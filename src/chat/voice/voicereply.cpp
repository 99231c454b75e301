#include "voicereply.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

VoiceReply VoiceReply::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    VoiceReply out;
    out.ok = r.boolean(u"ok"_s);
    out.text = optionalString(r, u"text"_s);
    out.runID = idText(r, u"run_id"_s);
    out.userSeq = optionalInteger(r, u"user_seq"_s);
    out.error = optionalString(r, u"error"_s);
    out.processing = r.boolean(u"processing"_s);
    return out;
}
