#include "chat/store/transcript.h"

#include "chat/model/chatjson.h"
#include "net/jsonrecord.h"
#include "platform/appdata.h"

#include <QDir>

#include <algorithm>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace Transcript {

QString folder()
{
    const QString dir = AppData::path(u"transcript"_s);
    if (!dir.isEmpty())
        QDir().mkpath(dir);
    return dir;
}

QString fileName(const QString &storageKey, bool owner)
{
    return u"chat-"_s + storageKey + (owner ? u"-voice-separated-v1"_s : QString()) + u"-feed-v"_s
           + QString::number(version) + u".json"_s;
}

QString activityFileName(const QString &storageKey)
{
    return u"activity-"_s + storageKey + u"-v"_s + QString::number(version) + u".json"_s;
}

QByteArray encode(const Contents &contents)
{
    QByteArray out = "{\"version\":" + QByteArray::number(version) + ",\"cachedSeq\":"
                     + QByteArray::number(contents.cachedSeq) + ",\"messages\":[";
    bool first = true;
    for (const ChatMessage &m : contents.messages) {
        if (!std::exchange(first, false))
            out += ',';
        out += QJsonDocument(m.toJson()).toJson(QJsonDocument::Compact);
    }
    out += "]}";
    return out;
}

std::optional<Contents> decode(const QByteArray &bytes)
{
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    if (!doc.isObject() || doc.object().value(u"version").toInt() != version)
        return std::nullopt;
    Contents out;
    out.cachedSeq = std::clamp<qint64>(
        ChatJson::looseInteger(doc.object().value(u"cachedSeq")).value_or(0), 0, ChatJson::maxSeq);
    const QJsonArray messages = doc.object().value(u"messages").toArray();
    for (const QJsonValue &m : messages) {
        try {
            out.messages.append(std::make_shared<const ChatMessage>(ChatMessage::fromJson(m)));
        } catch (const DecodeError &) {
        }
    }
    return out;
}

QByteArray encodeLanes(const QList<Lane> &lanes)
{
    QJsonArray out;
    for (const Lane &lane : lanes)
        out.append(lane.toJson());
    return QJsonDocument(out).toJson(QJsonDocument::Compact);
}

QList<Lane> decodeLanes(const QByteArray &bytes)
{
    QList<Lane> out;
    for (const QJsonValue &v : QJsonDocument::fromJson(bytes).array()) {
        try {
            out.append(Lane::fromJson(v));
        } catch (const DecodeError &) {
        }
    }
    return out;
}

} // namespace Transcript
