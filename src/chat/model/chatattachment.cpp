#include "chat/model/chatattachment.h"

#include "chat/model/chatjson.h"

using namespace Qt::StringLiterals;

ChatAttachment ChatAttachment::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    ChatAttachment a;
    a.fileID = ChatJson::idText(r, u"file_id"_s).value_or(QString());
    a.name = r.string(u"name"_s);
    a.mime = r.string(u"mime"_s);
    a.size = ChatJson::optionalInteger(r, u"size"_s);
    a.url = r.string(u"url"_s);
    a.downloadURL = r.string(u"download_url"_s);
    return a;
}

QJsonObject ChatAttachment::toJson() const
{
    QJsonObject o{{u"file_id"_s, fileID}};
    const auto put = [&o](const QString &key, const QString &value) {
        if (!value.isEmpty())
            o.insert(key, value);
    };
    put(u"name"_s, name);
    put(u"mime"_s, mime);
    if (size)
        o.insert(u"size"_s, *size);
    put(u"url"_s, url);
    put(u"download_url"_s, downloadURL);
    return o;
}
