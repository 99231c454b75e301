#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// health [--json] | health import FILE | health disconnect [--forget]
namespace HealthCommands {

QCoro::Task<int> health(Invocation in, const Ports &ports);

} // namespace HealthCommands
