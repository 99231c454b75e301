#include "clichats.h"

#include "chat/store/chatstore.h"
#include "chat/store/chatstores.h"
#include "session/session.h"

namespace {

ChatStores *installed = nullptr;

} // namespace

namespace CliChats {

void install(ChatStores *stores)
{
    installed = stores;
}

ChatStores &stores()
{
    Q_ASSERT(installed);
    return *installed;
}

std::unique_ptr<ChatStore> storeFor(const ChatScope &scope)
{
    const Session *session = Session::shared();
    return stores().make(scope, session->user(), session->role());
}

} // namespace CliChats
