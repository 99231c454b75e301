#pragma once

#include "voice/calllink.h"

#include <QCoroSignal>
#include <QJsonDocument>
#include <QList>

// The server's side of a call, in-process: records what the client sends, answers requests
// from canned objects, and lets a test drop the socket or hold sends back.
class FakeCallLink : public CallLink
{
    Q_OBJECT

public:
    QCoro::Task<bool> open(QString path) override
    {
        paths.append(path);
        m_open = refuseOpens-- <= 0;
        co_return m_open;
    }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    QCoro::Task<bool> send(QByteArray text) override
    {
        if (holdSends) {
            co_await qCoro(this, &FakeCallLink::released);
        }
        if (m_open) {
            sent.append(QJsonDocument::fromJson(text).object());
        }
        co_return m_open;
    }
    QCoro::Task<QJsonObject> get(QString path, std::chrono::milliseconds) override
    {
        co_return reply(path);
    }
    QCoro::Task<QJsonObject> post(QString path, QJsonObject) override { co_return reply(path); }

    // The server sends a frame.
    void serve(const QByteArray &json) { emit received(json); }
    void drop()
    {
        m_open = false;
        emit dropped();
    }
    void release() { emit released(); }
    QStringList sentTypes() const
    {
        QStringList types;
        for (const auto &f : sent) {
            types.append(f.value(QStringLiteral("type")).toString());
        }
        return types;
    }

    QStringList paths;
    QList<QJsonObject> sent;
    QHash<QString, QJsonObject> replies;
    int refuseOpens = 0;
    bool holdSends = false;

signals:
    void released();

private:
    QJsonObject reply(const QString &path) const
    {
        if (!replies.contains(path)) {
            throw std::runtime_error("unreachable");
        }
        return replies.value(path);
    }
    bool m_open = false;
};
