// The terminal client's run, shared by halvenmark-cli and halvenmark-cli-devices.

#include "climain.h"

#include "chatcommands.h"
#include "clichats.h"
#include "clivitals.h"
#include "commandline.h"
#include "console.h"
#include "debugcommands.h"
#include "devicecommands.h"
#include "healthcommands.h"
#include "invocation.h"
#include "outcome.h"
#include "pagecommands.h"
#include "pushcommands.h"
#include "render.h"
#include "sessioncommands.h"

#include "app/crash.h"
#include "app/reportqueue.h"
#include "chat/store/chatstores.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "net/api.h"
#include "net/networkmanager.h"
#include "platform/clock.h"
#include "platform/ports.h"
#include "platform/reachability.h"
#include "platform/secretstore.h"
#include "platform/sleeper.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QTimer>

#include <functional>
#include <map>

using namespace Qt::StringLiterals;

namespace {

using Command = std::function<QCoro::Task<int>(Invocation, const Ports &)>;

std::map<QString, Command> commands()
{
    std::map<QString, Command> table = {
        {u"login"_s, SessionCommands::login},
        {u"whoami"_s, SessionCommands::whoami},
        {u"logout"_s, SessionCommands::logout},
        {u"delete-account"_s, SessionCommands::deleteAccount},
        {u"prefs"_s, SessionCommands::prefs},
        {u"get"_s, PageCommands::get},
        {u"watch"_s, PageCommands::watch},
        {u"lang"_s, SessionCommands::lang},
        {u"chat"_s, ChatCommands::chat},
        {u"push"_s, PushCommands::push},
        {u"debug"_s, DebugCommands::debug},
        {u"health"_s, HealthCommands::health},
    };
    if (const DeviceCommands::Table *devices = DeviceCommands::installed()) {
        table.emplace(u"vault"_s, devices->vault);
        table.emplace(u"call"_s, devices->call);
    }
    return table;
}

// A command's status once a sign-out it caused (a 401 included) has removed the stored session:
// the process ends right after.
QCoro::Task<int> settled(QCoro::Task<int> command, Session *session)
{
    const int code = co_await command;
    co_await session->settle();
    co_return code;
}

} // namespace

int CliMain::run(int argc, char **argv)
{
    // QtMultimedia decodes voice with FFmpeg (Ogg/Opus, M4A): chosen before its first use.
    if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND"))
        qputenv("QT_MEDIA_BACKEND", "ffmpeg");
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(u"Halvenmark"_s);
    QCoreApplication::setApplicationName(u"halvenmark"_s);
    QCoreApplication::setApplicationVersion(CommandLine::version());

    const CommandLine::Parsed parsed = CommandLine::parse(QCoreApplication::arguments());
    if (!parsed.run) {
        if (!parsed.out.isEmpty())
            Console::out(parsed.out);
        if (!parsed.err.isEmpty())
            Console::err(parsed.err);
        return parsed.status;
    }
    const Invocation &in = *parsed.run;
    if (!DeviceCommands::installed() && DeviceCommands::needed(in))
        return DeviceCommands::handOver(argv);

    if (in.command == u"render") {
        const int modes =
            int(in.isSet(u"html"_s)) + int(in.isSet(u"ansi"_s)) + int(in.isSet(u"plain"_s));
        if (!in.args.isEmpty() || modes > 1) {
            Console::err(L::t(u"שימוש: render [--html | --ansi | --plain]"_s,
                              u"Usage: render [--html | --ansi | --plain]"_s,
                              u"Использование: render [--html | --ansi | --plain]"_s));
            return Usage;
        }
        const QString mode = in.isSet(u"html"_s)    ? u"html"_s
                             : in.isSet(u"plain"_s) ? u"plain"_s
                                                    : u"ansi"_s;
        return RenderCommand::run(mode);
    }
    const std::map<QString, Command> table = commands();
    const auto found = table.find(in.command);
    if (found == table.end()) {
        // Known to the help, not part of this build.
        Console::err(L::t(u"הפקודה %1 אינה זמינה בגרסה זו."_s,
                          u"%1 is not available in this build."_s,
                          u"Команда %1 недоступна в этой сборке."_s)
                         .arg(in.command));
        return Usage;
    }
    // --- The transport: one network manager and one Api for the whole run. ---
    Api api(Network::create(&app), ServerAddress::configured());
    if (const QString refused = api.baseError(); !refused.isEmpty()) {
        Console::err(refused);
        return Usage;
    }
    // --- end of the transport ---

    // The transport and the machine's services, built once here and handed down.
    Reachability *reachability = Reachability::platform(&app);
    const Ports ports{api, Clock::system(), Sleeper::real(), *reachability};

    CliVitals::arm(in, ports.clock, ReportQueue::server(api));
    ChatStores chats(ChatPorts{api, ports.sleeper, ports.reachability, ports.clock});
    CliChats::install(&chats);
    Session session(api, SecretStore::platform(u"Halvenmark"_s));
    session.onForget([&chats] { chats.reset(); });
    ChatBackgroundTransfer transfers(api, ports.sleeper);
    // Started from inside the event loop: a command that finishes without waiting on
    // anything must still be able to end the loop.
    QTimer::singleShot(0, &app, [&] {
        QCoro::connect(settled(found->second(in, ports), &session), &app, [](int code) {
            Crash::settled();
            QCoreApplication::exit(code);
        });
    });
    const int status = app.exec();
    Network::settle();
    CliChats::install(nullptr);
    return status;
}
