#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

// An in-process network: every request gets a canned reply at once, nothing touches a socket,
// and what was asked is kept for the test to read. Main thread only.
class FakeNetwork : public QNetworkAccessManager
{
    Q_OBJECT

public:
    struct Reply {
        int status = 200;
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;
        bool drop = false; // the connection closes before any answer

        // {"status": 200, "headers": {...}, "body": <JSON value, or text as it is>, "drop": false}
        static Reply fromJson(const QJsonObject &o);
        // tests/fixtures/<name>.json, in the form above.
        static Reply fixture(const QString &name);
    };

    struct Sent {
        QByteArray method;
        QNetworkRequest request;
        QByteArray body;
    };

    using QNetworkAccessManager::QNetworkAccessManager;

    // Replies for a path (without its leading "/"), given in order; the last one repeats.
    // Paths with none get a 404.
    void serve(const QString &path, const QList<Reply> &replies);
    QList<Sent> sent;

protected:
    QNetworkReply *createRequest(Operation op, const QNetworkRequest &request,
                                 QIODevice *outgoingData) override;

private:
    QHash<QString, QList<Reply>> m_replies;
};
