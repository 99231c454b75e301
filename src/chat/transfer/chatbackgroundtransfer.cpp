#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/chatlogging.h"

#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/sleeper.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QThread>

#include <coroutine>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString bodyFile = u"request.body"_s;
const QString receiptFile = u"receipt.json"_s;

// Newest last: a test's second instance (standing for an earlier run) must not leave the first
// unregistered when it goes.
QList<ChatBackgroundTransfer *> &instances()
{
    static QList<ChatBackgroundTransfer *> all;
    return all;
}

QString folderOf(const QString &key)
{
    const QString root = AppData::path(u"background-chat"_s);
    if (root.isEmpty())
        return {};
    const QByteArray digest = QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha256);
    return QDir(root).filePath(QString::fromLatin1(digest.toHex()));
}

QString fileOf(const QString &key, const QString &name)
{
    const QString folder = folderOf(key);
    return folder.isEmpty() ? QString() : QDir(folder).filePath(name);
}

std::optional<Api::Reply> readReceipt(const QString &key)
{
    const std::optional<QByteArray> bytes = AtomicFile::read(fileOf(key, receiptFile));
    if (!bytes)
        return std::nullopt;
    const QJsonObject o = QJsonDocument::fromJson(*bytes).object();
    const QJsonValue status = o.value(u"status");
    const QJsonValue data = o.value(u"data");
    const auto decoded = QByteArray::fromBase64Encoding(data.toString().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    // Written in one step, so a bad one was not ours: better sent again than misread.
    if (!status.isDouble() || !data.isString() || !decoded) {
        qCWarning(lcTransfer) << "ignoring an unreadable receipt for" << key;
        return std::nullopt;
    }
    return Api::Reply{*decoded, status.toInt(), {}};
}

bool writeReceipt(const QString &key, int status, const QByteArray &data)
{
    QJsonObject o;
    o.insert(u"status"_s, status);
    o.insert(u"data"_s, QString::fromLatin1(data.toBase64()));
    const QByteArray bytes = QJsonDocument(o).toJson(QJsonDocument::Compact);
    if (AtomicFile::write(fileOf(key, receiptFile), bytes))
        return true;
    qCWarning(lcTransfer) << "could not keep the receipt of" << key;
    return false;
}

bool succeeded(const Api::Reply &reply)
{
    return reply.status >= 200 && reply.status <= 299;
}

// Lets a crash test kill the process at a known point (see the header).
void pauseAt(const char *stage)
{
    if (qgetenv("HALVENMARK_PAUSE_AT") != stage)
        return;
    // A warning, so that it shows whatever the logging rules; the test waits for it.
    qCWarning(lcTransfer, "paused at %s", stage);
    for (;;)
        QThread::sleep(60);
}

// Network-layer failures (refused, dropped, timed out) leave at most part of a reply, which
// must never become a receipt; HTTP statuses map to the higher error codes.
bool cutShort(const QNetworkReply *reply, int status)
{
    const QNetworkReply::NetworkError error = reply->error();
    return status == 0 || (error != QNetworkReply::NoError
                           && error < QNetworkReply::ProxyConnectionRefusedError);
}

bool isJson(const QNetworkRequest &request)
{
    const QByteArray type = request.header(QNetworkRequest::ContentTypeHeader).toByteArray();
    return type.trimmed().toLower().startsWith("application/json");
}

} // namespace

// One request under way, and everyone waiting for it.
struct ChatBackgroundTransfer::Flight {
    QPointer<QNetworkReply> reply;
    bool done = false;
    std::optional<Api::Reply> result;
    std::exception_ptr error;
    std::vector<std::coroutine_handle<>> waiters;

    // Waiters resume from the event loop, never inside the reply's signal: what they do next
    // (another perform, a discard) must not run under our feet.
    void land()
    {
        done = true;
        for (std::coroutine_handle<> waiter : std::exchange(waiters, {}))
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [waiter] { waiter.resume(); }, Qt::QueuedConnection);
    }

    struct Landing {
        Flight *flight;
        bool await_ready() const noexcept { return flight->done; }
        void await_suspend(std::coroutine_handle<> waiter) { flight->waiters.push_back(waiter); }
        void await_resume() const noexcept {}
    };
    Landing landed() { return Landing{this}; }

    Api::Reply take() const
    {
        if (error)
            std::rethrow_exception(error);
        return *result;
    }
};

ChatBackgroundTransfer::ChatBackgroundTransfer(Api &api, Sleeper &sleeper, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_sleeper(&sleeper)
{
    instances().append(this);
    m_api.setBackgroundSender(this);
}

ChatBackgroundTransfer::~ChatBackgroundTransfer()
{
    instances().removeOne(this);
    if (m_api.backgroundSender() == this) {
        // The newest other instance on the same transport takes over, as if this one never was.
        BackgroundSender *next = nullptr;
        for (ChatBackgroundTransfer *other : std::as_const(instances())) {
            if (&other->m_api == &m_api)
                next = other;
        }
        m_api.setBackgroundSender(next);
    }
    // What is on disk stays for the next run; callers still waiting hear that it stopped.
    for (const std::shared_ptr<Flight> &flight : std::as_const(m_flights)) {
        if (flight->reply) {
            flight->reply->disconnect(this);
            flight->reply->abort();
            flight->reply->deleteLater();
        }
        flight->error = std::make_exception_ptr(Api::TransportError(
            QNetworkReply::OperationCanceledError, u"The transfer was stopped."_s));
        flight->land();
    }
}

ChatBackgroundTransfer *ChatBackgroundTransfer::shared()
{
    return instances().isEmpty() ? nullptr : instances().constLast();
}

QString ChatBackgroundTransfer::key(const QString &storageKey, const QString &kind,
                                    const QString &id)
{
    QString bare = kind;
    if (bare.endsWith(u':'))
        bare.chop(1);
    return storageKey + u':' + bare + u':' + id;
}

QString ChatBackgroundTransfer::folder(const QString &key)
{
    return folderOf(key);
}

QCoro::Task<Api::Reply> ChatBackgroundTransfer::perform(Api::Request request, QString key)
{
    if (key.isEmpty())
        throw Api::TransportError(QNetworkReply::ProtocolInvalidOperationError,
                                  u"A background transfer needs a name."_s);
    if (std::optional<Api::Reply> kept = receipt(key)) {
        if (succeeded(*kept)) {
            qCDebug(lcTransfer) << "answered from the receipt of" << key;
            co_return *kept;
        }
        // A failure from an earlier attempt: this attempt asks the server again.
        qCDebug(lcTransfer) << "dropping the failed receipt of" << key << kept->status;
        discard(key);
    }
    std::shared_ptr<Flight> flight = m_flights.value(key);
    if (flight) {
        qCDebug(lcTransfer) << "joining the transfer under way for" << key;
    } else {
        m_api.refuseWhenClosing();
        flight = launch(key, std::move(request), Route::Background);
    }
    co_await flight->landed();
    co_return flight->take();
}

std::optional<Api::Reply> ChatBackgroundTransfer::stored(const QString &key) const
{
    return receipt(key);
}

std::optional<Api::Reply> ChatBackgroundTransfer::receipt(const QString &key) const
{
    if (m_stale.contains(key))
        return std::nullopt;
    return readReceipt(key);
}

QCoro::Task<std::optional<Api::Reply>> ChatBackgroundTransfer::watch(
    QString key, std::chrono::milliseconds patience)
{
    Sleeper *sleeper = m_sleeper;
    std::chrono::milliseconds waited{0};
    for (;;) {
        std::optional<Api::Reply> kept = receipt(key);
        if (kept || waited >= patience)
            co_return kept;
        co_await sleeper->sleep(1s);
        waited += 1s;
    }
}

QCoro::Task<Api::Reply> ChatBackgroundTransfer::direct(QString key, Api::Request request)
{
    // One request per key at a time: a transfer already under way answers this call too.
    std::shared_ptr<Flight> flight = m_flights.value(key);
    if (!flight) {
        m_api.refuseWhenClosing();
        request.request.setRawHeader("X-Halvenmark-Route", "direct");
        request.request.setTransferTimeout(isJson(request.request) ? 25'000 : 45'000);
        flight = launch(key, std::move(request), Route::Direct);
    }
    co_await flight->landed();
    co_return flight->take();
}

std::shared_ptr<ChatBackgroundTransfer::Flight>
ChatBackgroundTransfer::launch(const QString &key, Api::Request request, Route route)
{
    auto flight = std::make_shared<Flight>();
    m_flights.insert(key, flight);

    // A background body goes to disk first and is sent from there. When it cannot be written
    // the send still goes out from memory: the turn itself is safe in the outbox either way.
    std::unique_ptr<QFile> source;
    if (route == Route::Background) {
        const QString bodyPath = fileOf(key, bodyFile);
        if (AtomicFile::write(bodyPath, request.body)) {
            pauseAt("body-written");
            source = std::make_unique<QFile>(bodyPath);
            if (request.body.isEmpty() || !source->open(QIODevice::ReadOnly))
                source.reset();
        } else {
            qCWarning(lcTransfer) << "could not write the body of" << key
                                  << "- sending from memory";
        }
    }

    QNetworkAccessManager *manager = m_api.manager();
    QNetworkReply *reply =
        source ? manager->sendCustomRequest(request.request, request.method, source.get())
               : manager->sendCustomRequest(request.request, request.method, request.body);
    if (source)
        source.release()->setParent(reply); // read until the reply is gone
    flight->reply = reply;
    qCDebug(lcTransfer) << (route == Route::Direct ? "chat-direct" : "background") << key
                        << request.body.size() << "bytes";

    connect(reply, &QNetworkReply::uploadProgress, this, [this, key](qint64 sent, qint64 total) {
        if (total > 0)
            emit progress(key, sent, total);
    });
    connect(reply, &QNetworkReply::finished, this,
            [this, key, flight, reply] { finish(key, flight, reply); });
    return flight;
}

void ChatBackgroundTransfer::finish(const QString &key, const std::shared_ptr<Flight> &flight,
                                    QNetworkReply *reply)
{
    reply->disconnect(this);
    reply->deleteLater();
    if (m_flights.value(key) == flight)
        m_flights.remove(key);

    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (cutShort(reply, status)) {
        qCDebug(lcTransfer) << key << "got no reply:" << reply->errorString();
        flight->error =
            std::make_exception_ptr(Api::TransportError(reply->error(), reply->errorString()));
    } else {
        // Exactly what the receipt holds, so an answer reads the same now and after a restart.
        const QByteArray data = reply->readAll();
        if (writeReceipt(key, status, data))
            m_stale.remove(key);
        pauseAt("receipt-written");
        qCDebug(lcTransfer) << key << "→" << status;
        flight->result = Api::Reply{data, status, {}};
    }
    flight->land();
}

void ChatBackgroundTransfer::keep(const QString &key, int status, const QByteArray &data)
{
    if (writeReceipt(key, status, data))
        m_stale.remove(key);
}

void ChatBackgroundTransfer::discard(const QString &key)
{
    remove(key);
    // Whatever could not be deleted is no answer any more.
    if (QFileInfo::exists(fileOf(key, receiptFile)))
        m_stale.insert(key);
}

void ChatBackgroundTransfer::acknowledged(const QStringList &keys)
{
    for (const QString &key : keys)
        remove(key);
}

void ChatBackgroundTransfer::remove(const QString &key)
{
    const QString folder = folderOf(key);
    if (!folder.isEmpty() && !QDir(folder).removeRecursively())
        qCWarning(lcTransfer) << "could not remove the files of" << key;
}

bool ChatBackgroundTransfer::running(const QString &key) const
{
    return m_flights.contains(key);
}
