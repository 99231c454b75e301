// halvenmark-cli: the terminal client.

#include "console.h"
#include "invocation.h"
#include "outcome.h"
#include "pagecommands.h"
#include "sessioncommands.h"

using namespace Qt::StringLiterals;

#include "net/api.h"
#include "platform/secretstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCoroTask>
#include <QTimer>

#include <functional>
#include <map>

namespace {

using Command = std::function<QCoro::Task<int>(Invocation)>;

const std::map<QString, Command> &commands()
{
    static const std::map<QString, Command> table = {
        {u"login"_s, SessionCommands::login},
        {u"whoami"_s, SessionCommands::whoami},
        {u"logout"_s, SessionCommands::logout},
        {u"delete-account"_s, SessionCommands::deleteAccount},
        {u"prefs"_s, SessionCommands::prefs},
        {u"get"_s, PageCommands::get},
    };
    return table;
}

QString summary()
{
    return QStringLiteral(
        "Commands:\n"
        "  login --user NAME | --token TOKEN   sign in (password from stdin)\n"
        "  whoami [--json]                     who is signed in\n"
        "  get PATH                            a server page, through the page cache\n"
        "  prefs [set KEY VALUE]               server-side preferences\n"
        "  logout                              sign out\n"
        "  delete-account                      delete the account\n"
        "\n"
        "Exit status: 0 done, 1 refused by the server, 2 usage, 3 not signed in,\n"
        "4 server unreachable and nothing saved to show.\n"
        "Environment: HALVENMARK_SERVER (server address), HALVENMARK_HOME (data folder).");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(u"Halvenmark"_s);
    QCoreApplication::setApplicationName(u"halvenmark"_s);
    QCoreApplication::setApplicationVersion(Api::userAgent());

    QCommandLineParser parser;
    parser.setApplicationDescription(summary());
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption json(u"json"_s, u"Machine-readable output."_s);
    const QCommandLineOption user(u"user"_s, u"User name to sign in with."_s,
                                  u"NAME"_s);
    const QCommandLineOption token(u"token"_s,
                                   u"One-time sign-in token."_s, u"TOKEN"_s);
    parser.addOptions({json, user, token});
    parser.addPositionalArgument(u"command"_s, u"What to do."_s);

    if (!parser.parse(QCoreApplication::arguments())) {
        Console::err(parser.errorText());
        return Usage;
    }
    if (parser.isSet(u"help"_s)) {
        Console::out(parser.helpText());
        return Done;
    }
    if (parser.isSet(u"version"_s)) {
        Console::out(Api::userAgent());
        return Done;
    }

    Invocation in;
    QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        Console::err(summary());
        return Usage;
    }
    in.command = words.takeFirst();
    in.args = words;
    in.json = parser.isSet(json);
    in.user = parser.value(user);
    in.token = parser.value(token);

    const auto found = commands().find(in.command);
    if (found == commands().end()) {
        Console::err(L::t(u"פקודה לא מוכרת: %1"_s, u"Unknown command: %1"_s,
                          u"Неизвестная команда: %1"_s)
                         .arg(in.command));
        Console::err(summary());
        return Usage;
    }
    if (const QString refused = Api::baseError(); !refused.isEmpty()) {
        Console::err(refused);
        return Usage;
    }

    Session session(SecretStore::platform(u"Halvenmark"_s));
    // Started from inside the event loop: a command that finishes without waiting on
    // anything must still be able to end the loop.
    QTimer::singleShot(0, &app, [&] {
        QCoro::connect(found->second(in), &app, [](int code) { QCoreApplication::exit(code); });
    });
    return app.exec();
}
