#include "callcommands.h"

#include "net/api.h"

#include "callreport.h"
#include "console.h"
#include "outcome.h"
#include "sessioncommands.h"
#include "terminaltext.h"

#include "platform/fileaudioport.h"
#include "platform/clock.h"
#include "platform/qtaudioport.h"
#include "platform/sleeper.h"
#include "platform/splitaudioport.h"
#include "platform/wavfile.h"
#include "session/session.h"
#include "text/l.h"
#include "voice/apicalllink.h"
#include "voice/call.h"
#include "voice/callaudio.h"
#include "voice/voicetuning.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QLoggingCategory>

#include <cmath>
#include <csignal>
#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

volatile std::sig_atomic_t interruptedByUser = 0;

void onInterrupt(int)
{
    interruptedByUser = 1;
}

int usage()
{
    Console::err(
        L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s) +
        u"call [--project N] [--input FILE.wav] [--output FILE.wav] [--seconds S] [--json]\n"
        "       call status [--json] | call journal [--json] | call memory\n"
        "       call prefs [--voice V] [--language L] [--provider P] | call threshold [DB]"_s);
    return Usage;
}

ChatScope scopeOf(const Invocation &in)
{
    return in.project ? ChatScope::project(*in.project) : ChatScope::main();
}

bool signedOut()
{
    return Session::shared()->gate() == Session::Gate::Out;
}

// A call object for the account requests: no sound devices are opened by them.
struct Desk {
    ApiCallLink link;
    FileAudioPort silent;
    Call call;

    Desk(const Invocation &in, const Ports &ports)
        : link(ports.api)
        , call(scopeOf(in), &link, &silent, ports.sleeper, ports.clock, VoiceTuning::shared())
    {}
};

QString safe(const QString &text)
{
    return TerminalText::safe(text);
}

QJsonObject preferences(const Call &call)
{
    return {{u"voice"_s, call.voice()},
            {u"language"_s, call.language()},
            {u"provider"_s, call.provider()},
            {u"voices"_s, QJsonArray::fromStringList(call.voiceNames())}};
}

void printPreferences(const Call &call)
{
    Console::out(L::t(u"קול: %1"_s, u"Voice: %1"_s, u"Голос: %1"_s).arg(safe(call.voice())));
    Console::out(
        L::t(u"שפה: %1"_s, u"Language: %1"_s, u"Язык: %1"_s).arg(safe(call.languageLabel())));
    Console::out(
        L::t(u"ספק: %1"_s, u"Provider: %1"_s, u"Провайдер: %1"_s).arg(safe(call.providerLabel())));
    if (!call.voiceNames().isEmpty())
        Console::out(L::t(u"קולות: %1"_s, u"Voices: %1"_s, u"Голоса: %1"_s)
                         .arg(safe(call.voiceNames().join(u", "_s))));
}

QString memoryText(const Call &call)
{
    return L::t(u"זיכרון: %1 לטווח קצר, %2 לטווח ארוך"_s, u"Memory: %1 short-term, %2 long-term"_s,
                u"Память: %1 краткосрочно, %2 долгосрочно"_s)
               .arg(call.shortMemory())
               .arg(call.longMemory()) +
           (call.memoryStatus().isEmpty() ? QString() : u" — "_s + safe(call.memoryStatus()));
}

// When a request failed: 3 if it ended the session, else 4 (the call keeps no finer reason).
int requestFailed(const QString &text)
{
    if (signedOut())
        return Outcome::notSignedIn();
    Console::err(text);
    return Unreachable;
}

QString journalFailed()
{
    return L::t(u"לא ניתן לטעון את יומן השיחות."_s, u"Could not load the call journal."_s,
                u"Не удалось загрузить журнал звонков."_s);
}

QCoro::Task<int> status(Invocation in, const Ports &ports)
{
    Desk desk(in, ports);
    co_await desk.call.checkAvailability(Session::shared()->user());
    Call &call = desk.call;
    if (!call.availabilityChecked())
        co_return requestFailed(call.unavailableReason());
    if (in.json) {
        QJsonObject out = preferences(call);
        out.insert(u"available"_s, call.available());
        out.insert(u"reason"_s, safe(call.unavailableReason()));
        out.insert(u"provider_label"_s, call.providerLabel());
        Console::json(out);
        co_return Done;
    }
    Console::out(call.available() ? L::t(u"שיחות קוליות זמינות."_s, u"Voice calls are available."_s,
                                         u"Голосовые звонки доступны."_s)
                                  : L::t(u"שיחות קוליות אינן זמינות: %1"_s,
                                         u"Voice calls are not available: %1"_s,
                                         u"Голосовые звонки недоступны: %1"_s)
                                        .arg(safe(call.unavailableReason())));
    printPreferences(call);
    co_return Done;
}

QCoro::Task<int> journal(Invocation in, const Ports &ports)
{
    Desk desk(in, ports);
    const bool loaded = co_await desk.call.loadJournal();
    if (!loaded)
        co_return requestFailed(journalFailed());
    const Call &call = desk.call;
    if (in.json) {
        QJsonArray lines;
        for (const CallTypes::Line &line : call.lines())
            lines.append(QJsonObject{{u"role"_s, line.role}, {u"text"_s, safe(line.text)}});
        Console::json(
            QJsonObject{{u"lines"_s, lines},
                        {u"memory"_s, QJsonObject{{u"short_term"_s, call.shortMemory()},
                                                  {u"long_term"_s, call.longMemory()},
                                                  {u"status"_s, safe(call.memoryStatus())},
                                                  {u"busy"_s, call.memoryBusy()}}},
                        {u"preferences"_s, preferences(call)}});
        co_return Done;
    }
    if (call.lines().isEmpty())
        Console::out(L::t(u"עוד לא היו שיחות."_s, u"No calls yet."_s, u"Звонков ещё не было."_s));
    for (const CallTypes::Line &line : call.lines()) {
        const QString who = line.role == u"user" ? L::t(u"את/ה"_s, u"You"_s, u"Вы"_s)
                                                 : L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s);
        Console::out(who + u": "_s + TerminalText::safe(line.text, TerminalText::Lines::Keep));
    }
    Console::out(memoryText(call));
    co_return Done;
}

QCoro::Task<int> prefs(Invocation in, const Ports &ports)
{
    Desk desk(in, ports);
    Call &call = desk.call;
    if (in.voice.isEmpty() && in.language.isEmpty() && in.provider.isEmpty()) {
        const bool loaded = co_await call.loadJournal();
        if (!loaded)
            co_return requestFailed(journalFailed());
    } else {
        co_await call.choose(in.voice, in.language, in.provider);
        if (signedOut())
            co_return Outcome::notSignedIn();
        if (!call.notice().isEmpty()) { // choose says why only when saving failed
            Console::err(call.notice());
            co_return Refused;
        }
    }
    printPreferences(call);
    co_return Done;
}

QCoro::Task<int> memory(Invocation in, const Ports &ports)
{
    Desk desk(in, ports);
    Call &call = desk.call;
    co_await call.consolidateMemory();
    const bool loaded = co_await call.loadJournal();
    if (!loaded)
        co_return requestFailed(journalFailed());
    Console::out(memoryText(call));
    co_return Done;
}

int threshold(const Invocation &in)
{
    VoiceTuning &tuning = VoiceTuning::shared();
    tuning.activate(Session::shared()->user());
    if (in.args.size() == 2) {
        bool number = false;
        double value = in.args.at(1).toDouble(&number);
        if (!number)
            return usage();
        // The threshold is always below full scale: "30" means -30 dB.
        tuning.set(value > 0 ? -value : value);
    }
    Console::out(L::t(u"סף ההפרעה: %1 dB"_s, u"Interruption threshold: %1 dB"_s,
                      u"Порог перебивания: %1 дБ"_s)
                     .arg(tuning.threshold()));
    return Done;
}

QCoro::Task<int> live(Invocation in, const Ports &ports)
{
    const bool fromFile = !in.input.isEmpty();
    const bool toFile = !in.output.isEmpty();
    WavFile wav;
    if (fromFile) {
        QString error;
        wav = WavFile::read(in.input, &error);
        if (!wav.isValid()) {
            Console::err(L::t(u"לא ניתן לקרוא את %1: %2"_s, u"Cannot read %1: %2"_s,
                              u"Не удалось прочитать %1: %2"_s)
                             .arg(in.input, error));
            co_return Usage;
        }
    }
    const bool signedIn = co_await SessionCommands::signedIn();
    if (!signedIn)
        co_return SignedOut;

    // Files stand in for the devices they replace; the others are the sound server's.
    std::unique_ptr<FileAudioPort> file;
    std::unique_ptr<QtAudioPort> devices;
    std::unique_ptr<SplitAudioPort> split;
    AudioPort *port = nullptr;
    if (fromFile || toFile) {
        file = std::make_unique<FileAudioPort>(wav);
        file->runInRealTime(true);
        port = file.get();
    }
    if (!fromFile || !toFile) {
        devices = std::make_unique<QtAudioPort>();
        devices->useOnly(!fromFile, !toFile);
        port = devices.get();
    }
    if (file && devices) {
        split = std::make_unique<SplitAudioPort>(
            fromFile ? static_cast<AudioPort *>(file.get()) : devices.get(),
            toFile ? static_cast<AudioPort *>(file.get()) : devices.get());
        port = split.get();
    }

    // A refused reconnect is part of the call's story (its phase says so); QCoro's uncategorised
    // warning about it would only scribble over the status line.
    QLoggingCategory::setFilterRules(u"default.warning=false"_s);
    ApiCallLink link(ports.api);
    Call call(scopeOf(in), &link, port, ports.sleeper, ports.clock, VoiceTuning::shared());
    co_await call.checkAvailability(Session::shared()->user());
    if (!call.availabilityChecked())
        co_return requestFailed(call.unavailableReason());
    if (!call.available()) {
        Console::err(safe(call.unavailableReason()));
        co_return Refused;
    }

    const CallReport::Mode mode = in.json                      ? CallReport::Mode::Json
                                  : isatty(STDOUT_FILENO) == 1 ? CallReport::Mode::Live
                                                               : CallReport::Mode::Plain;
    CallReport report(&call, mode);
    interruptedByUser = 0;
    auto previous = std::signal(SIGINT, onInterrupt);
    const double started = ports.clock.uptime();
    bool sessionEnded = false;
    call.start();
    while (call.isActive()) {
        co_await ports.sleeper.sleep(100ms);
        report.redraw();
        if (signedOut()) {
            sessionEnded = true;
            call.hangUp();
        } else if (interruptedByUser ||
                   (in.seconds > 0 && ports.clock.uptime() - started >= in.seconds)) {
            call.hangUp();
        }
    }
    std::signal(SIGINT, previous);
    report.finish();

    if (toFile) {
        const WavFile played{24000, 1, file->played()};
        if (!played.write(in.output)) {
            Console::err(
                L::t(u"לא ניתן לכתוב את %1."_s, u"Cannot write %1."_s, u"Не удалось записать %1."_s)
                    .arg(in.output));
            co_return Refused;
        }
    }
    if (sessionEnded)
        co_return Outcome::notSignedIn();
    if (call.phase() == Call::Phase::Failed) {
        Console::err(safe(call.failure()));
        if (!call.audio().error().isEmpty() && (!fromFile || !toFile))
            Console::err(L::t(
                u"בלי התקני שמע: ‎--input FILE.wav‎ ו-‎--output FILE.wav‎."_s,
                u"Without sound devices: --input FILE.wav and --output FILE.wav."_s,
                u"Без звуковых устройств: --input FILE.wav и --output FILE.wav."_s));
        co_return Refused;
    }
    co_return Done;
}

} // namespace

namespace CallCommands {

QCoro::Task<int> call(Invocation in, const Ports &ports)
{
    const QString action = in.args.value(0);
    const bool prefsGiven = !in.voice.isEmpty() || !in.language.isEmpty() || !in.provider.isEmpty();
    const bool liveGiven = !in.input.isEmpty() || !in.output.isEmpty() || in.seconds > 0;
    if (action.isEmpty() && !prefsGiven) {
        const int code = co_await live(in, ports);
        co_return code;
    }
    if (liveGiven || (prefsGiven && action != u"prefs"))
        co_return usage();
    if (action == u"threshold" && in.args.size() <= 2) {
        const bool signedIn = co_await SessionCommands::signedIn();
        co_return signedIn ? threshold(in) : SignedOut;
    }
    if (in.args.size() != 1)
        co_return usage();
    const bool signedIn = co_await SessionCommands::signedIn();
    if (!signedIn)
        co_return SignedOut;
    if (action == u"status") {
        const int code = co_await status(in, ports);
        co_return code;
    }
    if (action == u"journal") {
        const int code = co_await journal(in, ports);
        co_return code;
    }
    if (action == u"prefs") {
        const int code = co_await prefs(in, ports);
        co_return code;
    }
    if (action == u"memory") {
        const int code = co_await memory(in, ports);
        co_return code;
    }
    co_return usage();
}

} // namespace CallCommands
