#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QByteArray>
#include <QCoroTask>

// get and watch: server pages, read through the page cache.
namespace PageCommands {

enum class PageKind { Json, Text, Binary };

// JSON (an object or an array), UTF-8 text without NUL, or anything else.
PageKind kindOf(const QByteArray &body);

QCoro::Task<int> get(Invocation in, const Ports &ports);
// Keeps a page on screen, redrawn when it changes, until interrupted or signed out.
QCoro::Task<int> watch(Invocation in, const Ports &ports);

} // namespace PageCommands
