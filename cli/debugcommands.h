#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// debug crash SIGNAL | exception, debug hang SECONDS, debug report: for developers.
namespace DebugCommands {

QCoro::Task<int> debug(Invocation in, const Ports &ports);

} // namespace DebugCommands
