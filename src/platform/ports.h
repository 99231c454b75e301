#pragma once

class Clock;
class Reachability;
class Sleeper;

// The machine's services as one executable's start-up builds them, once, for everything that
// reads the time, waits or watches the network. Tests build the same from fakes.
struct Ports {
    Clock &clock;
    Sleeper &sleeper;
    Reachability &reachability;
};
