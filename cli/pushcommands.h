#pragma once

#include "invocation.h"

#include <QCoroTask>

// push status [--json], push test.
namespace PushCommands {

QCoro::Task<int> push(Invocation in);

} // namespace PushCommands
