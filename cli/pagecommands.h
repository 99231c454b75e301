#pragma once

#include "invocation.h"

#include <QCoroTask>

// get: one server page, read through the page cache.
namespace PageCommands {

QCoro::Task<int> get(Invocation in);

} // namespace PageCommands
