#pragma once

#include <QPointer>

#include <chrono>
#include <functional>

class Sleeper;

// Runs an action once, a fixed time after the last of a burst of requests. Each new
// request restarts the wait. The action never runs after the owner is gone.
class Debouncer
{
public:
    // The sleeper is never null and outlives the owner.
    Debouncer(QObject *owner, std::chrono::milliseconds delay, std::function<void()> action,
              Sleeper *sleeper);

    void schedule();
    // Runs a pending action now (e.g. before closing).
    void flush();
    bool pending() const { return m_pending; }

private:
    QPointer<QObject> m_owner;
    std::chrono::milliseconds m_delay;
    std::function<void()> m_action;
    Sleeper *m_sleeper;
    int m_generation = 0;
    bool m_pending = false;
};
