#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QUrl>

// The reference service (tests/service/server.py) on a loopback port the system picks,
// for the life of the object, with its control interface.
class Service
{
public:
    Service();
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    bool running() const { return m_base.isValid(); }
    QUrl base() const { return m_base; }

    // Control calls (blocking, with a local event loop). Each returns the reply object.
    QJsonObject control(const QByteArray &method, const QString &path,
                        const QJsonObject &body = {});
    void reset();
    // The next `times` requests whose path starts with `match` get this answer instead.
    void fault(const QJsonObject &fault);
    QJsonArray log();
    // The logged requests for exactly this path; only those answered 200 when `accepted`.
    QList<QJsonObject> requests(const QString &path, bool accepted = false);
    // Their bodies, as JSON objects.
    static QList<QJsonObject> bodies(const QList<QJsonObject> &requests);
    // What one of the user's conversations holds on the server.
    QJsonArray messages(const QString &conversation = QStringLiteral("main"),
                        const QString &user = QStringLiteral("demo"));
    void clearLog();
    QString token(const QString &user);
    void expire(const QString &user);
    void setPage(const QString &path, const QJsonValue &body, const QJsonObject &extra = {});

private:
    QProcess m_process;
    QUrl m_base;
};
