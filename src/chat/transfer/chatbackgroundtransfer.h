#pragma once

#include "net/api.h"
#include "net/backgroundsender.h"

#include <QCoroTask>
#include <QHash>
#include <QSet>
#include <QObject>
#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>

class QNetworkReply;
class Sleeper;

// The chat's sends that must not be lost when the app dies while they run: uploads, voice notes
// and chat posts. Each transfer is named by a key (storage key, kind, turn or file id) and
// keeps its files in AppData "background-chat/<folder>/":
//   request.body  the body, written and flushed before the request starts; it is sent from
//                 this file, so upload progress is known
//   receipt.json  {"status": <int>, "data": "<base64>"}, written in one step when the server
//                 answered, whatever the status. A later run finds it and does not send again.
// The folder name is the lower-case hexadecimal SHA-256 of the key's UTF-8 bytes: safe on every
// file system whatever the user or id holds, and of one length.
//
// This platform has no operating-system session that outlives the process: a transfer runs on
// the process's network manager, and only its files survive. Main thread only.
//
// Crash tests stop the process at a precise point with HALVENMARK_PAUSE_AT:
//   body-written     after request.body is flushed, before the request starts
//   receipt-written  after receipt.json is written, before the waiting callers hear of it
// It prints "halvenmark: paused at <stage>" on stderr and blocks for good, to be killed.
class ChatBackgroundTransfer : public QObject, public BackgroundSender
{
    Q_OBJECT

public:
    // One per process, made by main (and by tests); registers itself as api's background
    // sender and sends through api's network manager. The sleeper paces watch().
    ChatBackgroundTransfer(Api &api, Sleeper &sleeper,
                                    QObject *parent = nullptr);
    ~ChatBackgroundTransfer() override;

    // The newest live instance, or nullptr.
    static ChatBackgroundTransfer *shared();

    // kind "chat", "voice" or "upload": storageKey + ":" + kind + ":" + id.
    static QString key(const QString &storageKey, const QString &kind, const QString &id);
    static QString folder(const QString &key);

    // A stored receipt of a success (2xx) at once, without sending; a kept failure is never
    // an answer to a new attempt (it is discarded and the request goes again); else the running transfer of the key (one
    // request however many callers wait); else a new transfer. Any HTTP status is a reply;
    // no reply at all is an Api::TransportError, and leaves no receipt. The reply holds what a
    // receipt holds (status and body, no headers), so it reads the same after a restart.
    QCoro::Task<Api::Reply> perform(Api::Request request, QString key) override;
    // The reply kept in receipt.json; nothing for one that was discarded but could not be
    // deleted (a read-only folder): it is stale for the rest of this run.
    std::optional<Api::Reply> stored(const QString &key) const;
    // Waits up to patience for the key's receipt, checking once a second, so an answer that
    // a transfer of this run or of an earlier one wrote is found. Nothing when none came.
    QCoro::Task<std::optional<Api::Reply>> watch(QString key, std::chrono::milliseconds patience);
    // Sends now, from memory, whatever receipt is kept: marked "X-Halvenmark-Route: direct",
    // with a shorter time-out (25 s for JSON, 45 s otherwise). The reply becomes the key's
    // receipt like any other; a transfer of the key already under way answers instead.
    QCoro::Task<Api::Reply> direct(QString key, Api::Request request);

    void keep(const QString &key, int status, const QByteArray &data);
    // A stale answer that must not be reused: the receipt and the folder go.
    void discard(const QString &key);
    // The chat store has these answers: their folders go.
    void acknowledged(const QStringList &keys);
    // A transfer of the key runs in this process.
    bool running(const QString &key) const;

signals:
    // Upload progress of the key's request (perform and direct alike).
    void progress(const QString &key, qint64 sent, qint64 total);

private:
    struct Flight;
    enum class Route { Background, Direct };

    std::shared_ptr<Flight> launch(const QString &key, Api::Request request, Route route);
    void finish(const QString &key, const std::shared_ptr<Flight> &flight, QNetworkReply *reply);
    void remove(const QString &key);

    std::optional<Api::Reply> receipt(const QString &key) const;

    Api &m_api;
    Sleeper *m_sleeper;
    QHash<QString, std::shared_ptr<Flight>> m_flights;
    QSet<QString> m_stale; // discarded, yet still on disk
};
