#pragma once

#include "invocation.h"

class Clock;

// Crash and vitals for a terminal run: armed at start, in front while an interactive
// command runs, reports sent once a session is signed in.
namespace CliVitals {

void arm(const Invocation &in, const Clock &clock);
// Whether a command keeps the user at the terminal (what "in front" means here).
bool interactive(const Invocation &in);

} // namespace CliVitals
