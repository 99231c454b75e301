#include "pagecommands.h"

#include "console.h"
#include "terminaltext.h"
#include "net/api.h"
#include "net/feed.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "session/session.h"
#include "outcome.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <QCoroSignal>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStringDecoder>

#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace PageCommands {

PageKind kindOf(const QByteArray &body)
{
    QJsonParseError error{};
    QJsonDocument::fromJson(body, &error);
    if (error.error == QJsonParseError::NoError)
        return PageKind::Json;
    if (body.contains('\0'))
        return PageKind::Binary;
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8(body);
    return utf8.hasError() ? PageKind::Binary : PageKind::Text;
}

QCoro::Task<int> get(Invocation in, const Ports &ports)
{
    if (in.args.size() != 1) {
        Console::err(L::t(u"שימוש: get PATH"_s, u"Usage: get PATH"_s,
                          u"Использование: get PATH"_s));
        co_return Usage;
    }
    const bool signedIn = co_await SessionCommands::signedIn();
    if (!signedIn)
        co_return SignedOut;
    // The body as it came: JSON, text or bytes are told apart here, not by the transport.
    Api::AnyPage page;
    try {
        page = co_await ports.api.page(in.args.first(),
                                       [](const QByteArray &body) -> std::any { return body; });
    } catch (...) {
        co_return Outcome::report(std::current_exception(), ports.api);
    }
    const QByteArray body = std::any_cast<QByteArray>(page.value);
    if (page.source == Api::Source::Saved)
        Console::err(L::t(u"אין חיבור לשרת: מוצג העותק השמור."_s,
                          u"Cannot reach the server: showing the saved copy."_s,
                          u"Нет связи с сервером: показана сохранённая копия."_s));
    else if (page.source == Api::Source::Unchanged)
        Console::err(L::t(u"לא השתנה מאז הקריאה הקודמת (304)."_s,
                          u"Unchanged since the last read (304)."_s,
                          u"Не изменилось с прошлого раза (304)."_s));
    const PageKind kind = kindOf(body);
    if (!in.output.isEmpty()) {
        QSaveFile file(in.output);
        if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size() || !file.commit()) {
            Console::err(L::t(u"לא ניתן לכתוב את %1: %2"_s, u"Could not write %1: %2"_s, u"Не удалось записать %1: %2"_s)
                             .arg(in.output, file.errorString()));
            co_return Refused;
        }
        Console::err(L::t(u"נשמרו %1 בתים ב־%2."_s, u"Saved %1 bytes to %2."_s, u"Сохранено %1 байт в %2."_s)
                         .arg(body.size())
                         .arg(in.output));
        co_return Done;
    }
    if (kind == PageKind::Json) {
        Console::json(QJsonDocument::fromJson(body).isArray() ? QJsonValue(QJsonDocument::fromJson(body).array())
                                                               : QJsonValue(QJsonDocument::fromJson(body).object()));
    } else if (kind == PageKind::Text) {
        // Text from the server, shown as it is but for control characters.
        Console::write(TerminalText::safe(QString::fromUtf8(body), TerminalText::Lines::Keep));
        if (!body.endsWith('\n'))
            Console::write(u"\n"_s);
    } else if (isatty(STDOUT_FILENO) == 1) {
        Console::err(L::t(u"הדף בינארי (%1 בתים); כתבו אותו לקובץ עם ‎--output FILE‎."_s,
                          u"The page is binary (%1 bytes); write it to a file with --output FILE."_s,
                          u"Страница двоичная (%1 байт); запишите её в файл с --output FILE."_s)
                         .arg(body.size()));
        co_return Usage;
    } else {
        std::fwrite(body.constData(), 1, size_t(body.size()), stdout);
        std::fflush(stdout);
    }
    co_return Done;
}

namespace {

// On a terminal the page is redrawn in place; into a pipe each version is one JSON line.
void draw(const QJsonValue &page, const Clock &clock)
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
                     .arg(clock.now().toLocalTime().toString(u"HH:mm:ss"_s)));
}

} // namespace

QCoro::Task<int> watch(Invocation in, const Ports &ports)
{
    if (in.args.size() != 1 || in.every < 0) {
        Console::err(L::t(u"שימוש: watch PATH [--every SECONDS]"_s, u"Usage: watch PATH [--every SECONDS]"_s,
                          u"Использование: watch PATH [--every SECONDS]"_s));
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;

    Feed<QJsonValue> feed(ports.api, in.args.first(), in.every > 0 ? in.every : 10, ports.sleeper);
    FeedCore *core = feed.object();
    const Clock &clock = ports.clock;
    QObject::connect(core, &FeedCore::valueChanged, core, [core, &clock] {
        draw(std::any_cast<QJsonValue>(core->typedValue()), clock);
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
