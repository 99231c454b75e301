#include "pagecommands.h"

#include "console.h"
#include "net/api.h"
#include "outcome.h"
#include "sessioncommands.h"
#include "text/l.h"

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

} // namespace PageCommands
