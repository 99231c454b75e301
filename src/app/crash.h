#pragma once

#include "reportqueue.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QString>

#include <optional>

class Clock;

// Crash and vitals capture for this process: signals and uncaught exceptions write
// "crash.txt"; a heartbeat, and a watcher thread that sees a stuck main thread, keep
// "run.json" current; the next start reports what the last run left. Main thread only,
// except the signal handlers and the watcher, which take nothing the main thread holds long.
namespace Crash {

// The crash folder under the data folder, created on first use.
QString folder();
struct Setup {
    QString folder;                // empty: Crash::folder()
    ReportQueue::Poster post;      // empty: reports wait on disk (ReportQueue::server posts)
    double watchEvery = 0.5;       // seconds between the watcher's looks; 0: no watcher
};

// Once at start-up, first of all: the crash path, the previous run's report, the handlers,
// the vitals (heartbeat and watcher), the diagnostics, the first "run.json". When another
// process of the app already owns the folder, only the handlers are installed. The clock
// times the vitals and lives as long as the process.
void arm(const Clock &clock, Setup setup = {});
bool armed();

// The previous run's report, queued for the server; its files are removed. Part of arm.
std::optional<QJsonObject> deliverPrevious();

// Whether the user is looking at the app (an active window, an interactive command).
void setForeground(bool foreground);
// The screen in use, for the report.
void setSurface(const QString &surface);

// Writes "run.json" now.
void note();

// A normal end: the run is marked ended and leaves nothing to report. Stops the vitals.
void settled();

// Posts the queued reports; the number the server took.
QCoro::Task<int> flush();
bool flushing();
// Queued reports not yet sent.
int waiting();

} // namespace Crash
