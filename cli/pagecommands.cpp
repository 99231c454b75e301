#include "pagecommands.h"

#include "console.h"
#include "terminaltext.h"
#include "net/api.h"
#include "net/feed.h"
#include "session/session.h"
#include "outcome.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QJsonDocument>
#include <QTime>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace PageCommands {

QCoro::Task<int> get(Invocation in)
{
    if (in.args.size() != 1) {
        Console::err(L::t(u"שימוש: get PATH"_s, u"Usage: get PATH"_s,
                          u"Использование: get PATH"_s));
        co_return Usage;
    }
    const bool signedIn = co_await SessionCommands::signedIn();
    if (!signedIn)
        co_return SignedOut;
    Api::Page<QJsonValue> page;
    try {
        page = co_await Api::page<QJsonValue>(in.args.first());
    } catch (...) {
        co_return Outcome::report(std::current_exception());
    }
    if (page.source == Api::Source::Saved)
        Console::err(L::t(u"אין חיבור לשרת: מוצג העותק השמור."_s,
                          u"Cannot reach the server: showing the saved copy."_s,
                          u"Нет связи с сервером: показана сохранённая копия."_s));
    else if (page.source == Api::Source::Unchanged)
        Console::err(L::t(u"לא השתנה מאז הקריאה הקודמת (304)."_s,
                          u"Unchanged since the last read (304)."_s,
                          u"Не изменилось с прошлого раза (304)."_s));
    Console::json(page.value);
    co_return Done;
}

namespace {

// On a terminal the page is redrawn in place; into a pipe each version is one JSON line.
void draw(const QJsonValue &page)
{
    if (isatty(STDOUT_FILENO) != 1) {
        const QByteArray line = page.isArray() ? QJsonDocument(page.toArray()).toJson(QJsonDocument::Compact)
                                               : QJsonDocument(page.toObject()).toJson(QJsonDocument::Compact);
        Console::out(QString::fromUtf8(line));
        return;
    }
    Console::write(u"\x1b[H\x1b[2J"_s); // home, clear
    Console::json(page);
    Console::out(L::t(u"עודכן ב־%1"_s, u"Updated at %1"_s, u"Обновлено в %1"_s)
                     .arg(QTime::currentTime().toString(u"HH:mm:ss"_s)));
}

} // namespace

QCoro::Task<int> watch(Invocation in)
{
    if (in.args.size() != 1 || in.every < 0) {
        Console::err(L::t(u"שימוש: watch PATH [--every SECONDS]"_s, u"Usage: watch PATH [--every SECONDS]"_s,
                          u"Использование: watch PATH [--every SECONDS]"_s));
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;

    Feed<QJsonValue> feed(in.args.first(), in.every > 0 ? in.every : 10);
    FeedCore *core = feed.object();
    QObject::connect(core, &FeedCore::valueChanged, core, [core] {
        draw(std::any_cast<QJsonValue>(core->typedValue()));
    });
    QObject::connect(core, &FeedCore::failureChanged, core, [core] {
        if (!core->failure().isEmpty())
            Console::err(TerminalText::safe(core->failure()));
    });
    co_await feed.load();
    feed.watch();

    // Runs until interrupted, or until the session ends under it.
    Session *session = Session::shared();
    while (session->gate() != Session::Gate::Out)
        co_await qCoro(session, &Session::gateChanged);
    co_return Outcome::notSignedIn();
}

} // namespace PageCommands
