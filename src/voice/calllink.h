#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <chrono>

// What a call needs of the server, as a port: its web socket (text frames) and JSON requests.
// The real one goes through the transport; tests script the server in-process.
class CallLink : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Opens the call socket for a server path; false when none could be made.
    virtual QCoro::Task<bool> open(QString path) = 0;
    // Closes it; no dropped() follows.
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // One text frame; false when it could not be sent.
    virtual QCoro::Task<bool> send(QByteArray text) = 0;

    // JSON requests; they throw the transport's errors.
    virtual QCoro::Task<QJsonObject> get(QString path, std::chrono::milliseconds timeout) = 0;
    virtual QCoro::Task<QJsonObject> post(QString path, QJsonObject body) = 0;

signals:
    void received(const QByteArray &text);
    // The socket failed or the server went away.
    void dropped();
};
