#pragma once

#include "apierror.h"
#include "jsonrecord.h"
#include "multipart.h"


#include <QCoroTask>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkRequest>
#include <QUrl>

#include <any>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class BackgroundSender;
class Identity;
class QWebSocket;

// The server transport: every request the client makes goes through here, and `exchange`
// is the one place replies are judged. Main thread only (the network manager lives there).
// Failures are thrown: Api::Failed, Api::Unauthorized, Api::TransportError, DecodeError.
namespace Api {

using namespace std::chrono_literals;

// The configured server; empty when the configured address was refused (see baseError).
QUrl base();
// Why the configured address cannot be used; empty when it can. Checked at start.
QString baseError();

// "RelayboxApp/<version>.<build> (<platform>; native)".
QString userAgent();

// The absolute address of a server path ("/webapi/x" and "webapi/x" are the same).
QUrl url(const QString &path);
// A path as the cache and `due` key it: without its one leading "/".
QString relativePath(QString path);
// X-RB-Refreshing: the whole text as a C-locale decimal number of seconds ("+1" too; no
// blanks, no "inf"); nothing otherwise.
std::optional<double> refreshSeconds(const QByteArray &text);
// Whether a query is already percent-encoded (so it is not encoded twice).
bool isEncoded(const QString &query);

// Who is signed in; the session registers itself. Without one, every cookie call is Unauthorized.
void setIdentity(Identity *identity);
// The signed-in user's name (keys the page cache); empty when nobody is.
QString signedInUser();

// A caught failure as text: the server's reason, the decoding fault, or what the exception says.
QString reasonOf(const std::exception_ptr &error);

// Pages the server said it is rebuilding, with the seconds after which to ask again.
QHash<QString, double> &due();

// The largest reply body read into memory: JSON replies and pages.
constexpr qint64 replyCap = 16 * 1024 * 1024;
// The largest file fetched whole (fetch, fetchNamed).
constexpr qint64 downloadCap = 64 * 1024 * 1024;

struct Request {
    QNetworkRequest request;
    QByteArray method;
    QByteArray body;
    qint64 maxBytes = replyCap; // a longer reply fails with Failed (code "too_large")
};

// The longest a whole exchange may take, however steadily bytes arrive (120 s; tests shorten
// it). Past it the request fails as a timeout.
void setExchangeLimit(std::chrono::milliseconds limit);

struct Reply {
    QByteArray data;
    int status = 0;
    QList<QNetworkReply::RawHeaderPair> headers;

    // A header's value; repeated headers are joined by newlines, as Qt reports them.
    QByteArray header(const QByteArray &name) const;
};

struct Options {
    QString cookie;       // instead of the session's, when not empty
    QString backgroundID; // a send that must survive suspension
};

// The authenticated request for a path: Unauthorized at once when there is no cookie.
Request authorized(const QString &path, const QByteArray &method,
                   std::optional<QJsonObject> body = std::nullopt, const QString &cookie = {});

// Carries every request that has a background id; without one those go out like any other.
void setBackgroundSender(BackgroundSender *sender);

// Sends and judges: 401 → stale-session check, then Unauthorized; 304 to a conditional
// request → empty data; 2xx → the reply; anything else → Failed.
QCoro::Task<Reply> exchange(Request request, QString backgroundID = {});

QCoro::Task<QJsonObject> post(QString path, QJsonObject body, Options options = {});
QCoro::Task<QJsonObject> remove(QString path); // DELETE
// Any JSON value, or nothing when the body is empty or not JSON.
QCoro::Task<std::optional<QJsonValue>> raw(QString path, QByteArray method,
                                           std::chrono::milliseconds timeout,
                                           std::optional<QJsonObject> body = std::nullopt);
// Raw bytes; project pages fall back to their saved copy when the network fails.
QCoro::Task<QByteArray> fetch(QString path);

struct Named {
    QByteArray data;
    QString filename;
};
QCoro::Task<Named> fetchNamed(QString path);
// A file fetched straight to disk, never whole in memory: saved into folder under the name
// filenameFor gives, replacing an older file of that name only once complete. The saved
// file's path. Fails as fetchNamed does, and then leaves nothing behind.
QCoro::Task<QString> download(QString path, QString folder);
// The file name a download should get: Content-Disposition (filename*=UTF-8'' percent-decoded,
// else filename=), else the path's last segment, else "download"; always one safe name.
QString filenameFor(const QByteArray &contentDisposition, const QString &path);
// The last component of name, without control characters or leading dots; may be empty.
QString safeFilename(const QString &name);

// Where a page's value came from.
enum class Source {
    Fresh,     // a new body from the server
    Unchanged, // the server answered 304: the saved body still holds
    Saved,     // the server could not be reached: the copy on disk
};

struct AnyPage {
    std::any value;
    QString digest;
    Source source = Source::Fresh;
};
using Decoder = std::function<std::any(const QByteArray &)>;
// The conditional page read against the page cache (the typed form is below).
QCoro::Task<AnyPage> page(QString path, Decoder decode);

struct Upload {
    Multipart::File file;
    Multipart::Fields fields;
};
QCoro::Task<Reply> upload(QString path, Upload upload, Options options = {});

// A web socket for a path (wss, or ws for a loopback http server), with the session cookie,
// not yet opened: the caller opens it and owns its reading loop.
struct PendingSocket {
    std::unique_ptr<QWebSocket> socket;
    QNetworkRequest request;
    // Opens it, giving up after 15 s. False when it did not connect.
    QCoro::Task<bool> open();
};
PendingSocket socket(const QString &path);

struct Login {
    QString cookie;
    QString user;
    QString role;
};
QCoro::Task<Login> login(QString username, QString password);
// A one-time sign-in token turned into a session cookie.
QCoro::Task<QString> exchange(QString token);

template<class T>
struct Page {
    T value;
    QString digest;
    Source source = Source::Fresh;
};

template<class T>
Decoder decoderFor()
{
    return [](const QByteArray &body) -> std::any { return Decode::from<T>(body); };
}

template<class T>
QCoro::Task<Page<T>> page(QString path)
{
    AnyPage any = co_await page(std::move(path), decoderFor<T>());
    co_return Page<T>{std::any_cast<T>(std::move(any.value)), std::move(any.digest), any.source};
}

template<class T>
QCoro::Task<T> post(QString path, QJsonObject body, Options options = {})
{
    const Reply reply = co_await exchange(
        authorized(path, QByteArray("POST"), std::move(body), options.cookie),
        options.backgroundID);
    co_return Decode::from<T>(reply.data);
}

template<class T>
QCoro::Task<T> upload(QString path, Upload parts, Options options = {})
{
    const Reply reply = co_await upload(std::move(path), std::move(parts), std::move(options));
    co_return Decode::from<T>(reply.data);
}

// An unauthenticated GET (User-Agent only).
QCoro::Task<Reply> openGet(QString path);
template<class T>
QCoro::Task<T> open(QString path)
{
    const Reply reply = co_await openGet(std::move(path));
    co_return Decode::from<T>(reply.data);
}

} // namespace Api
