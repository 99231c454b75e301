#pragma once

#include "app/reportqueue.h"
#include "invocation.h"

class Clock;

// Crash and vitals for a terminal run: armed at start, in front while an interactive
// command runs, reports sent once a session is signed in.
namespace CliVitals {

// The clock lives as long as the process; reports go out through post.
void arm(const Invocation &in, const Clock &clock, ReportQueue::Poster post);
// Whether a command keeps the user at the terminal (what "in front" means here).
bool interactive(const Invocation &in);

} // namespace CliVitals
