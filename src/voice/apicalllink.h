#pragma once

#include "net/api.h"
#include "voice/calllink.h"

#include <QWebSocket>

#include <memory>

// The call's link to the real server, through the transport: the session's cookie on the
// socket and on every request.
class ApiCallLink : public CallLink
{
    Q_OBJECT

public:
    // Talks through api, which must outlive it.
    explicit ApiCallLink(Api &api, QObject *parent = nullptr);
    ~ApiCallLink() override;

    QCoro::Task<bool> open(QString path) override;
    void close() override;
    bool isOpen() const override;
    QCoro::Task<bool> send(QByteArray text) override;
    QCoro::Task<QJsonObject> get(QString path, std::chrono::milliseconds timeout) override;
    QCoro::Task<QJsonObject> post(QString path, QJsonObject body) override;

private:
    Api &m_api;
    std::unique_ptr<Api::PendingSocket> m_socket;
    quint64 m_generation = 0;
};
