#include "chat/outbox/outboxfile.h"

#include "net/jsonrecord.h"

using namespace Qt::StringLiterals;

OutboxFile OutboxFile::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    OutboxFile f;
    f.id = r.string(u"id"_s);
    f.name = r.string(u"name"_s);
    f.mime = r.string(u"mime"_s);
    f.fileID = r.string(u"fileID"_s);
    return f;
}

QJsonObject OutboxFile::toJson() const
{
    return QJsonObject{{u"id"_s, id}, {u"name"_s, name}, {u"mime"_s, mime}, {u"fileID"_s, fileID}};
}
