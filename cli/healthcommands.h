#pragma once

#include "invocation.h"

#include <QCoroTask>

// health [--json] | health import FILE | health disconnect [--forget]
namespace HealthCommands {

QCoro::Task<int> health(Invocation in);

} // namespace HealthCommands
