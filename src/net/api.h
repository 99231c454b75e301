#pragma once

#include "apierror.h"
#include "jsonrecord.h"
#include "multipart.h"
#include "serveraddress.h"

#include <QCoroTask>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QNetworkReply>
#include <QPointer>
#include <QNetworkRequest>
#include <QUrl>

#include <any>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class BackgroundSender;
class Identity;
class QNetworkAccessManager;
class QWebSocket;

// The server transport: every request the client makes goes through one of these, and
// `exchange` is the one place replies are judged. Built once by the program's main (tests
// build their own) and handed to whoever talks to the server; it must outlive them.
// Main thread only (the network manager lives there).
// Failures are thrown: Api::Failed, Api::Unauthorized, Api::TransportError, DecodeError.
class Api
{
public:
    using Failed = ApiError::Failed;
    using Unauthorized = ApiError::Unauthorized;
    using TransportError = ApiError::TransportError;

    // The largest reply body read into memory: JSON replies and pages.
    static constexpr qint64 replyCap = 16 * 1024 * 1024;
    // The largest file fetched whole (fetch, fetchNamed).
    static constexpr qint64 downloadCap = 64 * 1024 * 1024;

    struct Request {
        QNetworkRequest request;
        QByteArray method;
        QByteArray body;
        qint64 maxBytes = replyCap; // a longer reply fails with Failed (code "too_large")
    };

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

    struct Named {
        QByteArray data;
        QString filename;
    };

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

    template<class T>
    struct Page {
        T value;
        QString digest;
        Source source = Source::Fresh;
    };

    struct Upload {
        Multipart::File file;
        Multipart::Fields fields;
    };

    // A web socket for a path (wss, or ws for a loopback http server), with the session cookie,
    // not yet opened: the caller opens it and owns its reading loop.
    struct PendingSocket {
        std::unique_ptr<QWebSocket> socket;
        QNetworkRequest request;
        // Opens it, giving up after 15 s. False when it did not connect.
        QCoro::Task<bool> open();
    };

    struct Login {
        QString cookie;
        QString user;
        QString role;
    };

    // Requests go out through manager (not owned; it must outlive every exchange) to the server at
    // address; a refused address makes every request fail (see baseError).
    Api(QNetworkAccessManager *manager, ServerAddress address);
    // Exchanges still under way end here, as cancelled (see m_inFlight).
    ~Api();
    Api(const Api &) = delete;
    Api &operator=(const Api &) = delete;

    // The configured server; empty when the configured address was refused (see baseError).
    QUrl base() const { return m_address.url; }
    // Why the configured address cannot be used; empty when it can. Checked at start.
    QString baseError() const { return m_address.error; }
    // The absolute address of a server path.
    QUrl url(const QString &path) const;

    // Who is signed in; the session registers itself. Without one, every cookie call is
    // Unauthorized.
    void setIdentity(Identity *identity) { m_identity = identity; }
    // The signed-in user's name (keys the page cache); empty when nobody is.
    QString signedInUser() const;

    // Carries every request that has a background id; without one those go out like any other.
    void setBackgroundSender(BackgroundSender *sender) { m_background = sender; }
    BackgroundSender *backgroundSender() const { return m_background; }

    // The longest a whole exchange may take, however steadily bytes arrive (120 s; tests
    // shorten it). Past it the request fails as a timeout.
    void setExchangeLimit(std::chrono::milliseconds limit) { m_exchangeLimit = limit; }

    // Pages the server said it is rebuilding, with the seconds after which to ask again.
    QHash<QString, double> &due() { return m_due; }

    // The network manager requests go through (for sends that manage their own replies).
    QNetworkAccessManager *manager() const { return m_manager; }
    // Throws TransportError (cancelled) once the process is ending or this object is going:
    // nothing new goes out then, retries and loops included. Every send calls it first.
    void refuseWhenClosing() const;

    // The authenticated request for a path: Unauthorized at once when there is no cookie.
    Request authorized(const QString &path, const QByteArray &method,
                       std::optional<QJsonObject> body = std::nullopt,
                       const QString &cookie = {}) const;

    // Sends and judges: 401 → stale-session check, then Unauthorized; 304 to a conditional
    // request → empty data; 2xx → the reply; anything else → Failed.
    QCoro::Task<Reply> exchange(Request request, QString backgroundID = {});

    QCoro::Task<QJsonObject> post(QString path, QJsonObject body, Options options = {});
    QCoro::Task<QJsonObject> openPost(QJsonObject body, QString path);
    QCoro::Task<QJsonObject> remove(QString path); // DELETE
    // Any JSON value, or nothing when the body is empty or not JSON.
    QCoro::Task<std::optional<QJsonValue>> raw(QString path, QByteArray method,
                                               std::chrono::milliseconds timeout,
                                               std::optional<QJsonObject> body = std::nullopt);
    // Raw bytes; project pages fall back to their saved copy when the network fails.
    QCoro::Task<QByteArray> fetch(QString path);
    QCoro::Task<Named> fetchNamed(QString path);
    // A file fetched straight to disk, never whole in memory: saved into folder under the name
    // Wire::filenameFor gives, replacing an older file of that name only once complete. The
    // saved file's path. Fails as fetchNamed does, and then leaves nothing behind.
    QCoro::Task<QString> download(QString path, QString folder);

    // The conditional page read against the page cache (the typed form is below).
    QCoro::Task<AnyPage> page(QString path, Decoder decode);

    QCoro::Task<Reply> upload(QString path, Upload upload, Options options = {});

    PendingSocket socket(const QString &path) const;

    QCoro::Task<Login> login(QString username, QString password);
    // A one-time sign-in token turned into a session cookie.
    QCoro::Task<QString> exchange(QString token);

    // An unauthenticated GET (User-Agent only).
    QCoro::Task<Reply> openGet(QString path);

    template<class T>
    static Decoder decoderFor()
    {
        return [](const QByteArray &body) -> std::any { return Decode::from<T>(body); };
    }

    template<class T>
    QCoro::Task<Page<T>> page(QString path)
    {
        AnyPage any = co_await page(std::move(path), decoderFor<T>());
        co_return Page<T>{std::any_cast<T>(std::move(any.value)), std::move(any.digest),
                          any.source};
    }

    template<class T>
    QCoro::Task<T> post(QString path, QJsonObject body, Options options = {})
    {
        Request request = authorized(path, QByteArray("POST"), std::move(body), options.cookie);
        const Reply reply = co_await exchange(std::move(request), options.backgroundID);
        co_return Decode::from<T>(reply.data);
    }

    template<class T>
    QCoro::Task<T> upload(QString path, Upload parts, Options options = {})
    {
        const Reply reply = co_await upload(std::move(path), std::move(parts), std::move(options));
        co_return Decode::from<T>(reply.data);
    }

    template<class T>
    QCoro::Task<T> open(QString path)
    {
        const Reply reply = co_await openGet(std::move(path));
        co_return Decode::from<T>(reply.data);
    }

private:
    // The process is ending or this object is going.
    bool closing() const;
    QNetworkRequest plainRequest(const QString &path) const;
    Request openRequest(const QString &path, const QByteArray &method,
                        std::optional<QJsonObject> body = std::nullopt) const;
    QString sessionCookie() const;
    // Only the wire: a reply with any HTTP status, or a TransportError when there was none.
    QCoro::Task<Reply> transmit(Request r);
    QCoro::Task<Reply> runGet(Request request);
    void staleSessionCheck(const QNetworkRequest &request);

    QNetworkAccessManager *m_manager;
    ServerAddress m_address;
    Identity *m_identity = nullptr;
    BackgroundSender *m_background = nullptr;
    QHash<QString, double> m_due;
    std::chrono::milliseconds m_exchangeLimit = std::chrono::seconds(120);
    // Replies being awaited. A manager deleted with its replies never says they finished, and
    // one that outlives this object would resume tasks into it: both are avoided by aborting
    // these when this object goes, while it still lives; nothing new goes out after that.
    QList<QPointer<QNetworkReply>> m_inFlight;
    bool m_closing = false;
};
