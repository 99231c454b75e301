#include "pipedchat.h"

#include "chatlines.h"
#include "console.h"
#include "outcome.h"
#include "slashcommand.h"
#include "terminaltext.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QFileInfo>
#include <QSocketNotifier>

#include <unistd.h>

using namespace Qt::StringLiterals;

PipedChat::PipedChat(ChatStore &store, bool live)
    : m_store(store)
    , m_live(live)
{}

QCoro::Task<int> PipedChat::run()
{
    QPointer<PipedChat> self(this);
    Session *session = Session::shared();
    m_store.prepare();
    QObject::connect(&m_store, &ChatStore::withdrawn, this, [this](const QString &turnID) {
        Console::err(m_store.banner());
        m_sent.removeAll(turnID);
        ++m_refused;
    });
    if (m_live) {
        // History is not news: what arrives once the first load has landed is shown.
        QObject::connect(&m_store, &ChatStore::loadingChanged, this, [this] {
            if (!m_store.loading())
                m_caughtUp = true;
        });
        QObject::connect(&m_store, &ChatStore::messageAdded, this, [this](const ChatMessage &m) {
            if (m_caughtUp)
                Console::out(ChatLines::message(m, 80, false));
        });
        Console::err(L::t(
            u"שיחה עם הסוכן: כל שורה נשלחת; ‎/help‎ לפקודות, ‎/quit‎ או Ctrl-D ליציאה."_s,
            u"Chat with the agent: each line is sent; /help lists commands, /quit or Ctrl-D quits."_s,
            u"Разговор с агентом: каждая строка отправляется; /help — команды, /quit или Ctrl-D — выход."_s));
        m_store.goLive();
        m_caughtUp = !m_store.loading();
    }

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, this, [this, &input] {
        readSome();
        if (m_closed)
            input.setEnabled(false);
    });

    while (self && session->gate() != Session::Gate::Out) {
        if (m_lines.isEmpty()) {
            if (m_closed)
                break;
            co_await QCoro::sleepFor(std::chrono::milliseconds(20));
            continue;
        }
        const QString line = m_lines.takeFirst();
        co_await handle(line);
    }
    if (!self)
        co_return Done;
    input.setEnabled(false);
    if (session->gate() == Session::Gate::Out) {
        m_store.flushDisk();
        co_return Outcome::notSignedIn();
    }
    // Whatever is still waiting gets one more try before the verdict.
    if (!m_sent.isEmpty())
        co_await m_store.drain();
    if (!self)
        co_return Done;
    m_store.flushDisk();
    co_return verdict();
}

void PipedChat::readSome()
{
    char buffer[65536];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (n <= 0) {
        m_closed = true;
        // A last line without its line break is a line all the same.
        if (!m_pending.isEmpty())
            m_lines.append(QString::fromUtf8(m_pending));
        m_pending.clear();
        return;
    }
    m_pending.append(buffer, n);
    qsizetype end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        QByteArray line = m_pending.left(end);
        if (line.endsWith('\r'))
            line.chop(1);
        m_lines.append(QString::fromUtf8(line));
        m_pending.remove(0, end + 1);
    }
}

QCoro::Task<> PipedChat::handle(QString line)
{
    QPointer<PipedChat> self(this);
    const SlashCommand c = SlashCommand::parse(line);
    using K = SlashCommand::Kind;
    switch (c.kind) {
    case K::Message: {
        if (c.argument.trimmed().isEmpty() && m_store.composerAttachments().isEmpty())
            co_return;
        const QString id = m_store.send(c.argument, false, false);
        if (id.isEmpty()) {
            Console::err(m_store.sendError());
            ++m_refused;
            co_return;
        }
        m_sent.append(id);
        co_await m_store.drain();
        co_return;
    }
    case K::Help:
        Console::out(ChatLines::help());
        co_return;
    case K::Quit:
        m_closed = true;
        m_lines.clear();
        co_return;
    case K::Stop: {
        const bool stopped = co_await m_store.cancelTask(int(c.number));
        if (!self)
            co_return;
        if (stopped) {
            Console::err(
                L::t(u"משימה %1 נעצרה."_s, u"Task %1 stopped."_s, u"Задача %1 остановлена."_s)
                    .arg(c.number));
        } else {
            Console::err(L::t(u"לא ניתן לעצור את משימה %1."_s, u"Could not stop task %1."_s,
                              u"Не удалось остановить задачу %1."_s)
                             .arg(c.number));
            ++m_refused;
        }
        co_return;
    }
    case K::Retry:
    case K::Discard: {
        QStringList ids;
        for (const PendingTurn &p : m_store.pendingTurns())
            ids.append(p.id);
        const auto id = SlashCommand::matchID(ids, c.argument);
        if (!id) {
            Console::err(L::t(u"אין בתיבת היוצאים הודעה אחת שמזהה שלה מתחיל ב־%1."_s,
                              u"No single turn in the outbox has an id starting with %1."_s,
                              u"В исходящих нет ровно одного сообщения с id, начинающимся на %1."_s)
                             .arg(TerminalText::safe(c.argument)));
            ++m_refused;
            co_return;
        }
        if (c.kind == K::Discard) {
            // Its text goes to the draft, where the next `chat` finds it.
            m_store.takeBack(*id);
            m_store.saveComposer();
            m_sent.removeAll(*id);
            co_return;
        }
        if (!m_sent.contains(*id))
            m_sent.append(*id);
        co_await m_store.retry(*id);
        co_return;
    }
    case K::Reply: {
        const auto &messages = m_store.messages();
        const auto target = std::find_if(messages.begin(), messages.end(),
                                         [&](const ChatMessage &m) { return m.seq == c.number; });
        if (target == messages.end()) {
            Console::err(L::t(u"אין הודעה מספר %1 בשיחה."_s,
                              u"There is no message %1 in the conversation."_s,
                              u"В разговоре нет сообщения %1."_s)
                             .arg(c.number));
            ++m_refused;
            co_return;
        }
        m_store.setReplyTo(*target);
        co_return;
    }
    case K::File:
        if (!m_store.attachFile(QFileInfo(c.argument).absoluteFilePath())) {
            Console::err(m_store.sendError() + u" ("_s + c.argument + u")"_s);
            ++m_refused;
        }
        co_return;
    case K::Unknown:
    case K::Malformed:
        Console::err(
            L::t(u"‎/%1‎ לא הובנה; ‎/help‎ מציגה את הפקודות."_s,
                 u"/%1 was not understood; /help lists the commands."_s,
                 u"/%1 не понята; /help — список команд."_s)
                .arg(c.argument));
        ++m_refused;
        co_return;
    }
}

int PipedChat::verdict()
{
    int kept = 0;
    int refused = m_refused;
    for (const OutboxTurn &turn : m_store.outbox().state().turns) {
        if (!m_sent.contains(turn.id))
            continue;
        const QString text = TerminalText::safe(turn.text.section(u'\n', 0, 0).left(60));
        if (m_store.sender().standing(turn.id) == ChatSender::Standing::Refused) {
            ++refused;
            Console::err(u"⚠ "_s + L::t(u"השרת דחה את «%1»: %2 (chat retry %3)"_s,
                                        u"The server refused «%1»: %2 (chat retry %3)"_s,
                                        u"Сервер отклонил «%1»: %2 (chat retry %3)"_s)
                                       .arg(text,
                                            turn.reason.isEmpty() ? turn.error
                                                                  : TerminalText::safe(turn.reason),
                                            turn.id));
        } else {
            ++kept;
            Console::err(u"⏸ "_s + text + u" ("_s + turn.id + u")"_s);
        }
    }
    if (kept > 0) {
        Console::err(
            L::t(
                u"אין חיבור לשרת: %1 הודעות נשמרו בתיבת היוצאים ויישלחו כשהחיבור יחזור (chat drain)."_s,
                u"Cannot reach the server: %1 turns are kept in the outbox and go out when it is back (chat drain)."_s,
                u"Нет связи с сервером: %1 сообщ. сохранены в исходящих и уйдут, когда связь вернётся (chat drain)."_s)
                .arg(kept));
    }
    if (refused > 0)
        return Refused;
    return kept > 0 ? Unreachable : Done;
}
