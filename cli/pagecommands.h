#pragma once

#include "invocation.h"

#include <QCoroTask>

// get and watch: server pages, read through the page cache.
namespace PageCommands {

QCoro::Task<int> get(Invocation in);
// Keeps a page on screen, redrawn when it changes, until interrupted or signed out.
QCoro::Task<int> watch(Invocation in);

} // namespace PageCommands
