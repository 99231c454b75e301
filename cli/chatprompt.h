#pragma once

#include "chat/chatscope.h"

#include <QCoroTask>

// `chat` with no arguments: the transcript, the agent's work and replies as they come, and a
// prompt line that sends. "/retry ID", "/stop N" and "/quit" are commands; a line ending in
// "\" is kept as the draft (the composer survives a restart) instead of being sent.
namespace ChatPrompt {

QCoro::Task<int> run(ChatScope scope);

} // namespace ChatPrompt
