#include "chatprompt.h"

#include "net/api.h"

#include "chatscreen.h"
#include "interactivechat.h"
#include "pipedchat.h"

#include "chat/store/chatstore.h"
#include "clichats.h"

#include <unistd.h>

namespace ChatPrompt {

QCoro::Task<int> run(ChatScope scope, const Ports &ports)
{
    const auto held = CliChats::storeFor(scope);
    ChatStore &store = *held;
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
