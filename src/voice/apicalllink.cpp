#include "voice/apicalllink.h"
#include "voice/voicelog.h"

#include <QJsonValue>
#include <QLoggingCategory>

#include <stdexcept>

ApiCallLink::ApiCallLink(Api &api, QObject *parent)
    : CallLink(parent)
    , m_api(api)
{
}

ApiCallLink::~ApiCallLink()
{
    close();
}

QCoro::Task<bool> ApiCallLink::open(QString path)
{
    close();
    QPointer<ApiCallLink> self(this);
    const quint64 generation = ++m_generation;
    try {
        m_socket = std::make_unique<Api::PendingSocket>(m_api.socket(path));
    } catch (const std::exception &e) {
        qCInfo(lcCall) << "no call socket:" << e.what();
        co_return false;
    }
    Api::PendingSocket *pending = m_socket.get();
    const bool opened = co_await pending->open();
    if (!self || generation != m_generation || !m_socket) {
        co_return false; // closed while opening
    }
    if (!opened) {
        m_socket.reset();
        co_return false;
    }
    QWebSocket *ws = m_socket->socket.get();
    connect(ws, &QWebSocket::textMessageReceived, this,
            [this](const QString &text) { emit received(text.toUtf8()); });
    connect(ws, &QWebSocket::disconnected, this, [this, generation] {
        if (generation == m_generation) {
            emit dropped();
        }
    });
    co_return true;
}

void ApiCallLink::close()
{
    m_generation += 1;
    if (m_socket && m_socket->socket) {
        m_socket->socket->disconnect(this);
        m_socket->socket->abort();
        // Deleted from the event loop: close() may run inside one of its signals.
        m_socket->socket.release()->deleteLater();
    }
    m_socket.reset();
}

bool ApiCallLink::isOpen() const
{
    return m_socket && m_socket->socket &&
           m_socket->socket->state() == QAbstractSocket::ConnectedState;
}

QCoro::Task<bool> ApiCallLink::send(QByteArray text)
{
    if (!isOpen()) {
        co_return false;
    }
    co_return m_socket->socket->sendTextMessage(QString::fromUtf8(text)) > 0;
}

QCoro::Task<QJsonObject> ApiCallLink::get(QString path, std::chrono::milliseconds timeout)
{
    const std::optional<QJsonValue> value = co_await m_api.raw(path, "GET", timeout);
    if (!value || !value->isObject()) {
        throw std::runtime_error("the server's answer was not a JSON object");
    }
    co_return value->toObject();
}

QCoro::Task<QJsonObject> ApiCallLink::post(QString path, QJsonObject body)
{
    const QJsonObject reply = co_await m_api.post(path, body);
    co_return reply;
}
