#pragma once

#include "chat/model/chatscope.h"

#include <memory>

class ChatStore;
class ChatStores;

// The terminal client's chat stores: main makes the owner, commands reach it here.
namespace CliChats {

// Set by main for the life of the process; cleared with nullptr.
void install(ChatStores *stores);
ChatStores &stores();
// A store of the signed-in account's conversation.
std::unique_ptr<ChatStore> storeFor(const ChatScope &scope);

} // namespace CliChats
