#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace SetCookie {

// Longer values are refused: browsers keep no cookie over 4 KB either.
constexpr qsizetype maxLength = 4096;

// The session cookie in a reply's Set-Cookie headers: the value of the last cookie named
// exactly "rb_web_session" that is not expired, not empty and not over maxLength.
std::optional<QString> sessionCookie(const QList<QByteArray> &setCookieHeaders,
                                     const QDateTime &now = QDateTime::currentDateTimeUtc());

} // namespace SetCookie
