#pragma once

#include "chat/outbox/chatcourier.h"
#include "chat/model/chatscope.h"
#include "chat/outbox/outboxturn.h"
#include "net/multipart.h"

#include <QCoroTask>
#include <QString>

class Api;
class Sleeper;

// The voice step of delivering a turn, and recordings sent only to be heard.
namespace VoiceDelivery {

// What a voice note is called, in the user's language: "Voice message.wav".
QString noteName();
// The text a turn shows when its recording could not be kept.
QString couldNotSave();

// The fields of a voice turn's upload beside its "audio" part.
Multipart::Fields fields(const OutboxTurn &turn, const ChatScope &scope, bool reprocess);

// Posts the turn's voice note (read from dataPath) to "webapi/voice" as a background transfer
// named storage key + ":voice:" + turn id, and judges the reply like the chat reply. When the
// server answers that it is still transcribing, its status is asked every 2 s for up to a
// minute within this attempt (so the turn stays in flight); a server that never got the note
// gets it once more. Copies what it needs before its first wait.
QCoro::Task<ChatCourier::Result> deliver(Api &api, ChatScope scope, QString storageKey,
                                         Sleeper *sleeper, OutboxTurn turn, QString dataPath);

// The text the server heard in a recording; nothing is stored. Throws like Api.
QCoro::Task<QString> transcribe(Api &api, ChatScope scope, float peak, QByteArray wav);

} // namespace VoiceDelivery
