#include "sleeper.h"

#include <QCoroTimer>

namespace {

class TimerSleeper : public Sleeper
{
public:
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override
    {
        co_await QCoro::sleepFor(duration);
    }
};

} // namespace

Sleeper &Sleeper::real()
{
    // Stateless, so safe to outlive the event loop.
    static TimerSleeper sleeper;
    return sleeper;
}
