#include "outcome.h"

#include "console.h"
#include "terminaltext.h"
#include "net/apierror.h"
#include "net/failuretext.h"
#include "session/session.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

namespace Outcome {

int notSignedIn()
{
    const Session *session = Session::shared();
    if (session && session->gate() == Session::Gate::Out && session->exit() != Session::Exit::Fresh)
        Console::err(session->exitText());
    else
        Console::err(L::t(u"לא נכנסתם לחשבון. היכנסו עם: halvenmark-cli login --user NAME"_s,
                          u"You are not signed in. Sign in with: halvenmark-cli login --user NAME"_s,
                          u"Вы не вошли в аккаунт. Войдите: halvenmark-cli login --user NAME"_s));
    return SignedOut;
}

std::optional<int> badAnswer(const std::exception_ptr &error)
{
    if (!error || FailureText::isUnreachable(error))
        return std::nullopt;
    try {
        std::rethrow_exception(error);
    } catch (const Api::Unauthorized &) {
        return std::nullopt;
    } catch (...) {
    }
    Console::err(L::t(u"תשובת השרת אינה שמישה: %1"_s, u"The server's answer cannot be used: %1"_s,
                      u"Ответ сервера непригоден: %1"_s)
                     .arg(FailureText::of(error)));
    return BadAnswer;
}

int report(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Unauthorized &) {
        return notSignedIn();
    } catch (...) {
    }
    // The server's own reason is part of this text: made safe before the terminal sees it.
    Console::err(TerminalText::safe(FailureText::of(error), TerminalText::Lines::Keep));
    return FailureText::isUnreachable(error) ? Unreachable : Refused;
}

} // namespace Outcome
