#include "healthcommands.h"

#include "console.h"
#include "features/health/healthactivity.h"
#include "features/health/healthexportstore.h"
#include "features/health/healthendpoints.h"
#include "features/health/healthsync.h"
#include "features/health/healthview.h"
#include "net/api.h"
#include "outcome.h"
#include "session/session.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <QFileInfo>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

int usage()
{
    Console::err(L::t(
        u"שימוש: health [--json] | health import FILE | health disconnect [--forget]"_s,
        u"Usage: health [--json] | health import FILE | health disconnect [--forget]"_s,
        u"Использование: health [--json] | health import FILE | health disconnect [--forget]"_s));
    return Usage;
}

QString amount(const std::optional<double> &value, int decimals = 0)
{
    return value ? QString::number(*value, 'f', decimals) : u"–"_s;
}

QString windowLine(const QString &name, const HealthView::Window &w)
{
    return L::t(u"%1: %2 אימונים, %3 דק׳, %4 קק״ל, %5 ק״מ, %6 צעדים"_s,
                u"%1: %2 workouts, %3 min, %4 kcal, %5 km, %6 steps"_s,
                u"%1: %2 тренировок, %3 мин, %4 ккал, %5 км, %6 шагов"_s)
        .arg(name, amount(w.workouts), amount(w.minutes), amount(w.kcal), amount(w.distanceKm, 1),
             amount(w.steps));
}

void show(const HealthView &view)
{
    Console::out(
        view.connected
            ? L::t(u"מחובר: %1"_s, u"Connected: %1"_s, u"Подключено: %1"_s).arg(view.device)
            : L::t(u"לא מחובר"_s, u"Not connected"_s, u"Не подключено"_s));
    if (!view.lastSyncAt.isEmpty())
        Console::out(
            L::t(u"סנכרון אחרון: %1"_s, u"Last sync: %1"_s, u"Последняя синхронизация: %1"_s)
                .arg(view.lastSyncAt));
    Console::out(L::t(u"סך הכול %1 אימונים · רצף של %2 ימים"_s,
                      u"%1 workouts in all · %2-day streak"_s,
                      u"Всего тренировок: %1 · серия %2 дн."_s)
                     .arg(view.totalWorkouts.value_or(0))
                     .arg(view.streak.value_or(0)));
    Console::out(windowLine(L::t(u"השבוע"_s, u"This week"_s, u"Эта неделя"_s), view.week));
    Console::out(windowLine(L::t(u"החודש"_s, u"This month"_s, u"Этот месяц"_s), view.month));
    if (view.workouts.isEmpty()) {
        Console::out(
            L::t(u"אין עדיין אימונים. אימון שתסיימו בשעון יופיע כאן מעצמו."_s,
                 u"No workouts yet. A workout you finish on the watch shows up here by itself."_s,
                 u"Тренировок пока нет. Тренировка, законченная на часах, появится здесь сама."_s));
        return;
    }
    for (const HealthView::Workout &w : view.workouts) {
        QString text = u"%1  %2  %3 min"_s.arg(w.startAt, HealthActivity::title(w.activity),
                                               amount(w.minutes));
        if (w.kcal)
            text += u" · %1 kcal"_s.arg(amount(w.kcal));
        if (w.distanceM && *w.distanceM > 0)
            text += u" · %1 km"_s.arg(amount(*w.distanceM / 1000.0, 2));
        if (w.avgHr)
            text += u" · ♥ %1"_s.arg(amount(w.avgHr));
        Console::out(text);
    }
}

QCoro::Task<int> summary(bool json, Api &api)
{
    std::optional<QJsonValue> answer;
    std::optional<HealthView> view;
    try {
        answer = co_await api.raw(HealthEndpoints::summary(), "GET"_ba, 30s);
        if (answer)
            view = HealthView::ofAnswer(*answer);
    } catch (...) {
        co_return Outcome::report(std::current_exception(), api);
    }
    if (json) {
        Console::json(view ? QJsonValue(view->json) : QJsonValue());
        co_return Done;
    }
    if (view)
        show(*view);
    co_return Done;
}

QString currentUser()
{
    return Session::shared() ? Session::shared()->user() : QString();
}

QCoro::Task<int> import(QString file, bool json, const Ports &ports)
{
    if (!QFileInfo(file).isFile()) {
        Console::err(
            L::t(u"אין קובץ %1."_s, u"No such file: %1"_s, u"Нет такого файла: %1"_s).arg(file));
        co_return Usage;
    }
    HealthExportStore store(file);
    HealthSync sync(ports.api, &store, currentUser, ports.clock);
    sync.arm();
    // A later export of the same phone goes up incrementally; the first one links.
    if (sync.linked())
        co_await sync.sync();
    else
        co_await sync.connect();
    if (!sync.failure().isEmpty()) {
        Console::err(sync.failure());
        co_return Refused;
    }
    if (json)
        Console::json(sync.view() ? QJsonValue(sync.view()->json) : QJsonValue());
    else if (sync.view())
        show(*sync.view());
    co_return Done;
}

QCoro::Task<int> disconnect(bool forget, const Ports &ports)
{
    HealthSync sync(ports.api, nullptr, currentUser, ports.clock);
    co_await sync.disconnect(forget);
    if (!sync.failure().isEmpty()) {
        Console::err(sync.failure());
        co_return Unreachable;
    }
    Console::err(forget ? L::t(u"הבריאות נותקה והנתונים נמחקו מהשרת."_s,
                               u"Health disconnected; its data was deleted from the server."_s,
                               u"Здоровье отключено, данные удалены с сервера."_s)
                        : L::t(u"הבריאות נותקה. הנתונים נשארו בשרת."_s,
                               u"Health disconnected. Its data stays on the server."_s,
                               u"Здоровье отключено. Данные остались на сервере."_s));
    co_return Done;
}

} // namespace

namespace HealthCommands {

QCoro::Task<int> health(Invocation in, const Ports &ports)
{
    const QString action = in.args.value(0);
    const bool valid = (action.isEmpty() && in.args.isEmpty()) ||
                       (action == u"import" && in.args.size() == 2) ||
                       (action == u"disconnect" && in.args.size() == 1);
    if (!valid)
        co_return usage();
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;
    if (action == u"import") {
        const int code = co_await import(in.args.value(1), in.json, ports);
        co_return code;
    }
    if (action == u"disconnect") {
        const int code = co_await disconnect(in.forget, ports);
        co_return code;
    }
    if (!in.json) {
        HealthSync sync(ports.api, nullptr, currentUser, ports.clock);
        if (!sync.linked())
            Console::err(
                HealthSync::unavailableText() + u"\n"_s +
                L::t(u"כאן אפשר לקשר ייצוא של Apple Health: health import export.xml"_s,
                     u"Here you can link an Apple Health export: health import export.xml"_s,
                     u"Здесь можно подключить экспорт Apple Health: health import export.xml"_s));
    }
    const int code = co_await summary(in.json, ports.api);
    co_return code;
}

} // namespace HealthCommands
