#include "chatprompt.h"

#include "console.h"
#include "outcome.h"
#include "render.h"
#include "terminaltext.h"

#include "chat/markup/ansiwriter.h"

#include "chat/chatstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QDateTime>
#include <QSocketNotifier>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Lines typed on stdin, as a signal.
class LineReader : public QObject
{
    Q_OBJECT

public:
    LineReader()
        : m_notifier(STDIN_FILENO, QSocketNotifier::Read)
    {
        connect(&m_notifier, &QSocketNotifier::activated, this, &LineReader::readSome);
    }

signals:
    void line(const QString &text);
    void closed();

private:
    void readSome()
    {
        char buffer[4096];
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            m_notifier.setEnabled(false);
            emit closed();
            return;
        }
        m_pending.append(buffer, n);
        qsizetype end;
        while ((end = m_pending.indexOf('\n')) >= 0) {
            const QString text = QString::fromUtf8(m_pending.left(end));
            m_pending.remove(0, end + 1);
            emit line(text);
        }
    }

    QSocketNotifier m_notifier;
    QByteArray m_pending;
};

void prompt()
{
    if (isatty(STDIN_FILENO) == 1)
        Console::write(u"› "_s);
}

void showMessage(const ChatMessage &m)
{
    const QString who = m.role == u"assistant" ? L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s)
                                               : L::t(u"את/ה"_s, u"You"_s, u"Вы"_s);
    const QString text = m.role == u"assistant"
                             ? Markup::AnsiWriter::render(m.text, RenderCommand::terminalWidth(),
                                                          RenderCommand::colourWanted())
                             : TerminalText::safe(m.text, TerminalText::Lines::Keep);
    Console::out(who + u": "_s + text);
}

} // namespace

namespace ChatPrompt {

QCoro::Task<int> run(ChatScope scope)
{
    Session *session = Session::shared();
    ChatStore store(scope, session->user(), session->role());
    store.prepare();
    const auto &messages = store.messages();
    for (qsizetype i = std::max<qsizetype>(0, messages.size() - 20); i < messages.size(); ++i)
        showMessage(messages.at(i));
    for (const PendingTurn &p : store.pendingTurns())
        Console::out(u"⏳ "_s + p.id + u"  "_s + TerminalText::safe(p.text)
                     + (p.error.isEmpty() ? QString() : u"  ⚠ "_s + p.error)
                     + (p.reason.isEmpty() ? QString() : u" ("_s + TerminalText::safe(p.reason) + u")"_s));
    if (!store.composerText().isEmpty())
        Console::out(L::t(u"טיוטה: "_s, u"Draft: "_s, u"Черновик: "_s)
                     + TerminalText::safe(store.composerText()));

    QObject::connect(&store, &ChatStore::messageAdded, &store, [](const ChatMessage &m) {
        if (m.role == u"assistant")
            showMessage(m);
    });
    QObject::connect(&store, &ChatStore::laneChanged, &store, [](const Lane &lane) {
        if (!lane.finished)
            Console::err(u"… "_s + TerminalText::safe(lane.heading()));
    });
    QObject::connect(&store, &ChatStore::delivered, &store,
                     [&store](const QString &id, Delivery delivery, const QString &error) {
                         if (delivery == Delivery::Settled)
                             return;
                         QString reason;
                         for (const PendingTurn &p : store.pendingTurns()) {
                             if (p.id == id)
                                 reason = p.reason;
                         }
                         Console::err(u"⚠ "_s + id + u": "_s + error
                                      + (reason.isEmpty() ? QString()
                                                          : u" ("_s + TerminalText::safe(reason) + u")"_s));
                     });
    QObject::connect(&store, &ChatStore::withdrawn, &store, [&store](const QString &) {
        Console::err(u"⚠ "_s + store.banner());
        Console::out(L::t(u"טיוטה: "_s, u"Draft: "_s, u"Черновик: "_s)
                     + TerminalText::safe(store.composerText()));
    });
    store.goLive();

    LineReader reader;
    bool done = false;
    QObject::connect(&reader, &LineReader::closed, &reader, [&] { done = true; });
    QObject::connect(&reader, &LineReader::line, &reader, [&](const QString &typed) {
        const QString text = typed.trimmed();
        if (text == u"/quit") {
            done = true;
        } else if (text.startsWith(u"/retry ")) {
            store.retry(text.section(u' ', 1).trimmed());
        } else if (text.endsWith(u'\\')) {
            store.setComposerText(text.chopped(1));
            store.saveComposer();
        } else if (!text.isEmpty() || !store.composerText().isEmpty()) {
            // An empty line sends the saved draft.
            store.send(text.isEmpty() ? store.composerText() : text);
        }
        prompt();
    });
    prompt();
    while (!done && session->gate() != Session::Gate::Out)
        co_await QCoro::sleepFor(std::chrono::milliseconds(200));
    store.flushDisk();
    if (session->gate() == Session::Gate::Out)
        co_return Outcome::notSignedIn();
    co_return Done;
}

} // namespace ChatPrompt

#include "chatprompt.moc"
