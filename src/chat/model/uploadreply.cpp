#include "chat/model/uploadreply.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

UploadReply UploadReply::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    UploadReply reply;
    reply.ok = r.boolean(u"ok"_s);
    reply.fileID = ChatJson::idText(r, u"file_id"_s);
    reply.name = ChatJson::optionalString(r, u"name"_s);
    reply.error = ChatJson::optionalString(r, u"error"_s);
    return reply;
}
