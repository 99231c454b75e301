#pragma once

#include <QString>

using namespace Qt::StringLiterals;

// The server paths of live voice calls (a project's call adds its scope to each).
namespace CallEndpoints {

// The call's socket, for a provider and the app's language.
inline QString socket(const QString &provider, const QString &language)
{
    return u"webapi/voice-live/ws?provider="_s + provider + u"&app_language="_s + language;
}
inline QString status()
{
    return u"webapi/voice-live/status"_s;
}
inline QString journal()
{
    return u"webapi/voice-live/journal"_s;
}
inline QString preferences()
{
    return u"webapi/voice-live/preferences"_s;
}
inline QString memory()
{
    return u"webapi/voice-live/memory"_s;
}

} // namespace CallEndpoints
