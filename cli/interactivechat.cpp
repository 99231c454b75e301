#include "interactivechat.h"

#include "console.h"
#include "outcome.h"
#include "render.h"
#include "terminaltext.h"

#include "chat/store/chatstore.h"
#include "platform/clock.h"
#include "chat/markup/ansiwriter.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype shownAtStart = 20;

QString warning(const QString &text)
{
    return u"⚠ "_s + text;
}

} // namespace

InteractiveChat::InteractiveChat(ChatStore &store, const Clock &clock)
    : m_store(store)
    , m_clock(clock)
{
    m_escape.setSingleShot(true);
    m_escape.setInterval(60);
    connect(&m_escape, &QTimer::timeout, this, [this] { m_keys.flushEscape(); });
}

bool InteractiveChat::start()
{
    m_store.prepare();
    // What was sent before is the history Up brings back.
    for (const ChatMessage &m : m_store.messages()) {
        if (m.role == u"user")
            m_editor.remember(m.text);
    }
    m_editor.setText(m_store.composerText());
    return m_screen.enter();
}

QCoro::Task<int> InteractiveChat::run()
{
    QPointer<InteractiveChat> self(this);
    Session *session = Session::shared();
    connect(&m_screen, &ChatScreen::bytes, this, &InteractiveChat::onBytes);
    connect(&m_screen, &ChatScreen::terminated, this, &InteractiveChat::finish);
    connect(&m_screen, &ChatScreen::resized, this, &InteractiveChat::reprint);

    say(ChatLines::banner());
    const auto &messages = m_store.messages();
    for (qsizetype i = std::max<qsizetype>(0, messages.size() - shownAtStart); i < messages.size();
         ++i)
        sayMessage(messages.at(i));
    for (const ChatMessage &m : messages)
        m_printedSeqs.insert(m.seq);
    for (const Lane &lane : m_store.lanes()) {
        if (!lane.finished) {
            m_live.insert(lane.id, lane);
            m_liveOrder.append(lane.id);
        }
    }
    for (const PendingTurn &p : m_store.pendingTurns())
        m_turnTexts.insert(p.id, p.text);

    connect(&m_store, &ChatStore::messageAdded, this, [this](const ChatMessage &m) {
        if (!m_caughtUp)
            m_backlog.append(m);
        else
            sayMessage(m);
    });
    connect(&m_store, &ChatStore::loadingChanged, this, [this] {
        if (!m_store.loading() && !m_caughtUp)
            showBacklog();
        refreshBottom();
    });
    connect(&m_store, &ChatStore::laneChanged, this, [this](const Lane &lane) {
        if (!lane.finished) {
            if (!m_live.contains(lane.id))
                m_liveOrder.append(lane.id);
            m_live.insert(lane.id, lane);
        } else if (m_live.remove(lane.id) > 0) {
            m_liveOrder.removeAll(lane.id);
            say(ChatLines::laneDone(lane));
        }
        refreshBottom();
    });
    connect(&m_store, &ChatStore::pendingChanged, this, [this] {
        for (const PendingTurn &p : m_store.pendingTurns())
            m_turnTexts.insert(p.id, p.text);
        refreshBottom();
    });
    connect(&m_store, &ChatStore::settled, this,
            [this](const QString &turnID, qint64 seq, const QString &) {
                // The turn is the server's now: it joins the transcript at once, and the copy the
                // feed brings later is not printed again.
                ChatMessage m =
                    ChatMessage::make(u"user"_s, m_turnTexts.take(turnID),
                                      m_clock.epochSeconds());
                m.seq = seq;
                m.clientRequestID = turnID;
                sayMessage(m);
            });
    connect(
        &m_store, &ChatStore::delivered, this,
        [this](const QString &turnID, Delivery delivery, const QString &error) {
            if (delivery == Delivery::Offline) {
                // Said once per turn; the panel keeps showing it until it goes out.
                if (!m_offline.contains(turnID))
                    say(u"⏸ "_s +
                        L::t(
                            u"אין חיבור לשרת: ההודעה נשמרה בתיבת היוצאים ותישלח כשהחיבור יחזור."_s,
                            u"Cannot reach the server: the message is kept in the outbox and goes out when it is back."_s,
                            u"Нет связи с сервером: сообщение сохранено в исходящих и уйдёт, когда связь вернётся."_s));
                m_offline.insert(turnID);
            } else {
                m_offline.remove(turnID);
            }
            if (delivery == Delivery::Stopped) {
                for (const PendingTurn &p : m_store.pendingTurns()) {
                    if (p.id == turnID && p.refused)
                        say(ChatLines::refusal(p.text, error, p.reason, p.id));
                }
            }
            refreshBottom();
        });
    connect(&m_store, &ChatStore::withdrawn, this, [this](const QString &turnID) {
        if (turnID == m_discarding)
            return; // the user asked for it: no notice, and the text comes back once
        say(warning(m_store.banner()));
        takeBackInto(turnID);
    });
    for (auto signal : {&ChatStore::connectedChanged, &ChatStore::networkAvailableChanged,
                        &ChatStore::composerChanged, &ChatStore::failureChanged})
        connect(&m_store, signal, this, &InteractiveChat::refreshBottom);

    refreshBottom();
    m_store.goLive();
    if (!m_store.loading())
        showBacklog();

    while (self && !m_done && session->gate() != Session::Gate::Out)
        co_await QCoro::sleepFor(std::chrono::milliseconds(100));
    if (!self)
        co_return Done;

    // A turn on its way gets a moment to be confirmed, so that it is not reported as waiting.
    for (int i = 0; i < 30 && session->gate() != Session::Gate::Out; ++i) {
        const bool sending = std::any_of(
            m_store.pendingTurns().begin(), m_store.pendingTurns().end(),
            [this](const PendingTurn &p) {
                return !p.refused && p.error.isEmpty() && p.online && !m_offline.contains(p.id);
            });
        if (!sending)
            break;
        co_await QCoro::sleepFor(std::chrono::milliseconds(100));
        if (!self)
            co_return Done;
    }
    // What is typed and not sent stays as the draft for the next start.
    m_store.setComposerText(m_editor.text());
    m_store.saveComposer();
    m_store.flushDisk();
    m_screen.leave();

    const int waiting = m_store.queuedCount();
    if (waiting > 0) {
        Console::err(
            L::t(
                u"הודעות שממתינות בתיבת היוצאים: %1. הן יישלחו בהפעלה הבאה או ב־chat drain (ראו chat outbox)."_s,
                u"Turns waiting in the outbox: %1. They go out at the next start or with chat drain (see chat outbox)."_s,
                u"Сообщений в исходящих: %1. Они уйдут при следующем запуске или через chat drain (см. chat outbox)."_s)
                .arg(waiting));
    }
    if (session->gate() == Session::Gate::Out)
        co_return Outcome::notSignedIn();
    co_return Done;
}

void InteractiveChat::onBytes(const QByteArray &bytes)
{
    const QList<Key> keys = m_keys.feed(bytes);
    if (m_keys.waitingOnEscape())
        m_escape.start();
    for (const Key &key : keys) {
        switch (m_editor.apply(key)) {
        case LineEditor::Outcome::Editing:
            break;
        case LineEditor::Outcome::Submit:
            submit();
            break;
        case LineEditor::Outcome::Interrupt:
        case LineEditor::Outcome::EndOfInput:
            finish();
            return;
        case LineEditor::Outcome::Redraw:
            m_screen.redraw();
            break;
        case LineEditor::Outcome::Suspend:
            suspend();
            break;
        }
        if (m_done)
            return;
    }
    // The store holds the draft too (saved shortly after each change): a killed chat keeps it.
    if (m_store.composerText() != m_editor.text())
        m_store.setComposerText(m_editor.text());
    refreshInput();
}

void InteractiveChat::submit()
{
    const SlashCommand parsed = SlashCommand::parse(m_editor.text());
    if (parsed.kind == SlashCommand::Kind::Message) {
        sendMessage(parsed.argument);
        return;
    }
    m_editor.take();
    command(parsed);
}

void InteractiveChat::sendMessage(const QString &text)
{
    if (text.trimmed().isEmpty() && m_store.composerAttachments().isEmpty()) {
        m_editor.setText(QString());
        return;
    }
    const QString id = m_store.send(text);
    if (id.isEmpty()) {
        // Not taken: the text stays in the input line.
        say(warning(m_store.sendError()));
        return;
    }
    m_turnTexts.insert(id, text);
    m_editor.take();
    refreshBottom();
}

void InteractiveChat::command(const SlashCommand &c)
{
    using K = SlashCommand::Kind;
    switch (c.kind) {
    case K::Message:
        break;
    case K::Help:
        say(ChatLines::help());
        break;
    case K::Quit:
        finish();
        break;
    case K::Retry:
        if (const auto id = turnNamed(c.argument))
            retryTurn(this, *id);
        break;
    case K::Discard:
        if (const auto id = turnNamed(c.argument)) {
            m_discarding = *id;
            m_store.setComposerText(m_editor.text());
            m_store.takeBack(*id);
            m_discarding.clear();
            takeBackInto(*id);
            say(L::t(u"ההודעה הוצאה מתיבת היוצאים; הטקסט שלה בשורת הקלט."_s,
                     u"The turn is out of the outbox; its text is back in the input line."_s,
                     u"Сообщение убрано из исходящих; его текст снова в строке ввода."_s));
        }
        break;
    case K::Stop:
        stopTask(this, int(c.number));
        break;
    case K::Reply: {
        const auto &messages = m_store.messages();
        const auto target = std::find_if(messages.begin(), messages.end(),
                                         [&](const ChatMessage &m) { return m.seq == c.number; });
        if (target == messages.end()) {
            say(warning(L::t(u"אין הודעה מספר %1 בשיחה."_s,
                             u"There is no message %1 in the conversation."_s,
                             u"В разговоре нет сообщения %1."_s)
                            .arg(c.number)));
            break;
        }
        m_store.setReplyTo(*target);
        say(u"↪ "_s + L::t(u"ההודעה הבאה עונה ל־#%1."_s, u"The next message answers #%1."_s,
                           u"Следующее сообщение — ответ на #%1."_s)
                          .arg(c.number));
        break;
    }
    case K::File: {
        const QString path =
            QFileInfo(c.argument.startsWith(u"~/") ? QDir::homePath() + c.argument.mid(1)
                                                   : c.argument)
                .absoluteFilePath();
        if (!QFileInfo(path).isFile()) {
            say(warning(
                L::t(u"אין קובץ %1."_s, u"No file %1."_s, u"Нет файла %1."_s).arg(c.argument)));
            break;
        }
        if (!m_store.attachFile(path)) {
            say(warning(m_store.sendError() + u" ("_s + c.argument + u")"_s));
            break;
        }
        say(u"📎 "_s + L::t(u"%1 יצורף להודעה הבאה."_s, u"%1 goes with the next message."_s,
                           u"%1 уйдёт со следующим сообщением."_s)
                          .arg(QFileInfo(path).fileName()));
        break;
    }
    case K::Unknown:
        say(warning(
            L::t(
                u"אין פקודה ‎/%1‎. ‎/help‎ מציגה את הפקודות; ‎//‎ שולח טקסט שמתחיל ב־/."_s,
                u"There is no command /%1. /help lists the commands; // sends a text that starts with /."_s,
                u"Нет команды /%1. /help — список команд; // отправляет текст, начинающийся с /."_s)
                .arg(c.argument)));
        break;
    case K::Malformed:
        say(warning(
            L::t(u"‎/%1‎ לא הובנה. ‎/help‎ מציגה איך לכתוב אותה."_s,
                 u"/%1 was not understood. /help shows how to write it."_s,
                 u"/%1 не понята. /help покажет, как её писать."_s)
                .arg(c.argument)));
        break;
    }
}

std::optional<QString> InteractiveChat::turnNamed(const QString &given)
{
    QStringList ids;
    for (const PendingTurn &p : m_store.pendingTurns())
        ids.append(p.id);
    const auto id = SlashCommand::matchID(ids, given);
    if (!id) {
        say(warning(L::t(u"אין בתיבת היוצאים הודעה אחת שמזהה שלה מתחיל ב־%1."_s,
                         u"No single turn in the outbox has an id starting with %1."_s,
                         u"В исходящих нет ровно одного сообщения с id, начинающимся на %1."_s)
                        .arg(TerminalText::safe(given))));
    }
    return id;
}

void InteractiveChat::takeBackInto(const QString &turnID)
{
    m_turnTexts.remove(turnID);
    // The store put the text back into the draft, after what is being typed.
    m_editor.setText(m_store.composerText());
    refreshInput();
}

QCoro::Task<> InteractiveChat::stopTask(QPointer<InteractiveChat> self, int number)
{
    ChatStore &store = self->m_store;
    QPointer<ChatStore> guard(&store);
    const bool stopped = co_await store.cancelTask(number);
    if (!self || !guard)
        co_return;
    self->say(stopped
                  ? L::t(u"משימה %1 נעצרה."_s, u"Task %1 stopped."_s, u"Задача %1 остановлена."_s)
                        .arg(number)
                  : warning(L::t(u"לא ניתן לעצור את משימה %1."_s, u"Could not stop task %1."_s,
                                 u"Не удалось остановить задачу %1."_s)
                                .arg(number)));
}

QCoro::Task<> InteractiveChat::retryTurn(QPointer<InteractiveChat> self, QString turnID)
{
    ChatStore &store = self->m_store;
    QPointer<ChatStore> guard(&store);
    const Delivery delivery = co_await store.retry(turnID);
    if (!self || !guard)
        co_return;
    if (delivery == Delivery::Offline)
        self->say(u"⏸ "_s + L::t(u"אין חיבור לשרת: ההודעה נשארת בתיבת היוצאים."_s,
                                   u"Cannot reach the server: the turn stays in the outbox."_s,
                                   u"Нет связи с сервером: сообщение остаётся в исходящих."_s));
}

void InteractiveChat::finish()
{
    m_done = true;
}

void InteractiveChat::suspend()
{
    // Ctrl-Z: the shell gets a normal terminal back, and the screen returns on "fg".
    m_screen.leave();
    std::raise(SIGTSTP);
    m_screen.enter();
    refreshBottom();
}

void InteractiveChat::say(const QString &text)
{
    m_recent.append(text);
    if (m_recent.size() > maxRecent)
        m_recent.removeFirst();
    m_screen.print(text);
}

void InteractiveChat::reprint()
{
    // From the newest back, as many entries as fill the screen (a rough count is enough).
    qsizetype first = m_recent.size();
    int rows = 0;
    const int width = std::max(20, m_screen.width() - 1);
    while (first > 0 && rows < m_screen.height()) {
        --first;
        const auto &entry = m_recent.at(first);
        const QString text = std::holds_alternative<QString>(entry)
                                 ? std::get<QString>(entry)
                                 : ChatLines::message(std::get<ChatMessage>(entry), width, false);
        for (const QString &line : text.split(u'\n'))
            rows += 1 + Markup::AnsiWriter::displayWidth(line) / std::max(1, m_screen.width());
    }
    for (qsizetype i = first; i < m_recent.size(); ++i) {
        const auto &entry = m_recent.at(i);
        if (std::holds_alternative<QString>(entry))
            m_screen.print(std::get<QString>(entry));
        else
            m_screen.print(ChatLines::message(std::get<ChatMessage>(entry), width,
                                              RenderCommand::colourWanted()));
    }
    refreshBottom();
}

void InteractiveChat::sayMessage(const ChatMessage &m)
{
    if ((m.seq > 0 && m_printedSeqs.contains(m.seq)) ||
        (m.clientRequestID && m_printedTurns.contains(*m.clientRequestID)))
        return;
    if (m.seq > 0)
        m_printedSeqs.insert(m.seq);
    if (m.clientRequestID)
        m_printedTurns.insert(*m.clientRequestID);
    m_recent.append(m);
    if (m_recent.size() > maxRecent)
        m_recent.removeFirst();
    m_screen.print(
        ChatLines::message(m, std::max(20, m_screen.width() - 1), RenderCommand::colourWanted()));
}

void InteractiveChat::showBacklog()
{
    m_caughtUp = true;
    QList<ChatMessage> fresh;
    for (const ChatMessage &m : std::as_const(m_backlog)) {
        if (!(m.seq > 0 && m_printedSeqs.contains(m.seq)))
            fresh.append(m);
    }
    m_backlog.clear();
    if (fresh.size() > shownAtStart) {
        say(L::t(u"… עוד %1 הודעות קודמות (chat log)"_s, u"… %1 earlier messages (chat log)"_s,
                 u"… ещё %1 более ранних сообщений (chat log)"_s)
                .arg(fresh.size() - shownAtStart));
        for (qsizetype i = 0; i < fresh.size() - shownAtStart; ++i)
            m_printedSeqs.insert(fresh.at(i).seq);
        fresh = fresh.mid(fresh.size() - shownAtStart);
    }
    for (const ChatMessage &m : std::as_const(fresh))
        sayMessage(m);
}

ChatLines::Link InteractiveChat::link() const
{
    if (!m_store.networkAvailable() ||
        (m_store.failureUnreachable() && !m_store.failure().isEmpty()))
        return ChatLines::Link::Offline;
    if (m_store.connected())
        return ChatLines::Link::Connected;
    return m_everConnected ? ChatLines::Link::Reconnecting : ChatLines::Link::Connecting;
}

void InteractiveChat::refreshBottom()
{
    if (m_store.connected())
        m_everConnected = true;
    QStringList panel;
    for (const QString &id : std::as_const(m_liveOrder))
        panel += ChatLines::lane(m_live.value(id));
    for (const PendingTurn &p : m_store.pendingTurns())
        panel += ChatLines::pending(p, m_offline.contains(p.id));
    ChatLines::Status status;
    status.link = link();
    status.queued = m_store.queuedCount();
    if (const auto target = m_store.replyToMessage())
        status.replyTo = target->seq;
    for (const ComposerAttachment &a : m_store.composerAttachments())
        status.attachments.append(a.name);
    m_screen.setBottom(panel, ChatLines::status(status));
    refreshInput();
}

void InteractiveChat::refreshInput()
{
    const QString prompt = u"› "_s;
    const int room = m_screen.width() - 1 - 2;
    const bool rtl =
        m_editor.text().isEmpty() ? L::current() == u"he" : ChatLines::rightToLeft(m_editor.text());
    // A long message takes a few rows; more scroll with the cursor.
    const int rows = std::clamp(m_screen.height() / 4, 1, 8);
    m_screen.setInput(prompt, m_editor.view(room, rows), rtl);
}
