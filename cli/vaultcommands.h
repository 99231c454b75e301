#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// vault list | reveal ID | copy ID | generate | add KIND --title T [--field K=V]... [--primary] |
// rm ID
namespace VaultCommands {

QCoro::Task<int> vault(Invocation in, const Ports &ports);

} // namespace VaultCommands
