#include "api.h"
#include "net/netlog.h"

#include "backgroundsender.h"
#include "identity.h"
#include "oneshotbody.h"
#include "platform/appdata.h"
#include "platform/shutdown.h"
#include "projectcache.h"
#include "setcookie.h"
#include "text/l.h"
#include "wire.h"

using namespace Qt::StringLiterals;

#include <QCoroNetworkReply>
#include <QCoroWebSocket>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QDir>
#include <QTemporaryFile>
#include <QTimer>
#include <QWebSocket>

namespace {

constexpr int defaultTimeoutMs = 60'000;
constexpr qint64 socketMessageLimit = 8 * 1024 * 1024;
const QByteArray haveHeader = "X-RB-Have"_ba;
const QByteArray cookiePrefix = "rb_web_session="_ba;

void setJsonBody(Api::Request &r, const QJsonObject &body)
{
    r.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
    r.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
}

struct DeleteLater {
    void operator()(QObject *o) const
    {
        o->disconnect();
        o->deleteLater();
    }
};

QString megabytes(qint64 bytes)
{
    return QString::number(bytes / (1024 * 1024));
}

QJsonObject objectOf(const QByteArray &data)
{
    const QJsonDocument doc = QJsonDocument::fromJson(data);
    return doc.isObject() ? doc.object() : QJsonObject();
}

bool isProjectPath(const QString &path)
{
    return path.startsWith(u"webapi/projects/");
}

QString cookieFromReply(const Api::Reply &reply)
{
    const auto cookie = SetCookie::sessionCookie({reply.header("Set-Cookie")});
    if (!cookie || cookie->isEmpty())
        throw Api::Failed(200, u"no session cookie in the reply"_s);
    return *cookie;
}

} // namespace

Api::Api(QNetworkAccessManager *manager, ServerAddress address)
    : m_manager(manager)
    , m_address(std::move(address))
{
    Q_ASSERT(manager);
}

Api::~Api()
{
    m_closing = true;
    // Aborting finishes the reply at once: its task resumes (and ends) inside this loop.
    const QList<QPointer<QNetworkReply>> replies = std::exchange(m_inFlight, {});
    for (const QPointer<QNetworkReply> &reply : replies) {
        if (reply)
            reply->abort();
    }
}

QUrl Api::url(const QString &path) const
{
    return Wire::url(m_address.url, path);
}

QString Api::sessionCookie() const
{
    return m_identity ? m_identity->cookie() : QString();
}

QString Api::signedInUser() const
{
    return m_identity ? m_identity->user() : QString();
}

QNetworkRequest Api::plainRequest(const QString &path) const
{
    QNetworkRequest request(url(path));
    request.setTransferTimeout(defaultTimeoutMs);
    request.setRawHeader("User-Agent", Wire::userAgent().toUtf8());
    // The session cookie is the one header we set ourselves; nothing automatic.
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    return request;
}

Api::Request Api::openRequest(const QString &path, const QByteArray &method,
                              std::optional<QJsonObject> body) const
{
    Request r{plainRequest(path), method, {}};
    if (body)
        setJsonBody(r, *body);
    return r;
}

bool Api::closing() const
{
    return Shutdown::begun() || m_closing;
}

void Api::refuseWhenClosing() const
{
    if (closing())
        throw TransportError(QNetworkReply::OperationCanceledError, u"shutting down"_s);
}

// The whole exchange has a time limit on top of the idle timeout, and a body a size limit.
QCoro::Task<Api::Reply> Api::transmit(Request r)
{
    refuseWhenClosing();
    // Every request, a GET included, carries a body Qt cannot re-send (see OneShotBody).
    auto *body = new OneShotBody(r.body);
    std::unique_ptr<QNetworkReply, DeleteLater> reply(
        m_manager->sendCustomRequest(r.request, r.method, body));
    body->setParent(reply.get());
    QNetworkReply *raw = reply.get();
    const std::chrono::milliseconds exchangeLimit = m_exchangeLimit;

    bool tooLong = false;
    bool tooLarge = false;
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, raw, [raw, &tooLong] {
        tooLong = true;
        raw->abort();
    });
    limit.start(exchangeLimit);
    m_inFlight.append(raw);
    const qint64 cap = r.maxBytes;
    QObject::connect(raw, &QNetworkReply::downloadProgress, raw,
                     [raw, cap, &tooLarge](qint64 received, qint64 total) {
                         if (received > cap || total > cap) {
                             tooLarge = true;
                             raw->abort();
                         }
                     });
    co_await raw;
    m_inFlight.removeOne(raw);
    limit.stop();

    const int status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QString shown = r.request.url().path();
    if (tooLarge) {
        qCDebug(lcNet) << r.method << shown << "reply over" << cap << "bytes";
        throw Api::Failed(status, L::t(u"תשובת השרת גדולה מ-%1 MB."_s,
                                       u"The server's reply is larger than %1 MB."_s,
                                       u"Ответ сервера больше %1 МБ."_s)
                                      .arg(megabytes(cap)),
                          u"too_large"_s);
    }
    if (tooLong) {
        qCDebug(lcNet) << r.method << shown << "took longer than" << exchangeLimit.count() << "ms";
        throw Api::TransportError(QNetworkReply::TimeoutError, u"the exchange took too long"_s);
    }
    // Aborted after its headers came (the process ending): nothing left to read.
    if (status == 0 || raw->error() == QNetworkReply::OperationCanceledError) {
        qCDebug(lcNet) << r.method << shown << "failed:" << raw->errorString();
        // The connection dropped, and Qt was stopped from sending it again on its own.
        if (raw->error() == QNetworkReply::ContentReSendError)
            throw Api::TransportError(QNetworkReply::RemoteHostClosedError, raw->errorString());
        throw Api::TransportError(raw->error(), raw->errorString());
    }
    qCDebug(lcNet).noquote() << r.method << shown << "→" << status;
    co_return Api::Reply{raw->readAll(), status, raw->rawHeaderPairs()};
}

// A 401 to the cookie we hold now ends the session; one sent with an older cookie
// (before a new sign-in) says nothing about the current one.
void Api::staleSessionCheck(const QNetworkRequest &request)
{
    if (!m_identity)
        return;
    const QString current = m_identity->cookie();
    if (current.isEmpty() || request.rawHeader("Cookie") != cookiePrefix + current.toUtf8())
        return;
    m_identity->rejected();
}

QCoro::Task<Api::Reply> Api::runGet(Request request)
{
    try {
        co_return co_await exchange(request);
    } catch (const Api::TransportError &error) {
        // A process that is ending sends nothing new: no retry to wait on.
        if (!error.transient() || closing())
            throw;
        qCDebug(lcNet) << "retrying once after" << error.text;
    }
    co_return co_await exchange(request);
}


QByteArray Api::Reply::header(const QByteArray &name) const
{
    QByteArray out;
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) != 0)
            continue;
        if (!out.isEmpty())
            out += '\n';
        out += value;
    }
    return out;
}

Api::Request Api::authorized(const QString &path, const QByteArray &method,
                             std::optional<QJsonObject> body, const QString &cookie) const
{
    const QString value = cookie.isEmpty() ? sessionCookie() : cookie;
    if (value.isEmpty())
        throw Unauthorized();
    Request r = openRequest(path, method, std::move(body));
    r.request.setRawHeader("Cookie", cookiePrefix + value.toUtf8());
    return r;
}

QCoro::Task<Api::Reply> Api::exchange(Request request, QString backgroundID)
{
    Reply reply;
    if (m_background && !backgroundID.isEmpty())
        reply = co_await m_background->perform(request, backgroundID);
    else
        reply = co_await transmit(request);
    if (reply.status == 401) {
        staleSessionCheck(request.request);
        throw Unauthorized();
    }
    if (reply.status == 304 && request.request.hasRawHeader(haveHeader)) {
        reply.data.clear();
        co_return reply;
    }
    if (reply.status >= 200 && reply.status <= 299)
        co_return reply;
    throw ApiError::failure(reply.status, reply.data);
}

QCoro::Task<QJsonObject> Api::post(QString path, QJsonObject body, Options options)
{
    const Reply reply = co_await exchange(
        authorized(path, "POST"_ba, std::move(body), options.cookie),
        options.backgroundID);
    co_return objectOf(reply.data);
}

QCoro::Task<QJsonObject> Api::openPost(QJsonObject body, QString path)
{
    Request r = openRequest(path, "POST"_ba, std::move(body));
    r.request.setTransferTimeout(30'000);
    const Reply reply = co_await exchange(std::move(r));
    co_return objectOf(reply.data);
}

QCoro::Task<QJsonObject> Api::remove(QString path)
{
    const Reply reply = co_await exchange(authorized(path, "DELETE"_ba));
    co_return objectOf(reply.data);
}

QCoro::Task<std::optional<QJsonValue>> Api::raw(QString path, QByteArray method,
                                                std::chrono::milliseconds timeout,
                                                std::optional<QJsonObject> body)
{
    Request r = authorized(path, method, std::move(body));
    r.request.setTransferTimeout(int(timeout.count()));
    const Reply reply = co_await exchange(std::move(r));
    // Wrapped in a list so a bare scalar parses too.
    const QJsonDocument doc = QJsonDocument::fromJson("[" + reply.data + "]");
    if (reply.data.trimmed().isEmpty() || !doc.isArray() || doc.array().size() != 1)
        co_return std::nullopt;
    co_return doc.array().first();
}

QCoro::Task<QByteArray> Api::fetch(QString path)
{
    path = Wire::relativePath(path);
    const QString user = signedInUser();
    const QString server = base().toString();
    Request request = authorized(path, "GET"_ba);
    request.maxBytes = downloadCap;
    std::optional<QByteArray> saved;
    try {
        const Reply reply = co_await runGet(std::move(request));
        if (isProjectPath(path) && reply.status == 200)
            ProjectCache::write(reply.data, server, path, user);
        co_return reply.data;
    } catch (const TransportError &) {
        if (isProjectPath(path))
            saved = ProjectCache::read(server, path, user);
        if (!saved)
            throw;
    }
    qCInfo(lcNet) << "offline: serving the saved copy of" << path;
    co_return *saved;
}

QCoro::Task<Api::Named> Api::fetchNamed(QString path)
{
    Request request = authorized(path, "GET"_ba);
    request.maxBytes = downloadCap;
    const Reply reply = co_await runGet(std::move(request));
    co_return Named{reply.data, Wire::filenameFor(reply.header("Content-Disposition"), path)};
}

QCoro::Task<QString> Api::download(QString path, QString folder)
{
    Request r = authorized(path, "GET"_ba);
    if (!AppData::makeFolder(folder))
        throw Failed(0, L::t(u"אי אפשר לשמור ב-%1."_s, u"Cannot save into %1."_s,
                             u"Невозможно сохранить в %1."_s)
                            .arg(folder));
    // Written beside its final place, so the finished file appears in one step.
    refuseWhenClosing();
    QTemporaryFile part(QDir(folder).filePath(u".download-XXXXXX"_s));
    if (!part.open())
        throw Failed(0, part.errorString());
    auto *body = new OneShotBody({});
    std::unique_ptr<QNetworkReply, DeleteLater> reply(
        m_manager->sendCustomRequest(r.request, r.method, body));
    body->setParent(reply.get());
    QNetworkReply *raw = reply.get();
    QByteArray refusal; // the body of a non-2xx reply, which is not the file
    bool writeFailed = false;
    QObject::connect(raw, &QNetworkReply::readyRead, raw, [&, raw] {
        const int status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QByteArray chunk = raw->readAll();
        if (status < 200 || status > 299) {
            if (refusal.size() < replyCap)
                refusal += chunk;
        } else if (part.write(chunk) != chunk.size()) {
            writeFailed = true;
            raw->abort();
        }
    });
    m_inFlight.append(raw);
    co_await raw;
    m_inFlight.removeOne(raw);
    const int status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (writeFailed || (status >= 200 && status <= 299 && !part.flush()))
        throw Failed(status, part.errorString());
    if (status == 0)
        throw TransportError(raw->error() == QNetworkReply::ContentReSendError
                                 ? QNetworkReply::RemoteHostClosedError
                                 : raw->error(),
                             raw->errorString());
    if (status == 401) {
        staleSessionCheck(r.request);
        throw Unauthorized();
    }
    if (status < 200 || status > 299)
        throw ApiError::failure(status, refusal);
    const QString target =
        QDir(folder).filePath(Wire::filenameFor(raw->rawHeader("Content-Disposition"), path));
    QFile::remove(target);
    if (!part.rename(target))
        throw Failed(status, part.errorString());
    part.setAutoRemove(false);
    qCDebug(lcNet).noquote() << "GET" << path << "saved to" << target;
    co_return target;
}

QCoro::Task<Api::AnyPage> Api::page(QString path, Decoder decode)
{
    path = Wire::relativePath(path);
    const QString user = signedInUser();
    const QString server = base().toString();
    Request request = authorized(path, "GET"_ba);
    const std::optional<QByteArray> saved = ProjectCache::read(server, path, user);
    const QString have = saved ? ProjectCache::digest(*saved) : QString();
    if (saved)
        request.request.setRawHeader(haveHeader, have.toLatin1());

    std::exception_ptr failed;
    try {
        const Reply reply = co_await runGet(std::move(request));
        if (const auto seconds = Wire::refreshSeconds(reply.header("X-RB-Refreshing")))
            m_due.insert(path, *seconds);
        if (reply.status == 304)
            co_return AnyPage{decode(*saved), have, Source::Unchanged};
        AnyPage fresh{decode(reply.data), ProjectCache::digest(reply.data)};
        // Only a plain 200 is the page itself (a 203 was changed on the way).
        if (reply.status == 200)
            ProjectCache::write(reply.data, server, path, user);
        co_return fresh;
    } catch (const TransportError &) {
        failed = std::current_exception();
    } catch (const Failed &error) {
        if (!error.unreachable())
            throw;
        failed = std::current_exception();
    }
    // The server cannot be reached: the copy from disk, when there is one that still decodes.
    if (saved) {
        try {
            AnyPage offline{decode(*saved), have, Source::Saved};
            qCInfo(lcNet) << "offline: serving the saved copy of" << path;
            co_return offline;
        } catch (const DecodeError &) {
        }
    }
    std::rethrow_exception(failed);
}

QCoro::Task<Api::Reply> Api::upload(QString path, Upload parts, Options options)
{
    Request r = authorized(path, "POST"_ba, std::nullopt, options.cookie);
    const QString boundary = Multipart::newBoundary();
    r.request.setHeader(QNetworkRequest::ContentTypeHeader, Multipart::contentType(boundary));
    r.request.setTransferTimeout(120'000);
    r.body = Multipart::body(boundary, parts.fields, parts.file);
    co_return co_await exchange(std::move(r), options.backgroundID);
}

QCoro::Task<bool> Api::PendingSocket::open()
{
    QPointer<QWebSocket> guard = socket.get();
    const bool connected = co_await qCoro(guard.data()).open(request, std::chrono::seconds(15));
    co_return connected && guard;
}

Api::PendingSocket Api::socket(const QString &path) const
{
    const QString cookie = sessionCookie();
    if (cookie.isEmpty())
        throw Unauthorized();
    QUrl address = url(path);
    address.setScheme(address.scheme() == u"http" ? u"ws"_s : u"wss"_s);
    QNetworkRequest request(address);
    request.setTransferTimeout(15'000);
    request.setRawHeader("Cookie", cookiePrefix + cookie.toUtf8());
    request.setRawHeader("User-Agent", Wire::userAgent().toUtf8());
    auto ws = std::make_unique<QWebSocket>();
    ws->setMaxAllowedIncomingMessageSize(socketMessageLimit);
    // Closed at the end of the process, so whatever waits on it finishes.
    QObject::connect(&Shutdown::instance(), &Shutdown::begins, ws.get(), &QWebSocket::abort);
    return PendingSocket{std::move(ws), request};
}

QCoro::Task<Api::Login> Api::login(QString username, QString password)
{
    // Built before the co_await: GCC 12 miscompiles initializer lists that span one.
    QJsonObject credentials;
    credentials.insert(u"username"_s, username);
    credentials.insert(u"password"_s, password);
    const Reply reply =
        co_await transmit(openRequest(u"webapi/auth/login"_s, "POST"_ba, credentials));
    if (reply.status != 200)
        throw ApiError::failure(reply.status, reply.data);
    Login out{cookieFromReply(reply), username, u"user"_s};
    const QJsonObject body = objectOf(reply.data);
    if (body.value(u"user").isString())
        out.user = body.value(u"user").toString();
    if (body.value(u"role").isString())
        out.role = body.value(u"role").toString();
    co_return out;
}

QCoro::Task<QString> Api::exchange(QString token)
{
    QJsonObject body;
    body.insert(u"token"_s, token);
    const Reply reply =
        co_await transmit(openRequest(u"webapi/auth/session"_s, "POST"_ba, body));
    if (reply.status != 200)
        throw ApiError::failure(reply.status, reply.data);
    co_return cookieFromReply(reply);
}

QCoro::Task<Api::Reply> Api::openGet(QString path)
{
    co_return co_await exchange(openRequest(path, "GET"_ba));
}

