#include "outcome.h"

#include "console.h"
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

int report(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Unauthorized &) {
        return notSignedIn();
    } catch (...) {
    }
    Console::err(FailureText::of(error));
    return FailureText::isUnreachable(error) ? Unreachable : Refused;
}

} // namespace Outcome
