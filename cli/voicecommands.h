#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// Voice in the terminal: a message's voice played, recordings sent as voice turns or heard.
namespace VoiceCommands {

// chat play SEQ [--output FILE] [--rate R]: a message's voice on the speaker, or into a WAV file.
QCoro::Task<int> play(Invocation in, const Ports &ports);
// chat send --voice FILE.wav: the recording as a voice turn (exit statuses as chat send).
QCoro::Task<int> sendVoice(Invocation in, const Ports &ports);
// chat record [--seconds S] [--input FILE.wav]: records until Enter, Ctrl-C or S seconds, then
// sends it like --voice; --input records that file instead of the microphone, in real time.
QCoro::Task<int> record(Invocation in, const Ports &ports);
// chat transcribe FILE.wav: prints what the server heard.
QCoro::Task<int> transcribe(Invocation in, const Ports &ports);

} // namespace VoiceCommands
