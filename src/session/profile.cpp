#include "profile.h"

#include "net/jsonrecord.h"

using namespace Qt::StringLiterals;

#include <QJsonArray>

namespace {

QSet<QString> setOf(const QStringList &list)
{
    return QSet<QString>(list.begin(), list.end());
}

QJsonObject objectOf(const QHash<QString, QString> &map)
{
    QJsonObject out;
    for (auto it = map.begin(); it != map.end(); ++it)
        out.insert(it.key(), it.value());
    return out;
}

} // namespace

bool Profile::isOwner() const
{
    return role == u"owner" || user == u"owner";
}

QString Profile::label() const
{
    return user.startsWith(u"tt_") ? email : user;
}

bool Profile::may(const QString &key) const
{
    if (isOwner())
        return true;
    if (key == u"voice")
        return voiceLive;
    return pages.contains(key);
}

Me Me::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    Me me;
    me.authenticated = r.boolean(u"authenticated"_s);
    me.profile.user = r.string(u"user"_s);
    me.profile.role = r.string(u"role"_s, u"user"_s);
    me.profile.email = r.string(u"email"_s);
    me.profile.pages = setOf(r.strings(u"pages"_s));
    me.profile.voiceLive = r.boolean(u"voice_live"_s);
    // Older servers sent the workspace as its bare id.
    const QJsonValue workspace = r.object().value(u"workspace");
    me.profile.workspace = workspace.isObject()
                               ? r.record(u"workspace"_s).string(u"id"_s)
                               : r.looseString(u"workspace"_s);
    return me;
}

Prefs Prefs::fromJson(const QJsonValue &value)
{
    return Prefs{JsonRecord(value).stringMap(u"prefs"_s)};
}

QJsonObject OfflineProfile::toJson() const
{
    QStringList pages(profile.pages.begin(), profile.pages.end());
    pages.sort();
    return QJsonObject{
        {u"sessionHash"_s, sessionHash},
        {u"user"_s, profile.user},
        {u"role"_s, profile.role},
        {u"email"_s, profile.email},
        {u"pages"_s, QJsonArray::fromStringList(pages)},
        {u"voiceLive"_s, profile.voiceLive},
        {u"prefs"_s, objectOf(profile.prefs)},
        {u"workspace"_s, profile.workspace},
        {u"server"_s, server},
    };
}

OfflineProfile OfflineProfile::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    OfflineProfile out;
    out.sessionHash = r.string(u"sessionHash"_s);
    out.profile.user = r.string(u"user"_s);
    out.profile.role = r.string(u"role"_s, u"user"_s);
    out.profile.email = r.string(u"email"_s);
    out.profile.pages = setOf(r.strings(u"pages"_s));
    out.profile.voiceLive = r.boolean(u"voiceLive"_s);
    out.profile.prefs = r.stringMap(u"prefs"_s);
    out.profile.workspace = r.string(u"workspace"_s);
    out.server = r.string(u"server"_s);
    return out;
}
