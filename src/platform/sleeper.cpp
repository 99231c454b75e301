#include "sleeper.h"

#include "shutdown.h"

#include <QTimer>

#include <coroutine>
#include <memory>

namespace {

// A timer that also ends when the process shuts down, so a sleeping task always completes.
class Wait
{
public:
    explicit Wait(std::chrono::milliseconds duration)
        : m_duration(duration)
    {}

    bool await_ready() const { return false; }

    void await_suspend(std::coroutine_handle<> waiting)
    {
        m_waiting = waiting;
        m_timer = std::make_unique<QTimer>();
        m_timer->setSingleShot(true);
        QObject::connect(m_timer.get(), &QTimer::timeout, m_timer.get(), [this] { wake(); });
        QObject::connect(&Shutdown::instance(), &Shutdown::begins, m_timer.get(),
                         [this] { wake(); });
        m_timer->start(std::max(m_duration, std::chrono::milliseconds(0)));
    }

    void await_resume() const {}

private:
    void wake()
    {
        m_timer->stop();
        // Both sources end here; the resumed task may destroy this wait.
        QObject::disconnect(m_timer.get(), nullptr, nullptr, nullptr);
        QObject::disconnect(&Shutdown::instance(), nullptr, m_timer.get(), nullptr);
        std::exchange(m_waiting, nullptr).resume();
    }

    std::chrono::milliseconds m_duration;
    // Made when the wait starts (the awaiter is moved before that).
    std::unique_ptr<QTimer> m_timer;
    std::coroutine_handle<> m_waiting;
};

class TimerSleeper : public Sleeper
{
public:
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override
    {
        // A wait under way when the end begins returns (a debounced save still runs); a new
        // one ends its loop.
        if (Shutdown::begun())
            throw Shutdown::Ended();
        co_await Wait(duration);
    }
};

} // namespace

Sleeper &Sleeper::real()
{
    // Stateless, so safe to outlive the event loop.
    static TimerSleeper sleeper;
    return sleeper;
}
