#pragma once

class Api;
class Clock;
class Reachability;
class Sleeper;

// What the chat stores talk to the server through, wait with, ask about the network and read
// the time from. All of it outlives the stores.
struct ChatPorts {
    Api &api;
    Sleeper &sleeper;
    Reachability &reachability;
    Clock &clock;
};
