#pragma once

#include <QString>
#include <QStringList>

using namespace Qt::StringLiterals;

// The server paths of the session and profile.
namespace SessionEndpoints {

inline QString me()
{
    return u"webapi/me"_s;
}
inline QString prefs()
{
    return u"webapi/prefs"_s;
}
inline QString logout()
{
    return u"webapi/auth/logout"_s;
}
inline QString deleteAccount()
{
    return u"webapi/auth/delete-account"_s;
}
// The pages behind the shell's tabs, read ahead so the tabs draw at once.
inline QStringList tabPages()
{
    return {u"webapi/automations"_s, u"webapi/projects"_s, u"webapi/claude-accounts"_s,
            u"webapi/codex-accounts"_s};
}

} // namespace SessionEndpoints
