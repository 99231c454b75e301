#pragma once

#include "fakereachability.h"
#include "platform/clock.h"
#include "platform/ports.h"
#include "platform/sleeper.h"

// The machine's clock and timers with a network that is always there: for tests that run the
// app as it runs, faking only what would tie them to the host's network.
struct LivePorts {
    FakeReachability reachability;
    Ports ports{Clock::system(), Sleeper::real(), reachability};
};
