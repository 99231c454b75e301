#pragma once

#include <QString>

using namespace Qt::StringLiterals;

// The server paths of push notifications.
namespace PushEndpoints {

// Publishes this device's token.
inline QString registration()
{
    return u"webapi/push/register"_s;
}
// The delivery chain as the server sees it.
inline QString status()
{
    return u"webapi/push/status"_s;
}
// Sends a test notification.
inline QString test()
{
    return u"webapi/push/test"_s;
}

} // namespace PushEndpoints
