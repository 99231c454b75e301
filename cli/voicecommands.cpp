#include "voicecommands.h"

#include "net/api.h"

#include "collectingvoiceoutput.h"
#include "console.h"
#include "outcome.h"

#include "terminaltext.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatstore.h"
#include "clichats.h"
#include "chat/media/audiodecode.h"
#include "chat/voice/recorder.h"
#include "chat/voice/voiceplayer.h"
#include "platform/appdata.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "platform/fileaudioport.h"
#include "platform/qtaudioport.h"
#include "platform/voiceoutput.h"
#include "platform/wavfile.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QAudioDevice>
#include <QMediaDevices>

#include <QFile>

#include <csignal>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void usage()
{
    Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s)
                 + u"chat play SEQ [--project N] [--output FILE] [--rate 1|1.5|2]"_s);
}

bool ended(VoicePlayer::Phase phase)
{
    return phase == VoicePlayer::Phase::Idle || phase == VoicePlayer::Phase::Failed;
}

QString notPlayed(qint64 seq)
{
    return L::t(u"לא ניתן היה לקבל את הקול של הודעה %1."_s,
                u"The voice of message %1 could not be had."_s,
                u"Не удалось получить голос сообщения %1."_s)
        .arg(seq);
}

ChatScope scopeOf(const Invocation &in)
{
    return in.project ? ChatScope::project(*in.project) : ChatScope::main();
}

// A 16-bit PCM WAV file and its loudest sample; nothing (and the reason said) otherwise.
std::optional<std::pair<QByteArray, float>> recording(const QString &path)
{
    QString error;
    const WavFile wav = WavFile::read(path, &error);
    QFile file(path);
    if (!wav.isValid() || !file.open(QIODevice::ReadOnly)) {
        Console::err(L::t(u"%1 אינו קובץ WAV של 16 סיביות: %2"_s,
                          u"%1 is not a 16-bit WAV file: %2"_s,
                          u"%1 — не 16-битный WAV-файл: %2"_s)
                         .arg(path, error.isEmpty() ? file.errorString() : error));
        return std::nullopt;
    }
    const auto *samples = reinterpret_cast<const qint16 *>(wav.samples.constData());
    int loudest = 0;
    for (qsizetype i = 0; i < wav.samples.size() / 2; ++i)
        loudest = std::max(loudest, std::abs(int(samples[i])));
    return std::pair(file.readAll(), std::min(1.0f, float(loudest) / 32768.0f));
}

// The turn sent: 0 when the server took it; kept in the outbox (4) or refused (1) otherwise.
QCoro::Task<int> deliverVoice(const Invocation &in, const Ports &ports, float peak,
                              QByteArray wav)
{
    const auto held = CliChats::storeFor(scopeOf(in));
    ChatStore &store = *held;
    store.prepare();
    qint64 userSeq = 0;
    QObject::connect(&store, &ChatStore::settled, &store,
                     [&userSeq](const QString &, qint64 seq, const QString &) { userSeq = seq; });
    bool withdrawn = false;
    QObject::connect(&store, &ChatStore::withdrawn, &store, [&withdrawn] { withdrawn = true; });
    if (in.replyTo) {
        co_await store.load();
        const auto &messages = store.messages();
        const auto target = std::find_if(messages.begin(), messages.end(),
                                         [&](const ChatMessage &m) { return m.seq == *in.replyTo; });
        if (target == messages.end()) {
            Console::err(L::t(u"אין הודעה מספר %1 בשיחה."_s, u"There is no message %1 in the conversation."_s,
                              u"В разговоре нет сообщения %1."_s)
                             .arg(*in.replyTo));
            co_return Refused;
        }
        store.setReplyTo(*target);
    }
    const QString turnID = store.submitVoice(peak, wav, false);
    if (turnID.isEmpty()) {
        Console::err(store.sendError());
        co_return Refused;
    }
    co_await store.drain();
    store.flushDisk();
    if (withdrawn) {
        Console::err(store.banner());
        co_return Refused;
    }
    for (const OutboxTurn &turn : store.outbox().state().turns) {
        if (turn.id != turnID)
            continue;
        if (turn.failure != TurnFailure::Refused) {
            Console::err(L::t(u"אין חיבור לשרת: ההקלטה נשמרה בתיבת היוצאים ותישלח כשהחיבור יחזור."_s,
                              u"Cannot reach the server: the recording is kept in the outbox and goes out when it is back."_s,
                              u"Нет связи с сервером: запись сохранена в исходящих и уйдёт, когда связь вернётся."_s));
            co_return Unreachable;
        }
        Console::err(turn.error);
        if (!turn.reason.isEmpty())
            Console::err(u"    "_s + TerminalText::safe(turn.reason));
        co_return Refused;
    }
    // What the server heard is the text of the user's message.
    co_await store.load();
    for (const ChatMessage &m : store.messages()) {
        if (m.seq == userSeq && userSeq > 0)
            Console::out(TerminalText::safe(m.text));
    }
    co_return Done;
}

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int)
{
    interrupted = 1;
}

// Enter typed on stdin; an ended stdin (a pipe, /dev/null) is not a stop.
bool enterPressed(bool *stdinOpen)
{
    if (!*stdinOpen)
        return false;
    pollfd p{STDIN_FILENO, POLLIN, 0};
    if (::poll(&p, 1, 0) <= 0)
        return false;
    char c = 0;
    const ssize_t n = ::read(STDIN_FILENO, &c, 1);
    if (n <= 0) {
        *stdinOpen = false;
        return false;
    }
    return c == '\n' || c == '\r';
}

} // namespace

namespace VoiceCommands {

QCoro::Task<int> sendVoice(Invocation in, const Ports &ports)
{
    if (in.args.size() != 1 || !in.files.isEmpty()) {
        Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s)
                     + u"chat send --voice FILE.wav [--project N] [--reply-to SEQ]"_s);
        co_return Usage;
    }
    const auto note = recording(in.voice);
    if (!note)
        co_return Refused;
    co_return co_await deliverVoice(in, ports, note->second, note->first);
}

QCoro::Task<int> transcribe(Invocation in, const Ports &ports)
{
    if (in.args.size() != 2) {
        Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s)
                     + u"chat transcribe FILE.wav [--project N]"_s);
        co_return Usage;
    }
    const auto note = recording(in.args.at(1));
    if (!note)
        co_return Refused;
    const auto held = CliChats::storeFor(scopeOf(in));
    ChatStore &store = *held;
    std::exception_ptr failed;
    QString heard;
    try {
        heard = co_await store.transcribe(note->second, note->first);
    } catch (...) {
        failed = std::current_exception();
    }
    if (failed)
        co_return Outcome::report(failed, ports.api);
    Console::out(TerminalText::safe(heard));
    co_return Done;
}

QCoro::Task<int> record(Invocation in, const Ports &ports)
{
    const double limit = in.seconds > 0 ? in.seconds : 600.0;
    if (in.args.size() != 1 || limit > 3600) {
        Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s)
                     + u"chat record [--seconds S (up to 3600)] [--input FILE.wav] [--project N]"_s);
        co_return Usage;
    }
    std::unique_ptr<AudioPort> port;
    if (in.input.isEmpty()) {
        port = std::make_unique<QtAudioPort>();
    } else {
        QString error;
        WavFile wav = WavFile::read(in.input, &error);
        if (!wav.isValid()) {
            Console::err(in.input + u": "_s + error);
            co_return Refused;
        }
        auto file = std::make_unique<FileAudioPort>(std::move(wav));
        file->runInRealTime(true);
        port = std::move(file);
    }
    Recorder recorder({.port = port.get(), .sleeper = ports.sleeper, .clock = ports.clock});
    const bool started = co_await recorder.start();
    if (!started) {
        Console::err(recorder.error());
        co_return Refused;
    }
    const bool live = isatty(STDERR_FILENO) == 1;
    Console::err(L::t(u"מקליט… Enter או Ctrl-C עוצרים ושולחים."_s,
                      u"Recording… Enter or Ctrl-C stops and sends."_s,
                      u"Идёт запись… Enter или Ctrl-C — остановить и отправить."_s));
    interrupted = 0;
    struct sigaction quiet {}, before {};
    quiet.sa_handler = onInterrupt;
    sigemptyset(&quiet.sa_mask);
    ::sigaction(SIGINT, &quiet, &before);
    bool stdinOpen = true;
    while (!interrupted && recorder.seconds() < limit && !enterPressed(&stdinOpen)) {
        if (live) {
            const int bars = int(std::lround(std::min(1.0, recorder.level() * 3) * 20));
            std::fprintf(stderr, "\r● %5.1f s  %s%s ", recorder.seconds(),
                         qPrintable(QString(bars, u'#')), qPrintable(QString(20 - bars, u'.')));
        }
        co_await QCoro::sleepFor(std::chrono::milliseconds(50));
    }
    ::sigaction(SIGINT, &before, nullptr);
    if (live)
        std::fputc('\n', stderr);
    const std::optional<Recorder::Take> take = recorder.stop();
    if (!take) {
        Console::err(recorder.error());
        co_return Refused;
    }
    QFile file(take->path);
    const QByteArray wav = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.close();
    const int status = co_await deliverVoice(in, ports, take->peak, wav);
    // The outbox holds its own copy once the turn is made; otherwise the file stays, named.
    if (status == Done || status == Unreachable)
        QFile::remove(take->path);
    else
        Console::err(L::t(u"ההקלטה נשמרה ב־%1"_s, u"The recording is kept in %1"_s,
                          u"Запись сохранена в %1"_s)
                         .arg(take->path));
    co_return status;
}

QCoro::Task<int> play(Invocation in, const Ports &ports)
{
    bool number = false;
    const qint64 seq = in.args.size() == 2 ? in.args.at(1).toLongLong(&number) : 0;
    const bool rateKnown = in.rate == 0 || in.rate == 1.0 || in.rate == 1.5 || in.rate == 2.0;
    if (!number || seq < 1 || !rateKnown) {
        usage();
        co_return Usage;
    }
    const ChatScope scope = in.project ? ChatScope::project(*in.project) : ChatScope::main();
    const bool toFile = !in.output.isEmpty();
    if (!toFile && QMediaDevices::defaultAudioOutput().isNull()) {
        Console::err(L::t(u"אין במכשיר הזה פלט שמע; אפשר לכתוב לקובץ עם ‎--output FILE‎."_s,
                          u"This device has no sound output; write to a file with --output FILE."_s,
                          u"На этом устройстве нет вывода звука; запишите в файл: --output FILE."_s));
        co_return Refused;
    }
    auto collecting = toFile ? new CollectingVoiceOutput : nullptr;
    std::unique_ptr<VoiceOutput> output(toFile ? collecting : VoiceOutput::platform());
    // Named, not brace-built in place: GCC 12 mishandles such temporaries in coroutines.
    VoicePlayer::Dependencies deps;
    deps.output = output.get();
    deps.sleeper = &ports.sleeper;
    deps.clock = [&clock = ports.clock] { return clock.uptime(); };
    deps.cache = AppData::path(u"voice-cache"_s);
    VoicePlayer player(ports.api, deps);
    while (player.rate() != (in.rate == 0 ? 1.0 : in.rate))
        player.cycleRate();

    const bool live = !toFile && isatty(STDERR_FILENO) == 1;
    QObject::connect(&player, &VoicePlayer::progressChanged, &player, [&player, live] {
        if (live)
            std::fprintf(stderr, "\r▶ %5.1f / %5.1f s ", player.elapsed(), player.total());
    });
    player.play(seq, scope);
    Session *session = Session::shared();
    // Looked at between events, never resumed from inside the player's own signal: the player
    // lives in this frame and must not die under its emit.
    while (!ended(player.phase()) && session->gate() != Session::Gate::Out)
        co_await QCoro::sleepFor(std::chrono::milliseconds(50));
    if (live)
        std::fputc('\n', stderr);
    if (session->gate() == Session::Gate::Out)
        co_return Outcome::notSignedIn();
    if (player.phase() == VoicePlayer::Phase::Failed || (collecting && collecting->files.isEmpty())) {
        Console::err(notPlayed(seq));
        co_return Refused;
    }
    if (toFile) {
        const AudioDecode::Result wav = AudioDecode::toWav(collecting->files, in.output);
        if (!wav.ok) {
            Console::err(wav.error);
            co_return Refused;
        }
        Console::err(L::t(u"נכתבו %1 שניות אל %2."_s, u"Wrote %1 s to %2."_s, u"Записано %1 с в %2."_s)
                         .arg(wav.seconds, 0, 'f', 1)
                         .arg(in.output));
    }
    co_return Done;
}

} // namespace VoiceCommands
