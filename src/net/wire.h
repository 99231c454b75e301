#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <exception>
#include <optional>

// What the transport puts on and reads off the wire that needs no connection: addresses,
// headers and file names. Pure functions, usable without an event loop.
namespace Wire {

// "RelayboxApp/<version>.<build> (<platform>; native)".
QString userAgent();

// The absolute address of a server path below base ("/webapi/x" and "webapi/x" are the same).
QUrl url(const QUrl &base, const QString &path);
// A path as the cache and `due` key it: without its one leading "/".
QString relativePath(QString path);
// X-RB-Refreshing: the whole text as a C-locale decimal number of seconds ("+1" too; no
// blanks, no "inf"); nothing otherwise.
std::optional<double> refreshSeconds(const QByteArray &text);
// Whether a query is already percent-encoded (so it is not encoded twice).
bool isEncoded(const QString &query);

// A caught failure as text: the server's reason, the decoding fault, or what the exception says.
QString reasonOf(const std::exception_ptr &error);

// The file name a download should get: Content-Disposition (filename*=UTF-8'' percent-decoded,
// else filename=), else the path's last segment, else "download"; always one safe name.
QString filenameFor(const QByteArray &contentDisposition, const QString &path);
// The last component of name, without control characters or leading dots; may be empty.
QString safeFilename(const QString &name);

} // namespace Wire
