#include "clock.h"

#include "monotonic.h"

namespace {

class SystemClock : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    double uptime() const override { return Monotonic::seconds(); }
};

} // namespace

Clock &Clock::system()
{
    // Stateless, so safe to outlive the event loop.
    static SystemClock clock;
    return clock;
}
