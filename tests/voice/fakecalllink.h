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
        m_open = refuseOpens <= 0;
        refuseOpens -= 1;
        co_return m_open;
    }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    QCoro::Task<bool> send(QByteArray text) override
    {
        if (holdSends) {
            ++held;
            co_await qCoro(this, &FakeCallLink::released);
        }
        if (!m_open) {
            co_return false;
        }
        sent.append(QJsonDocument::fromJson(text).object());
        co_return true;
    }
    QCoro::Task<QJsonObject> get(QString path, std::chrono::milliseconds) override
    {
        requests.append(path);
        if (!replies.contains(path)) {
            throw std::runtime_error("unreachable");
        }
        co_return replies.value(path);
    }
    QCoro::Task<QJsonObject> post(QString path, QJsonObject body) override
    {
        requests.append(path);
        posted.append(body);
        if (!replies.contains(path)) {
            throw std::runtime_error("unreachable");
        }
        co_return replies.value(path);
    }

    // The server sends a frame.
    void serve(const QByteArray &json) { emit received(json); }
    void drop()
    {
        m_open = false;
        emit dropped();
    }
    void release()
    {
        held = 0;
        emit released();
    }
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
    QStringList requests;
    QList<QJsonObject> posted;
    QHash<QString, QJsonObject> replies;
    int refuseOpens = 0;
    bool holdSends = false;
    int held = 0;

signals:
    void released();

private:
    bool m_open = false;
};
