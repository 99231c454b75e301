#include "chatcommands.h"

#include "console.h"
#include "outcome.h"
#include "sessioncommands.h"

#include "chat/tasknumber.h"
#include "chat/uploadmeter.h"
#include "chat/chatbackgroundtransfer.h"
#include "chat/chatjson.h"
#include "chat/chatoutbox.h"
#include "chat/chatrowsmodel.h"
#include "chatprompt.h"
#include "videoprep.h"
#include "voicecommands.h"
#include "render.h"
#include "terminaltext.h"
#include "chat/markup/ansiwriter.h"
#include "chat/chatstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QCoroTimer>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QJsonArray>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString who(const ChatMessage &m)
{
    if (m.role == u"assistant")
        return L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s);
    if (m.source == u"telegram")
        return L::t(u"את/ה (טלגרם)"_s, u"You (Telegram)"_s, u"Вы (Telegram)"_s);
    return L::t(u"את/ה"_s, u"You"_s, u"Вы"_s);
}

QString rendered(const QString &text);

QString line(const ChatMessage &m)
{
    const QString when = QDateTime::fromMSecsSinceEpoch(ChatJson::millisOf(m.createdAt))
                             .toString(u"yyyy-MM-dd HH:mm"_s);
    return u"["_s + when + u"] "_s + who(m) + u": "_s
           + (m.role == u"assistant" ? rendered(m.text) : TerminalText::safe(m.text, TerminalText::Lines::Keep));
}

void usage()
{
    const QString forms = u"chat [--project N]\n"
                          "  chat log [--project N] [--json]\n"
                          "  chat follow [--project N]\n"
                          "  chat send TEXT [--file PATH]... [--project N] [--reply-to SEQ] [--wait SECONDS]\n"
                          "  chat outbox [--json] | chat drain | chat retry ID | chat stop N\n"
                          "  chat play SEQ [--output FILE] [--rate 1|1.5|2]\n"
                          "  chat send --voice FILE.wav | chat record [--seconds S] | chat transcribe FILE.wav"_s;
    Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s) + forms);
}

std::unique_ptr<ChatStore> storeFor(const Invocation &in)
{
    const Session *session = Session::shared();
    const ChatScope scope = in.project ? ChatScope::project(*in.project) : ChatScope::main();
    return std::make_unique<ChatStore>(scope, session->user(), session->role());
}

QCoro::Task<int> stopTask(ChatStore &store, int task)
{
    const bool stopped = co_await store.cancelTask(task);
    if (!stopped) {
        Console::err(L::t(u"לא ניתן לעצור את משימה %1."_s, u"Could not stop task %1."_s,
                          u"Не удалось остановить задачу %1."_s)
                         .arg(task));
        co_return Refused;
    }
    Console::err(L::t(u"משימה %1 נעצרה."_s, u"Task %1 stopped."_s, u"Задача %1 остановлена."_s).arg(task));
    co_return Done;
}

// The agent's markup, styled for this terminal (plain into a pipe or with NO_COLOR).
QString rendered(const QString &text)
{
    return Markup::AnsiWriter::render(text, RenderCommand::terminalWidth(), RenderCommand::colourWanted());
}

QCoro::Task<int> log(Invocation in)
{
    auto store = storeFor(in);
    store->hydrate();
    co_await store->load();
    store->flushDisk();
    if (!store->failure().isEmpty()) {
        Console::err(TerminalText::safe(store->failure()));
        if (store->messages().isEmpty())
            co_return store->failureUnreachable() ? Unreachable : Refused;
    }
    if (in.json) {
        QJsonArray out;
        for (const ChatMessage &m : store->messages())
            out.append(m.toJson());
        Console::json(out);
    } else {
        for (const ChatMessage &m : store->messages())
            Console::out(line(m));
    }
    co_return Done;
}

// Prints what changes in lanes and each new reply, one line per event.
class Follower
{
public:
    explicit Follower(ChatStore *store)
    {
        QObject::connect(store, &ChatStore::laneChanged, store, [this](const Lane &lane) { onLane(lane); });
        QObject::connect(store, &ChatStore::messageAdded, store, [](const ChatMessage &m) {
            if (m.role == u"assistant")
                Console::out(u"💬 "_s + who(m) + u": "_s + rendered(m.text));
        });
    }

private:
    struct Seen {
        QString label, text;
        QHash<QString, QString> tools; // step id → status
        bool finished = false;
    };

    void onLane(const Lane &lane)
    {
        Seen &seen = m_seen[lane.id];
        if (lane.heading() != seen.label || lane.text != seen.text) {
            seen.label = lane.heading();
            seen.text = lane.text;
            const QString last = lane.text.section(u'\n', -1, -1, QString::SectionSkipEmpty);
            Console::out(u"▸ "_s + TerminalText::safe(lane.heading())
                         + (last.isEmpty() ? QString() : u": "_s + TerminalText::safe(last.left(160))));
        }
        for (const Activity &step : lane.tools) {
            if (seen.tools.value(step.id) == step.status)
                continue;
            seen.tools.insert(step.id, step.status);
            const QString detail = step.usefulDetail();
            Console::out(u"  ↳ "_s + TerminalText::safe(step.title)
                         + (detail.isEmpty() ? QString() : u" — "_s + TerminalText::safe(detail))
                         + u" ["_s + TerminalText::safe(step.status) + u"]"_s);
        }
        if (lane.finished && !seen.finished) {
            seen.finished = true;
            Console::out(u"✓ "_s + TerminalText::safe(lane.heading()) + u" ("_s
                         + TerminalText::safe(lane.outcome.value_or(u"completed"_s)) + u")"_s);
        }
    }

    QHash<QString, Seen> m_seen;
};

QCoro::Task<int> follow(Invocation in)
{
    auto store = storeFor(in);
    store->open();
    // History is not news: listen once the first load has landed.
    while (store->loading())
        co_await qCoro(store.get(), &ChatStore::loadingChanged);
    if (!store->failure().isEmpty())
        Console::err(TerminalText::safe(store->failure()));
    Follower follower(store.get());
    Session *session = Session::shared();
    while (session->gate() != Session::Gate::Out)
        co_await qCoro(session, &Session::gateChanged);
    co_return Outcome::notSignedIn();
}

QString keptText()
{
    return L::t(u"אין חיבור לשרת: ההודעה נשמרה בתיבת היוצאים ותישלח כשהחיבור יחזור."_s,
                u"Cannot reach the server: the message is kept in the outbox and goes out when it is back."_s,
                u"Нет связи с сервером: сообщение сохранено в исходящих и уйдёт, когда связь вернётся."_s);
}

// Upload progress as a bar on a terminal; nothing into a pipe.
void showProgress()
{
    auto *transfers = ChatBackgroundTransfer::shared();
    if (!transfers || isatty(STDERR_FILENO) != 1)
        return;
    QObject::connect(transfers, &ChatBackgroundTransfer::progress, transfers,
                     [](const QString &key, qint64 sent, qint64 total) {
                         if (total < UploadMeter::smallest || !key.contains(u":upload:"))
                             return;
                         const int percent = int(100 * sent / std::max<qint64>(total, 1));
                         const int filled = percent * 30 / 100;
                         const QString bar = QString(filled, u'#') + QString(30 - filled, u' ');
                         std::fprintf(stderr, "\r[%s] %3d%%%s", qPrintable(bar), percent,
                                      sent >= total ? "\n" : "");
                         std::fflush(stderr);
                     });
}

// The exit status of a turn after its delivery: gone from the outbox means accepted.
int outcomeOf(const ChatStore &store, const QString &turnID)
{
    for (const OutboxTurn &turn : store.outbox().state().turns) {
        if (turn.id != turnID)
            continue;
        if (turn.failure != TurnFailure::Refused) {
            Console::err(keptText());
            return Unreachable;
        }
        Console::err(turn.shownError());
        if (!turn.reason.isEmpty())
            Console::err(u"    "_s + TerminalText::safe(turn.reason));
        return Refused;
    }
    return Done;
}

QCoro::Task<int> sendTurn(Invocation in)
{
    const QString text = in.args.mid(1).join(u' ');
    if (text.trimmed().isEmpty() && in.files.isEmpty()) {
        usage();
        co_return Usage;
    }
    auto store = storeFor(in);
    store->prepare();
    // Shrunk videos wait here until they are copied into the outbox.
    QTemporaryDir scratch(QDir::temp().filePath(u"shared-XXXXXX"_s));
    for (const QString &given : in.files) {
        QString path = given;
        QString name;
        if (VideoPrep::isVideo(given)) {
            const std::optional<QString> shrunk = co_await VideoPrep::shrink(given, scratch.path());
            if (!shrunk)
                co_return Refused;
            path = *shrunk;
            name = QFileInfo(given).completeBaseName() + u".mp4"_s;
        }
        if (!store->attachFile(path, name)) {
            Console::err(store->sendError() + u" ("_s + given + u")"_s);
            co_return Refused;
        }
    }
    if (in.replyTo) {
        auto target = std::find_if(store->messages().begin(), store->messages().end(),
                                   [&](const ChatMessage &m) { return m.seq == *in.replyTo; });
        if (target == store->messages().end()) {
            co_await store->load();
            target = std::find_if(store->messages().begin(), store->messages().end(),
                                  [&](const ChatMessage &m) { return m.seq == *in.replyTo; });
        }
        if (target == store->messages().end()) {
            Console::err(L::t(u"אין הודעה מספר %1 בשיחה."_s, u"There is no message %1 in the conversation."_s,
                              u"В разговоре нет сообщения %1."_s)
                             .arg(*in.replyTo));
            co_return Refused;
        }
        store->setReplyTo(*target);
    }
    if (const auto stop = TaskNumber::stopCommand(text)) {
        co_return co_await stopTask(*store, *stop);
    }
    QString runID;
    QObject::connect(store.get(), &ChatStore::settled, store.get(),
                     [&runID](const QString &, qint64, const QString &run) { runID = run; });
    QStringList withdrawn;
    QObject::connect(store.get(), &ChatStore::withdrawn, store.get(),
                     [&withdrawn](const QString &id) { withdrawn.append(id); });
    showProgress();
    const QString turnID = store->send(text, false, false);
    if (turnID.isEmpty()) {
        Console::err(store->sendError());
        co_return Refused;
    }
    co_await store->drain();
    store->flushDisk();
    if (withdrawn.contains(turnID)) {
        Console::err(store->banner());
        co_return Refused;
    }
    const int status = outcomeOf(*store, turnID);
    if (status != Done || in.wait <= 0 || runID.isEmpty())
        co_return status;

    // --wait: follow the run until its reply is here.
    store->goLive();
    auto replied = [&] {
        return std::any_of(store->messages().begin(), store->messages().end(), [&](const ChatMessage &m) {
            return m.role == u"assistant" && m.runID == runID;
        });
    };
    QElapsedTimer waited;
    waited.start();
    // Looked at a few times a second; QCoro 0.8's signal-with-timeout wait can touch its timer
    // after it is gone, so plain sleeps it is.
    const qint64 patience = std::isfinite(in.wait) ? qint64(std::min(in.wait, 86400.0) * 1000) : 0;
    while (!replied() && waited.elapsed() < patience)
        co_await QCoro::sleepFor(std::chrono::milliseconds(100));
    for (const ChatMessage &m : store->messages()) {
        if (m.role == u"assistant" && m.runID == runID) {
            Console::out(rendered(m.text));
            co_return Done;
        }
    }
    Console::err(L::t(u"אין עדיין תשובה; היא תופיע ב־chat log."_s, u"No reply yet; it will show in chat log."_s,
                      u"Ответа пока нет; он появится в chat log."_s));
    co_return Done;
}

QCoro::Task<int> outbox(Invocation in)
{
    auto store = storeFor(in);
    store->prepare();
    if (store->outbox().lost() > 0)
        Console::err(store->banner());
    const QList<OutboxTurn> turns = store->outbox().state().turns;
    if (in.json) {
        QJsonArray out;
        for (const OutboxTurn &turn : turns) {
            QJsonArray files;
            for (const OutboxFile &file : turn.files)
                files.append(file.name);
            if (turn.voiceNote)
                files.append(turn.voiceNote->name);
            out.append(QJsonObject{{u"id"_s, turn.id}, {u"text"_s, turn.text}, {u"files"_s, files},
                                   {u"error"_s, turn.shownError()}, {u"reason"_s, turn.reason},
                                   {u"refused"_s, turn.failure == TurnFailure::Refused}});
        }
        Console::json(out);
    } else {
        for (const OutboxTurn &turn : turns) {
            QString line = turn.id + u"  "_s + TerminalText::safe(turn.text);
            for (const OutboxFile &file : turn.files)
                line += u"  📎 "_s + TerminalText::safe(file.name);
            if (turn.voiceNote)
                line += u"  🎤 "_s + TerminalText::safe(turn.voiceNote->name);
            Console::out(line);
            if (!turn.error.isEmpty())
                Console::out(u"    ⚠ "_s + turn.shownError());
            if (!turn.reason.isEmpty())
                Console::out(u"      "_s + TerminalText::safe(turn.reason));
        }
    }
    co_return Done;
}

QCoro::Task<int> drainAll(Invocation in)
{
    auto store = storeFor(in);
    store->prepare();
    showProgress();
    const ChatStore::DrainSummary summary = co_await store->drain();
    store->flushDisk();
    Console::err(L::t(u"נשלחו %1, ממתינות לרשת %2, ממתינות לניסיון חוזר %3."_s,
                      u"Sent %1, kept for the network %2, waiting for Retry %3."_s,
                      u"Отправлено %1, ждут сети %2, ждут повтора %3."_s)
                     .arg(summary.settled)
                     .arg(summary.offline)
                     .arg(summary.refused));
    co_return summary.offline > 0 ? Unreachable : Done;
}

QCoro::Task<int> retryTurn(Invocation in)
{
    if (in.args.size() != 2) {
        usage();
        co_return Usage;
    }
    auto store = storeFor(in);
    store->prepare();
    const QString id = in.args.at(1);
    const bool known = std::any_of(store->outbox().state().turns.begin(), store->outbox().state().turns.end(),
                                   [&](const OutboxTurn &t) { return t.id == id; });
    if (!known) {
        Console::err(L::t(u"אין בתיבת היוצאים הודעה %1."_s, u"No turn %1 in the outbox."_s,
                          u"В исходящих нет сообщения %1."_s)
                         .arg(id));
        co_return Refused;
    }
    bool withdrawn = false;
    QObject::connect(store.get(), &ChatStore::withdrawn, store.get(),
                     [&withdrawn, id](const QString &turn) { withdrawn = withdrawn || turn == id; });
    showProgress();
    co_await store->retry(id);
    store->flushDisk();
    if (withdrawn) {
        Console::err(store->banner()); // its text is back in the composer
        co_return Refused;
    }
    co_return outcomeOf(*store, id);
}

QCoro::Task<int> stop(Invocation in)
{
    bool number = false;
    const int task = in.args.size() == 2 ? in.args.at(1).toInt(&number) : 0;
    if (!number || task < 1) {
        usage();
        co_return Usage;
    }
    auto store = storeFor(in);
    store->prepare();
    co_return co_await stopTask(*store, task);
}

} // namespace

namespace ChatCommands {

QCoro::Task<int> chat(Invocation in)
{
    const QString sub = in.args.isEmpty() ? QString() : in.args.first();
    static const QStringList known = {u"log"_s, u"follow"_s, u"send"_s, u"outbox"_s, u"drain"_s,
                                      u"retry"_s, u"stop"_s, u"play"_s, u"record"_s, u"transcribe"_s};
    const bool single = sub == u"log" || sub == u"follow" || sub == u"outbox" || sub == u"drain";
    if (!sub.isEmpty() && (!known.contains(sub) || (single && in.args.size() != 1))) {
        usage();
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;
    // Answers kept by transfers of an earlier run settle their turns before anything is sent.
    ChatStore::resumeAllBackgroundTransfers(Session::shared()->user());
    if (sub.isEmpty())
        co_return co_await ChatPrompt::run(in.project ? ChatScope::project(*in.project) : ChatScope::main());
    if (sub == u"log")
        co_return co_await log(in);
    if (sub == u"follow")
        co_return co_await follow(in);
    if (sub == u"send" && !in.voice.isEmpty())
        co_return co_await VoiceCommands::sendVoice(in);
    if (sub == u"record")
        co_return co_await VoiceCommands::record(in);
    if (sub == u"transcribe")
        co_return co_await VoiceCommands::transcribe(in);
    if (sub == u"send")
        co_return co_await sendTurn(in);
    if (sub == u"outbox")
        co_return co_await outbox(in);
    if (sub == u"drain")
        co_return co_await drainAll(in);
    if (sub == u"retry")
        co_return co_await retryTurn(in);
    if (sub == u"play")
        co_return co_await VoiceCommands::play(in);
    co_return co_await stop(in);
}

} // namespace ChatCommands
