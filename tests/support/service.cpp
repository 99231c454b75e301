#include "service.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

Service::Service()
{
    m_process.setProgram(QStringLiteral(HALVENMARK_PYTHON));
    m_process.setArguments({QStringLiteral("-u"), QStringLiteral(HALVENMARK_SERVICE_SCRIPT),
                            QStringLiteral("--port"), QStringLiteral("0"),
                            QStringLiteral("--exit-on-stdin-eof")});
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start();
    if (!m_process.waitForStarted(10'000))
        return;
    QByteArray line;
    while (!line.contains('\n') && m_process.waitForReadyRead(15'000))
        line += m_process.readAllStandardOutput();
    const QByteArray prefix = "LISTENING ";
    if (line.startsWith(prefix))
        m_base = QUrl(QString::fromUtf8(line.mid(prefix.size()).trimmed()));
}

Service::~Service()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.closeWriteChannel();
    m_process.terminate();
    if (!m_process.waitForFinished(5'000))
        m_process.kill();
    m_process.waitForFinished(2'000);
}

QJsonObject Service::control(const QByteArray &method, const QString &path, const QJsonObject &body)
{
    QNetworkAccessManager manager;
    QNetworkRequest request(m_base.resolved(QUrl(QStringLiteral("/_control/") + path)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    QNetworkReply *reply = manager.sendCustomRequest(
        request, method, method == "GET" ? QByteArray() : QJsonDocument(body).toJson());
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(15'000, &loop, &QEventLoop::quit);
    loop.exec();
    const QJsonObject out = QJsonDocument::fromJson(reply->readAll()).object();
    reply->deleteLater();
    return out;
}

void Service::reset()
{
    control("POST", QStringLiteral("reset"));
}

void Service::fault(const QJsonObject &fault)
{
    control("POST", QStringLiteral("fault"), fault);
}

QJsonArray Service::log()
{
    return control("GET", QStringLiteral("log")).value(u"requests").toArray();
}

QList<QJsonObject> Service::requests(const QString &path, bool accepted)
{
    QList<QJsonObject> out;
    for (const QJsonValue &entry : log()) {
        if (entry[u"path"].toString() == path && (!accepted || entry[u"status"].toInt() == 200))
            out << entry.toObject();
    }
    return out;
}

QList<QJsonObject> Service::bodies(const QList<QJsonObject> &requests)
{
    QList<QJsonObject> out;
    for (const QJsonObject &r : requests)
        out << QJsonDocument::fromJson(r[u"body"].toString().toUtf8()).object();
    return out;
}

QJsonArray Service::messages(const QString &conversation, const QString &user)
{
    return control("GET", QStringLiteral("messages?user=%1&conversation_id=%2").arg(user, conversation))
        .value(u"messages")
        .toArray();
}

void Service::clearLog()
{
    control("DELETE", QStringLiteral("log"));
}

QString Service::token(const QString &user)
{
    return control("POST", QStringLiteral("token"), {{QStringLiteral("user"), user}})
        .value(u"token")
        .toString();
}

void Service::expire(const QString &user)
{
    control("POST", QStringLiteral("expire"), {{QStringLiteral("user"), user}});
}

void Service::setPage(const QString &path, const QJsonValue &body, const QJsonObject &extra)
{
    QJsonObject request = extra;
    request.insert(QStringLiteral("path"), path);
    request.insert(QStringLiteral("body"), body);
    control("POST", QStringLiteral("page"), request);
}
