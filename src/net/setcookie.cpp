#include "setcookie.h"

using namespace Qt::StringLiterals;

namespace SetCookie {

std::optional<QString> sessionCookie(const QList<QByteArray> &setCookieHeaders)
{
    static const QByteArray name = "rb_web_session="_ba;
    for (const QByteArray &header : setCookieHeaders) {
        // Qt folds repeated Set-Cookie headers into one value separated by newlines.
        for (const QByteArray &line : header.split('\n')) {
            const qsizetype at = line.indexOf(name);
            if (at < 0)
                continue;
            const qsizetype start = at + name.size();
            qsizetype end = line.indexOf(';', start);
            if (end < 0)
                end = line.size();
            return QString::fromUtf8(line.mid(start, end - start).trimmed());
        }
    }
    return std::nullopt;
}

} // namespace SetCookie
