#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace SetCookie {

// The session cookie's value in a reply's Set-Cookie headers: the text after
// "rb_web_session=" up to the first ";" (or the end). Nothing when no header names it.
std::optional<QString> sessionCookie(const QList<QByteArray> &setCookieHeaders);

} // namespace SetCookie
