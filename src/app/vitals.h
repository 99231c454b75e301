#pragma once

#include <QJsonObject>
#include <QString>

namespace Crash {

// What a run knows about its own health. Times are seconds on a monotonic clock, which
// stands still while the machine sleeps: a suspended laptop is not a stalled app.
// A plain value: the owner guards it with its lock.
struct Vitals {
    static constexpr double period = 1.0; // the heartbeat's interval

    double started = 0;
    double lastBeat = 0;
    double worstStall = 0;
    bool foreground = false;
    QString surface;

    void start(double now);
    // The heartbeat: a beat later than one period after the last one is a stall.
    void beat(double now);
    // How long the main thread is overdue now (0 while it beats on time).
    double currentStall(double now) const;
    // The watcher's view: the current stall counts even if no beat ever comes again.
    void watch(double now);

    // "run.json": the vitals with the build, the system, and whether the run ended normally.
    QJsonObject toJson(double now, bool ended) const;
};

} // namespace Crash
