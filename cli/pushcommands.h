#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// push status [--json], push test.
namespace PushCommands {

QCoro::Task<int> push(Invocation in, const Ports &ports);

} // namespace PushCommands
