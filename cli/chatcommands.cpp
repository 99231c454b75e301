#include "chatcommands.h"

#include "console.h"
#include "outcome.h"
#include "sessioncommands.h"

#include "chat/chatrowsmodel.h"
#include "chat/chatstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QDateTime>
#include <QJsonArray>

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

QString line(const ChatMessage &m)
{
    const QString when = QDateTime::fromMSecsSinceEpoch(qint64(m.createdAt * 1000))
                             .toString(u"yyyy-MM-dd HH:mm"_s);
    return u"["_s + when + u"] "_s + who(m) + u": "_s + m.text;
}

void usage()
{
    Console::err(L::t(u"שימוש: chat log [--project N] [--json] | chat follow [--project N]"_s,
                      u"Usage: chat log [--project N] [--json] | chat follow [--project N]"_s,
                      u"Использование: chat log [--project N] [--json] | chat follow [--project N]"_s));
}

std::unique_ptr<ChatStore> storeFor(const Invocation &in)
{
    const Session *session = Session::shared();
    const ChatScope scope = in.project ? ChatScope::project(*in.project) : ChatScope::main();
    return std::make_unique<ChatStore>(scope, session->user(), session->role());
}

QCoro::Task<int> log(Invocation in)
{
    auto store = storeFor(in);
    store->hydrate();
    co_await store->load();
    store->flushDisk();
    if (!store->failure().isEmpty()) {
        Console::err(store->failure());
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
                Console::out(u"💬 "_s + who(m) + u": "_s + m.text);
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
            Console::out(u"▸ "_s + lane.heading() + (last.isEmpty() ? QString() : u": "_s + last.left(160)));
        }
        for (const Activity &step : lane.tools) {
            if (seen.tools.value(step.id) == step.status)
                continue;
            seen.tools.insert(step.id, step.status);
            const QString detail = step.usefulDetail();
            Console::out(u"  ↳ "_s + step.title + (detail.isEmpty() ? QString() : u" — "_s + detail)
                         + u" ["_s + step.status + u"]"_s);
        }
        if (lane.finished && !seen.finished) {
            seen.finished = true;
            Console::out(u"✓ "_s + lane.heading() + u" ("_s + lane.outcome.value_or(u"completed"_s) + u")"_s);
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
        Console::err(store->failure());
    Follower follower(store.get());
    Session *session = Session::shared();
    while (session->gate() != Session::Gate::Out)
        co_await qCoro(session, &Session::gateChanged);
    co_return Outcome::notSignedIn();
}

} // namespace

namespace ChatCommands {

QCoro::Task<int> chat(Invocation in)
{
    const QString sub = in.args.isEmpty() ? QString() : in.args.first();
    if (in.args.size() != 1 || (sub != u"log" && sub != u"follow")) {
        usage();
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;
    if (sub == u"log")
        co_return co_await log(in);
    co_return co_await follow(in);
}

} // namespace ChatCommands
