#pragma once

// The terminal client from its command line to its exit status. halvenmark-cli runs it as it is;
// halvenmark-cli-devices installs the device commands first (DeviceCommands).
namespace CliMain {
int run(int argc, char **argv);
}
