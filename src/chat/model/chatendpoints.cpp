#include "chatendpoints.h"

#include "chatjson.h"

using namespace Qt::StringLiterals;

namespace ChatEndpoints {

QString messagesSince(const ChatScope &scope, qint64 seq, std::optional<qint64> activitySince,
                      const QStringList &tasks)
{
    QString base = u"webapi/messages?since="_s + QString::number(seq);
    if (activitySince)
        base += u"&activity_since="_s + QString::number(*activitySince);
    else if (!tasks.isEmpty())
        base += u"&tasks="_s + tasks.join(u',');
    return scope.path(base);
}

QString message(qint64 seq, const QString &rest)
{
    return u"webapi/messages/"_s + QString::number(seq) + rest;
}

QString filePlayback(const QString &fileID)
{
    return u"webapi/files/"_s + fileID + u"?playback=1"_s;
}

QString socket(const ChatScope &scope)
{
    return scope.path(u"webapi/ws"_s);
}

QString run(const QString &runID)
{
    return u"webapi/runs/"_s + runID;
}

QString chat(const ChatScope &scope)
{
    return scope.path(u"webapi/chat"_s);
}

QString upload(const ChatScope &scope)
{
    return scope.path(u"webapi/upload"_s);
}

QString voice(const ChatScope &scope)
{
    return scope.path(u"webapi/voice"_s);
}

QString voiceStatus(const QString &turnID)
{
    return u"webapi/voice/status?client_request_id="_s + turnID;
}

QString stopTask(int number)
{
    return u"webapi/tasks/p-"_s + QString::number(number) + u"/stop"_s;
}

QString routerFeedback()
{
    return u"webapi/router/feedback"_s;
}

Accepted Accepted::fromJson(const QJsonObject &reply)
{
    return {ChatJson::looseInteger(reply.value(u"user_seq")).value_or(0),
            reply.value(u"run_id").toString()};
}

VoiceStatus VoiceStatus::fromJson(const QJsonObject &reply)
{
    VoiceStatus out;
    const QString status = reply.value(u"status").toString();
    if (status == u"unknown_request")
        out.heard = Heard::Unknown;
    else if (status == u"done" || status == u"processed")
        out.heard = Heard::Done;
    out.accepted = Accepted::fromJson(reply);
    return out;
}

} // namespace ChatEndpoints
