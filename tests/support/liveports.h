#pragma once

#include "fakereachability.h"
#include "platform/clock.h"
#include "platform/ports.h"
#include "platform/sleeper.h"

// The test's transport with the machine's clock and timers and a network that is always there:
// for tests that run the app as it runs, faking only what would tie them to the host's network.
// Made once the test has named its server (the transport is made on first use).
struct LivePorts {
    explicit LivePorts(Api &api)
        : ports{api, Clock::system(), Sleeper::real(), reachability}
    {}
    LivePorts(const LivePorts &) = delete;
    LivePorts &operator=(const LivePorts &) = delete;

    FakeReachability reachability;
    Ports ports;
};
