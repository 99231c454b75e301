#include "debugcommands.h"

#include "app/crash.h"
#include "console.h"
#include "outcome.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QJsonObject>
#include <QThread>

#include <signal.h>

#include <stdexcept>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

int usage()
{
    Console::err(
        L::t(u"שימוש: debug crash SIGNAL|exception | debug hang SECONDS | debug report"_s,
             u"Usage: debug crash SIGNAL|exception | debug hang SECONDS | debug report"_s,
             u"Использование: debug crash SIGNAL|exception | debug hang SECONDS | debug report"_s));
    return Usage;
}

// "SIGSEGV", "segv" or "11"; only the signals crash capture handles.
int signalOf(const QString &word)
{
    const std::pair<const char *, int> known[] = {{"ABRT", SIGABRT}, {"SEGV", SIGSEGV},
                                                  {"BUS", SIGBUS},   {"ILL", SIGILL},
                                                  {"FPE", SIGFPE},   {"TRAP", SIGTRAP}};
    QString name = word.toUpper();
    if (name.startsWith(u"SIG"))
        name.remove(0, 3);
    bool number = false;
    const int value = word.toInt(&number);
    for (const auto &[text, signal] : known) {
        if (name == QLatin1String(text) || (number && value == signal))
            return signal;
    }
    return 0;
}

int crash(const QString &what)
{
    if (what == u"exception") {
        // Thrown where nothing catches it: the uncaught-exception path.
        std::thread([] { throw std::runtime_error("debug crash"); }).join();
        return Done;
    }
    const int signal = signalOf(what);
    if (signal == 0)
        return usage();
    raise(signal);
    return Done;
}

} // namespace

namespace DebugCommands {

QCoro::Task<int> debug(Invocation in, const Ports &)
{
    const QString action = in.args.value(0);
    if (action == u"crash" && in.args.size() == 2)
        co_return crash(in.args.at(1));
    if (action == u"hang" && in.args.size() == 2) {
        bool number = false;
        const double seconds = in.args.at(1).toDouble(&number);
        if (!number || seconds <= 0 || seconds > 3600)
            co_return usage();
        // In front and stuck: what the user would see as a frozen app.
        Crash::setForeground(true);
        QThread::msleep(ulong(seconds * 1000));
        Crash::setForeground(false);
        co_return Done;
    }
    if (action == u"report" && in.args.size() == 1) {
        const bool signedIn = co_await SessionCommands::signedIn();
        if (!signedIn)
            co_return SignedOut;
        // Signing in starts the delivery; wait for it to end.
        for (int i = 0; i < 300 && Crash::flushing(); ++i)
            co_await QCoro::sleepFor(100ms);
        if (Crash::waiting() > 0) {
            const int sent = co_await Crash::flush();
            Q_UNUSED(sent)
        }
        const int waiting = Crash::waiting();
        Console::json(QJsonObject{{u"waiting"_s, waiting}});
        co_return waiting == 0 ? Done : Unreachable;
    }
    co_return usage();
}

} // namespace DebugCommands
