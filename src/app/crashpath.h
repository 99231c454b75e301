#pragma once

#include <QString>

// The crash file's path as a C string, prepared before anything can crash, so that a signal
// handler only opens and writes: no allocation, no locks.
namespace CrashPath {

// Copies the path into a fixed buffer (a longer path leaves crash capture off).
void set(const QString &path);
// The prepared path; empty when none is set.
const char *get();

// Async-signal-safe: "signal N", up to 64 frames, then the default action raised again so
// the process still dies of the same signal.
void writeFromSignal(int signal);

// Not from a signal: "exception <type>: <what>" and the frames, for an uncaught exception.
void writeException(const char *type, const char *what);

} // namespace CrashPath
