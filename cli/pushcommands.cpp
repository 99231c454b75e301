#include "pushcommands.h"

#include "net/api.h"

#include "app/pushcenter.h"
#include "app/pushstatussheet.h"
#include "console.h"
#include "outcome.h"
#include "platform/notifier.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <memory>

using namespace Qt::StringLiterals;

namespace PushCommands {

QCoro::Task<int> push(Invocation in, const Ports &ports)
{
    const QString action = in.args.value(0);
    if (in.args.size() != 1 || (action != u"status" && action != u"test")) {
        Console::err(L::t(u"שימוש: push status [--json] | push test"_s,
                          u"Usage: push status [--json] | push test"_s,
                          u"Использование: push status [--json] | push test"_s));
        co_return Usage;
    }
    const bool signedIn = co_await SessionCommands::signedIn();
    if (!signedIn)
        co_return SignedOut;
    const std::unique_ptr<Notifier> notifier(Notifier::platform());
    PushCenter center(ports.api, notifier.get());
    center.arm();
    PushStatusSheet sheet(ports.api, &center);
    if (action == u"test") {
        co_await sheet.sendTest();
        Console::out(sheet.testText());
        co_return sheet.test() == PushStatusSheet::Test::Sent ? Done : Refused;
    }
    co_await sheet.load();
    if (!sheet.loaded())
        co_return Outcome::report(sheet.error(), ports.api);
    if (in.json) {
        Console::json(sheet.toJson());
        co_return Done;
    }
    Console::out(sheet.permissionText());
    Console::out(sheet.deviceText());
    Console::out(sheet.serverText());
    for (const QString &problem : sheet.problems())
        Console::out(u"  • "_s + problem);
    co_return Done;
}

} // namespace PushCommands
