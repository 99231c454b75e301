#include "vaultfailure.h"

#include "net/failuretext.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

QString VaultFailure::text() const
{
    if (kind == Kind::Http)
        return u"HTTP %1"_s.arg(status);
    return L::t(u"אין חיבור לשרת."_s, u"Cannot reach the server."_s, u"Нет связи с сервером."_s);
}

QString VaultFailure::textOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const VaultFailure &failure) {
        return failure.text();
    } catch (...) {
        return FailureText::of(std::current_exception());
    }
}
