#include "vitals.h"

#include "net/wire.h"

#include <QSysInfo>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Crash {

void Vitals::start(double now)
{
    started = now;
    lastBeat = now;
}

void Vitals::beat(double now)
{
    worstStall = std::max(worstStall, now - lastBeat - period);
    lastBeat = now;
}

double Vitals::currentStall(double now) const
{
    return std::max(0.0, now - lastBeat - period);
}

void Vitals::watch(double now)
{
    worstStall = std::max(worstStall, currentStall(now));
}

QJsonObject Vitals::toJson(double now, bool ended) const
{
    // Tenths are plenty for a report, and keep the file from changing on every write.
    const auto tenths = [](double seconds) { return std::round(seconds * 10) / 10; };
    return {
        {u"surface"_s, surface},
        {u"foreground"_s, foreground},
        {u"worst_stall_s"_s, tenths(std::max(worstStall, currentStall(now)))},
        {u"uptime_s"_s, tenths(now - started)},
        {u"build"_s, Wire::userAgent()},
        {u"system"_s, QSysInfo::prettyProductName() + u" ("_s + QSysInfo::kernelVersion() + u")"_s},
        {u"ended"_s, ended},
    };
}

} // namespace Crash
