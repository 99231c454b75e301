#pragma once

#include <QCoroTask>

#include <chrono>

// Waiting, as a port: production waits on a timer, tests decide when time has passed.
class Sleeper
{
public:
    virtual ~Sleeper() = default;
    virtual QCoro::Task<> sleep(std::chrono::milliseconds duration) = 0;

    // Waits on a timer of the calling thread's event loop.
    static Sleeper &real();
};
