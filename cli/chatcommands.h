#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// chat log, chat follow.
namespace ChatCommands {

QCoro::Task<int> chat(Invocation in, const Ports &ports);

} // namespace ChatCommands
