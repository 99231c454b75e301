#include "chatcommands.h"

#include "net/api.h"

#include "console.h"
#include "outcome.h"
#include "sessioncommands.h"

#include "chat/model/tasknumber.h"
#include "chat/transfer/uploadmeter.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/model/chatjson.h"
#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatrowsmodel.h"
#include "chatfollower.h"
#include "chatlog.h"
#include "commandtable.h"
#include "devicecommands.h"
#include "chatprompt.h"
#include "clichats.h"
#include "laneticker.h"
#include "turninput.h"
#include "uploadprogress.h"
#include "render.h"
#include "terminaltext.h"
#include "chat/markup/ansiwriter.h"
#include "chat/store/chatstore.h"
#include "chat/store/chatstores.h"
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
#include <QJsonDocument>

#include <cstdio>
#include <functional>
#include <map>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString rendered(const QString &text);

// The usage of the chat form the words name, from the command table.
void usage(const QStringList &words = {})
{
    const CommandTable::Form *form = CommandTable::resolve(u"chat"_s, words);
    Console::err(L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s) + u"halvenmark-cli "_s
                 + (form ? form->usage : u"chat"_s));
}


std::unique_ptr<ChatStore> storeFor(const Invocation &in, const Ports &ports)
{
    return CliChats::storeFor(in.project ? ChatScope::project(*in.project) : ChatScope::main());
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
    return Markup::AnsiWriter::render(text, RenderCommand::options());
}

QString unavailable(const QString &sub)
{
    return L::t(u"‎chat %1‎ אינה זמינה בגרסה זו."_s,
                u"chat %1 is not available in this build."_s,
                u"chat %1 недоступна в этой сборке."_s)
        .arg(TerminalText::safe(sub));
}

QCoro::Task<int> showLog(Invocation in, const Ports &ports)
{
    auto store = storeFor(in, ports);
    store->hydrate();
    co_await store->load();
    store->flushDisk();
    if (!store->failure().isEmpty()) {
        Console::err(TerminalText::safe(store->failure()));
        if (store->messages().isEmpty())
            co_return store->failureUnreachable() ? Unreachable : Refused;
    }
    const QList<const ChatMessage *> shown = ChatLog::chosen(store->messages(), in.since, in.limit);
    if (in.json) {
        QJsonArray out;
        for (const ChatMessage *m : shown)
            out.append(m->toJson());
        Console::json(out);
    } else {
        // Written in large pieces, not a flush per message.
        ChatLog::print(shown, ChatLog::facts(RenderCommand::options()), stdout);
    }
    co_return Done;
}

QCoro::Task<int> follow(Invocation in, const Ports &ports)
{
    auto store = storeFor(in, ports);
    store->open();
    // History is not news: listen once the first load has landed.
    while (store->loading())
        co_await qCoro(store.get(), &ChatStore::loadingChanged);
    if (!store->failure().isEmpty())
        Console::err(TerminalText::safe(store->failure()));
    ChatFollower follower(store.get(), in.json);
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

// Upload progress named by the outbox's file names.
std::unique_ptr<UploadProgress> showProgress(ChatStore *store)
{
    QPointer<ChatStore> held(store);
    return std::make_unique<UploadProgress>([held](const QString &fileID) {
        if (!held)
            return QString();
        for (const OutboxTurn &turn : held->outbox().state().turns) {
            for (const OutboxFile &file : turn.files) {
                if (file.id == fileID || file.fileID == fileID)
                    return file.name;
            }
        }
        return QString();
    });
}

// The outbox turn an id names: the whole id, or a start of it no other turn shares. Says why on
// stderr when there is none.
std::optional<QString> turnNamed(const ChatStore &store, const QString &given)
{
    QStringList matches;
    for (const OutboxTurn &turn : store.outbox().state().turns) {
        if (turn.id == given)
            return turn.id;
        if (!given.isEmpty() && turn.id.startsWith(given))
            matches << turn.id;
    }
    if (matches.size() == 1)
        return matches.first();
    if (matches.isEmpty())
        Console::err(L::t(u"אין בתיבת היוצאים הודעה %1."_s, u"No turn %1 in the outbox."_s,
                          u"В исходящих нет сообщения %1."_s)
                         .arg(TerminalText::safe(given)));
    else
        Console::err(L::t(u"%1 מתאים לכמה הודעות: %2"_s, u"%1 fits several turns: %2"_s,
                          u"%1 подходит к нескольким сообщениям: %2"_s)
                         .arg(TerminalText::safe(given), matches.join(u", "_s)));
    return std::nullopt;
}

// The exit status of a turn after its delivery.
int outcomeOf(const ChatStore &store, const QString &turnID)
{
    const ChatSender::Standing standing = store.sender().standing(turnID);
    if (standing == ChatSender::Standing::Accepted)
        return Done;
    if (standing == ChatSender::Standing::Kept) {
        Console::err(keptText());
        return Unreachable;
    }
    const std::optional<OutboxTurn> turn = store.sender().turnOf(turnID);
    Console::err(turn->shownError());
    if (!turn->reason.isEmpty())
        Console::err(u"    "_s + TerminalText::safe(turn->reason));
    return Refused;
}

// A run that ended in failure: its lane finished with "error".
bool runFailed(const ChatStore &store, const QString &runID)
{
    auto failed = [&](const Lane &lane) { return lane.id == runID && lane.finished && lane.outcome == u"error"; };
    return std::any_of(store.lanes().begin(), store.lanes().end(), failed)
           || std::any_of(store.activityHistory().begin(), store.activityHistory().end(), failed);
}

std::optional<ChatMessage> replyTo(const ChatStore &store, const QString &runID)
{
    for (const ChatMessage &m : store.messages()) {
        if (m.role == u"assistant" && m.runID == runID)
            return m;
    }
    return std::nullopt;
}

// The text of a turn: its words, else stdin, else the editor. Nothing when it cannot be had.
QCoro::Task<std::optional<QString>> turnText(Invocation in)
{
    const QStringList words = in.args.mid(1);
    if (in.edit) {
        if (!words.isEmpty()) {
            Console::err(L::t(u"‎--edit‎ לא הולך עם טקסט בשורת הפקודה."_s, u"--edit does not go with a text on the command line."_s,
                              u"--edit несовместим с текстом в командной строке."_s));
            co_return std::nullopt;
        }
        co_return co_await TurnInput::fromEditor();
    }
    // Files alone from a terminal: nothing to ask for.
    if (words.isEmpty() && !in.files.isEmpty() && Console::stdinIsTerminal())
        co_return QString();
    if (TurnInput::fromStdin(words)) {
        const std::optional<QString> read = TurnInput::readStdin();
        if (!read)
            Console::err(L::t(u"לא ניתן לקרוא את ההודעה מהקלט."_s, u"Could not read the message from stdin."_s,
                              u"Не удалось прочитать сообщение из stdin."_s));
        co_return read;
    }
    co_return words.join(u' ');
}

QCoro::Task<int> sendTurn(Invocation in, const Ports &ports)
{
    const std::optional<QString> given = co_await turnText(in);
    if (!given)
        co_return Usage;
    const QString text = *given;
    if (text.trimmed().isEmpty() && in.files.isEmpty()) {
        Console::err(L::t(u"אין מה לשלוח: ההודעה ריקה."_s, u"Nothing to send: the message is empty."_s,
                          u"Нечего отправлять: сообщение пустое."_s));
        usage({u"send"_s});
        co_return Usage;
    }
    auto store = storeFor(in, ports);
    store->prepare();
    // Shrunk videos wait here until they are copied into the outbox.
    QTemporaryDir scratch(QDir::temp().filePath(u"shared-XXXXXX"_s));
    for (const QString &path0 : in.files) {
        QString path = path0;
        QString name;
        if (DeviceCommands::isVideo(path0)) {
            const DeviceCommands::Table *devices = DeviceCommands::installed();
            if (!devices) {
                Console::err(unavailable(u"send"_s));
                co_return Usage;
            }
            const std::optional<QString> shrunk =
                co_await devices->shrinkVideo(path0, scratch.path());
            if (!shrunk)
                co_return Refused;
            path = *shrunk;
            name = QFileInfo(path0).completeBaseName() + u".mp4"_s;
        }
        if (!store->attachFile(path, name)) {
            Console::err(store->sendError() + u" ("_s + path0 + u")"_s);
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
    qint64 userSeq = 0;
    QObject::connect(store.get(), &ChatStore::settled, store.get(),
                     [&runID, &userSeq](const QString &, qint64 seq, const QString &run) {
                         runID = run;
                         userSeq = seq;
                     });
    QStringList withdrawn;
    QObject::connect(store.get(), &ChatStore::withdrawn, store.get(),
                     [&withdrawn](const QString &id) { withdrawn.append(id); });
    const auto progress = showProgress(store.get());
    const QString turnID = store->send(text, false, false);
    if (turnID.isEmpty()) {
        Console::err(store->sendError());
        co_return Refused;
    }
    co_await store->drain();
    store->flushDisk();
    QJsonObject result{{u"id"_s, turnID}};
    auto finish = [&](int status, const QString &state) {
        if (in.json) {
            result.insert(u"state"_s, state);
            if (userSeq > 0)
                result.insert(u"user_seq"_s, userSeq);
            if (!runID.isEmpty())
                result.insert(u"run_id"_s, runID);
            Console::json(result);
        }
        return status;
    };
    if (withdrawn.contains(turnID)) {
        Console::err(store->banner());
        co_return finish(Refused, u"withdrawn"_s);
    }
    const int status = outcomeOf(*store, turnID);
    if (status != Done)
        co_return finish(status, status == Unreachable ? u"kept"_s : u"refused"_s);
    if (in.wait <= 0 || runID.isEmpty())
        co_return finish(Done, u"sent"_s);

    // --wait: follow the run until its reply is here, its lane live on stderr.
    store->goLive();
    const bool terminal = isatty(STDERR_FILENO) == 1;
    auto ticker = std::make_unique<LaneTicker>(store.get(), runID, terminal, RenderCommand::terminalWidth());
    QElapsedTimer waited;
    waited.start();
    // Looked at a few times a second; QCoro 0.8's signal-with-timeout wait can touch its timer
    // after it is gone, so plain sleeps it is.
    const qint64 patience = std::isfinite(in.wait) ? qint64(std::min(in.wait, 86400.0) * 1000) : 0;
    while (!replyTo(*store, runID) && !runFailed(*store, runID) && waited.elapsed() < patience)
        co_await QCoro::sleepFor(std::chrono::milliseconds(100));
    // A failed run's message may trail its lane by a moment.
    if (runFailed(*store, runID) && !replyTo(*store, runID))
        co_await QCoro::sleepFor(std::chrono::milliseconds(300));
    ticker.reset();
    const std::optional<ChatMessage> reply = replyTo(*store, runID);
    const bool failed = runFailed(*store, runID);
    if (reply) {
        result.insert(u"reply"_s, reply->text);
        result.insert(u"reply_seq"_s, reply->seq);
    }
    if (failed) {
        Console::err(L::t(u"הסוכן נכשל: %1"_s, u"The agent's run failed: %1"_s, u"Агент не справился: %1"_s)
                         .arg(reply ? TerminalText::safe(reply->text, TerminalText::Lines::Keep) : QString()));
        co_return finish(Refused, u"failed"_s);
    }
    if (reply) {
        if (!in.json)
            Console::out(rendered(reply->text));
        co_return finish(Done, u"answered"_s);
    }
    Console::err(L::t(u"אין עדיין תשובה; היא תופיע ב־chat log."_s, u"No reply yet; it will show in chat log."_s,
                      u"Ответа пока нет; он появится в chat log."_s));
    co_return finish(Done, u"sent"_s);
}

// chat outbox discard ID: the user gives a turn up. Its text is said on stderr one last time;
// a draft in the composer (of this or another client) stays as it was.
int discard(ChatStore &store, const QString &given)
{
    const std::optional<QString> id = turnNamed(store, given);
    if (!id)
        return Refused;
    const auto turns = store.outbox().state().turns;
    const auto turn = std::find_if(turns.begin(), turns.end(), [&](const OutboxTurn &t) { return t.id == *id; });
    const QString draft = store.composerText();
    QStringList kept;
    for (const ComposerAttachment &a : store.composerAttachments())
        kept << a.id;
    store.takeBack(*id);
    for (const ComposerAttachment &a : QList<ComposerAttachment>(store.composerAttachments())) {
        if (!kept.contains(a.id))
            store.removeAttachment(a.id);
    }
    store.setComposerText(draft);
    store.saveComposer();
    store.flushDisk();
    Console::err(L::t(u"ההודעה %1 הוסרה מתיבת היוצאים: %2"_s, u"Turn %1 discarded from the outbox: %2"_s,
                      u"Сообщение %1 удалено из исходящих: %2"_s)
                     .arg(*id, TerminalText::safe(turn->text)));
    return Done;
}

QCoro::Task<int> outbox(Invocation in, const Ports &ports)
{
    auto store = storeFor(in, ports);
    store->prepare();
    if (in.args.size() == 3 && in.args.at(1) == u"discard")
        co_return discard(*store, in.args.at(2));
    if (in.args.size() != 1) {
        usage({u"outbox"_s});
        co_return Usage;
    }
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
                                   {u"refused"_s, store->sender().standing(turn.id) == ChatSender::Standing::Refused}});
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

QCoro::Task<int> drainAll(Invocation in, const Ports &ports)
{
    auto store = storeFor(in, ports);
    store->prepare();
    const auto progress = showProgress(store.get());
    const ChatStore::DrainSummary summary = co_await store->drain();
    store->flushDisk();
    const int waiting = store->sender().refusedCount();
    Console::err(L::t(u"נשלחו %1, ממתינות לרשת %2, ממתינות לניסיון חוזר %3."_s,
                      u"Sent %1, kept for the network %2, waiting for Retry %3."_s,
                      u"Отправлено %1, ждут сети %2, ждут повтора %3."_s)
                     .arg(summary.settled)
                     .arg(summary.offline)
                     .arg(waiting));
    // Turns that need the user (Retry) say so before turns that only need the network.
    co_return waiting > 0 ? Refused : summary.offline > 0 ? Unreachable : Done;
}

QCoro::Task<int> retryTurn(Invocation in, const Ports &ports)
{
    if (in.args.size() != 2) {
        usage({u"retry"_s});
        co_return Usage;
    }
    auto store = storeFor(in, ports);
    store->prepare();
    const std::optional<QString> named = turnNamed(*store, in.args.at(1));
    if (!named)
        co_return Refused;
    const QString id = *named;
    bool withdrawn = false;
    QObject::connect(store.get(), &ChatStore::withdrawn, store.get(),
                     [&withdrawn, id](const QString &turn) { withdrawn = withdrawn || turn == id; });
    const auto progress = showProgress(store.get());
    co_await store->retry(id);
    store->flushDisk();
    if (withdrawn) {
        Console::err(store->banner()); // its text is back in the composer
        co_return Refused;
    }
    co_return outcomeOf(*store, id);
}

QCoro::Task<int> stop(Invocation in, const Ports &ports)
{
    bool number = false;
    const int task = in.args.size() == 2 ? in.args.at(1).toInt(&number) : 0;
    if (!number || task < 1) {
        usage({u"stop"_s});
        co_return Usage;
    }
    auto store = storeFor(in, ports);
    store->prepare();
    co_return co_await stopTask(*store, task);
}

} // namespace

namespace ChatCommands {

QCoro::Task<int> chat(Invocation in, const Ports &ports)
{
    using Sub = std::function<QCoro::Task<int>(Invocation, const Ports &)>;
    // One line per subcommand; its usage and options live in the command table.
    std::map<QString, Sub> subs = {
        {u"log"_s, showLog},
        {u"follow"_s, follow},
        {u"send"_s, sendTurn},
        {u"outbox"_s, outbox},
        {u"drain"_s, drainAll},
        {u"retry"_s, retryTurn},
        {u"stop"_s, stop},
    };
    const DeviceCommands::Table *devices = DeviceCommands::installed();
    if (devices) {
        subs.emplace(u"play"_s, devices->play);
        subs.emplace(u"record"_s, devices->record);
        subs.emplace(u"transcribe"_s, devices->transcribe);
    }
    const QString sub = in.args.isEmpty() ? QString() : in.args.first();
    const auto found = subs.find(sub);
    if (!sub.isEmpty() && found == subs.end()) {
        // In the table (help knows it) but not in this build.
        Console::err(unavailable(sub));
        co_return Usage;
    }
    const bool single = sub == u"log" || sub == u"follow" || sub == u"drain";
    if (single && in.args.size() != 1) {
        usage(in.args);
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;
    // Answers kept by transfers of an earlier run settle their turns before anything is sent.
    CliChats::stores().resumeBackgroundTransfers(Session::shared()->user());
    if (sub.isEmpty()) {
        const ChatScope scope = in.project ? ChatScope::project(*in.project) : ChatScope::main();
        co_return co_await ChatPrompt::run(scope, ports);
    }
    if (sub == u"send" && !in.voice.isEmpty()) {
        if (!devices) {
            Console::err(unavailable(sub));
            co_return Usage;
        }
        co_return co_await devices->sendVoice(in, ports);
    }
    co_return co_await found->second(in, ports);
}

} // namespace ChatCommands
