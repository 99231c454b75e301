#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// call: a live voice call with the agent (devices or WAV files), and its status, journal,
// voice preferences, memory and interruption threshold.
namespace CallCommands {

QCoro::Task<int> call(Invocation in, const Ports &ports);

} // namespace CallCommands
