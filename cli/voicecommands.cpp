#include "voicecommands.h"

#include "collectingvoiceoutput.h"
#include "console.h"
#include "outcome.h"

#include "chat/media/audiodecode.h"
#include "chat/voice/voiceplayer.h"
#include "platform/appdata.h"
#include "platform/monotonic.h"
#include "platform/sleeper.h"
#include "platform/voiceoutput.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QAudioDevice>
#include <QMediaDevices>

#include <cstdio>
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

} // namespace

namespace VoiceCommands {

QCoro::Task<int> play(Invocation in)
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
    deps.sleeper = &Sleeper::real();
    deps.clock = Monotonic::seconds;
    deps.cache = AppData::path(u"voice-cache"_s);
    VoicePlayer player(deps);
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
