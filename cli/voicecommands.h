#pragma once

#include "invocation.h"

#include <QCoroTask>

// chat play SEQ [--output FILE] [--rate R]: a message's voice on the speaker, or into a WAV file.
namespace VoiceCommands {

QCoro::Task<int> play(Invocation in);

} // namespace VoiceCommands
