#include "chatprompt.h"

#include "net/api.h"

#include "chatscreen.h"
#include "interactivechat.h"
#include "pipedchat.h"

#include "chat/store/chatstore.h"
#include "session/session.h"

#include <unistd.h>

namespace ChatPrompt {

QCoro::Task<int> run(ChatScope scope, const Ports &ports)
{
    const Session *session = Session::shared();
    const ChatDependencies deps{&ports.sleeper, &ports.reachability};
    ChatStore store(ports.api, scope, session->user(), session->role(), deps);
    if (ChatScreen::possible()) {
        InteractiveChat chat(store, ports.clock);
        if (chat.start()) {
            const int status = co_await chat.run();
            co_return status;
        }
    }
    PipedChat chat(store, isatty(STDIN_FILENO) == 1);
    const int status = co_await chat.run();
    co_return status;
}

} // namespace ChatPrompt
