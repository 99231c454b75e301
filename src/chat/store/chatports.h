#pragma once

class Clock;
class Reachability;
class Sleeper;

// What the chat stores wait with, ask about the network and read the time from.
struct ChatPorts {
    Sleeper &sleeper;
    Reachability &reachability;
    Clock &clock;
};
