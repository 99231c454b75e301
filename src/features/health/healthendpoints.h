#pragma once

#include <QString>

using namespace Qt::StringLiterals;

// The server paths of the health link.
namespace HealthEndpoints {

// The summary the server keeps (GET).
inline QString summary()
{
    return u"webapi/health"_s;
}
// One page of the incremental upload.
inline QString sync()
{
    return u"webapi/health/sync"_s;
}
// Unlinks the device, optionally deleting the data.
inline QString disconnect()
{
    return u"webapi/health/disconnect"_s;
}

} // namespace HealthEndpoints
