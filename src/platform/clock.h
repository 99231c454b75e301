#pragma once

#include <QDateTime>

// Time as a port: the wall clock for dates shown and stored, the monotonic clock for spans.
// Production reads the machine; tests set both by hand.
class Clock
{
public:
    virtual ~Clock() = default;
    // Now, in UTC.
    virtual QDateTime now() const = 0;
    // now() as seconds since 1970, the way messages and turns carry their times.
    double epochSeconds() const { return double(now().toMSecsSinceEpoch()) / 1000.0; }
    // Seconds that never step back and stand still while the machine sleeps.
    virtual double uptime() const = 0;

    // The machine's clocks; built once by each executable's composition root.
    static Clock &system();
};
