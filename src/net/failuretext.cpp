#include "failuretext.h"

#include "api.h"
#include "jsonrecord.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

namespace FailureText {

QString of(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Unauthorized &) {
        return {};
    } catch (const Api::TransportError &) {
    } catch (const Api::Failed &failed) {
        if (failed.status >= 300 && failed.status <= 399) {
            return L::t(u"השרת הפנה לכתובת אחרת, והלקוח אינו עוקב אחרי הפניות (HTTP %1)."_s,
                        u"The server redirected elsewhere, which the client does not follow (HTTP %1)."_s,
                        u"Сервер перенаправил в другое место, а клиент не следует перенаправлениям (HTTP %1)."_s)
                .arg(failed.status);
        }
        if (!failed.unreachable())
            return failed.description();
    } catch (const DecodeError &decode) {
        return L::t(u"השרת ענה במבנה לא צפוי: "_s,
                    u"The server answered in an unexpected shape: "_s,
                    u"Сервер ответил в неожиданном виде: "_s)
               + decode.description();
    } catch (const std::exception &other) {
        return QString::fromLocal8Bit(other.what());
    }
    return L::t(u"אין חיבור לשרת."_s, u"Cannot reach the server."_s,
                u"Нет связи с сервером."_s);
}

bool isUnreachable(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::TransportError &) {
        return true;
    } catch (const Api::Failed &failed) {
        return failed.unreachable();
    } catch (...) {
        return false;
    }
}

} // namespace FailureText
