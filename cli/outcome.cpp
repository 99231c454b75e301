#include "outcome.h"

#include "console.h"
#include "terminaltext.h"
#include "net/api.h"
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

QString cause(QNetworkReply::NetworkError code, const QString &text)
{
    switch (code) {
    case QNetworkReply::ConnectionRefusedError:
        return L::t(u"החיבור נדחה"_s, u"connection refused"_s, u"соединение отклонено"_s);
    case QNetworkReply::HostNotFoundError:
        return L::t(u"השרת לא נמצא"_s, u"host not found"_s, u"узел не найден"_s);
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError:
        return L::t(u"תם הזמן"_s, u"timed out"_s, u"время ожидания истекло"_s);
    case QNetworkReply::RemoteHostClosedError:
        return L::t(u"השרת סגר את החיבור"_s, u"the server closed the connection"_s, u"сервер закрыл соединение"_s);
    case QNetworkReply::SslHandshakeFailedError:
        return L::t(u"לחיצת היד של TLS נכשלה"_s, u"the TLS handshake failed"_s, u"сбой согласования TLS"_s);
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::TemporaryNetworkFailureError:
        return L::t(u"אין רשת"_s, u"no network"_s, u"нет сети"_s);
    default:
        return text;
    }
}

QString unreachableText(const std::exception_ptr &error, const Api &api)
{
    QString why;
    try {
        std::rethrow_exception(error);
    } catch (const Api::TransportError &e) {
        why = cause(e.code, e.text);
    } catch (const Api::Failed &e) {
        why = u"HTTP "_s + QString::number(e.status);
    } catch (...) {
    }
    const QString server = api.base().toString(QUrl::RemovePath | QUrl::StripTrailingSlash);
    return L::t(u"אין חיבור אל %1: %2"_s, u"Cannot reach %1: %2"_s, u"Нет связи с %1: %2"_s)
        .arg(server, TerminalText::safe(why));
}

int report(const std::exception_ptr &error, const Api &api)
{
    if (FailureText::isUnreachable(error)) {
        Console::err(unreachableText(error, api));
        return Unreachable;
    }
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
