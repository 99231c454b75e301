#pragma once

#include "invocation.h"

#include <QCoroTask>

// chat log, chat follow.
namespace ChatCommands {

QCoro::Task<int> chat(Invocation in);

} // namespace ChatCommands
