#pragma once

#include "chat/model/chatscope.h"
#include "platform/ports.h"

#include <QCoroTask>

// `chat` with no arguments: on a terminal, a screen with the transcript, the agent's live
// work and an input line (InteractiveChat); otherwise lines from stdin sent as turns, with an
// exit status that says whether they were all accepted (PipedChat).
namespace ChatPrompt {

QCoro::Task<int> run(ChatScope scope, const Ports &ports);

} // namespace ChatPrompt
