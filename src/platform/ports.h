#pragma once

class Api;
class Clock;
class Reachability;
class Sleeper;

// What one executable's start-up builds once and hands down: the transport to the server and
// the machine's services for everything that reads the time, waits or watches the network.
// Tests build the same from their own transport and fakes.
struct Ports {
    Api &api;
    Clock &clock;
    Sleeper &sleeper;
    Reachability &reachability;
};
