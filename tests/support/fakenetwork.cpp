#include "fakenetwork.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QTimer>

namespace {

class CannedReply : public QNetworkReply
{
public:
    CannedReply(const QByteArray &method, const QNetworkRequest &request,
                const FakeNetwork::Reply &canned, QObject *parent)
        : QNetworkReply(parent)
        , m_body(canned.body)
    {
        setRequest(request);
        setUrl(request.url());
        setOperation(QNetworkAccessManager::CustomOperation);
        setAttribute(QNetworkRequest::CustomVerbAttribute, method);
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        // Answered on the next turn of the loop, as a socket would.
        QTimer::singleShot(0, this, [this, canned] {
            if (isFinished())
                return;
            if (canned.drop) {
                m_body.clear();
                fail(RemoteHostClosedError, QStringLiteral("Connection closed"));
                return;
            }
            setAttribute(QNetworkRequest::HttpStatusCodeAttribute, canned.status);
            for (const auto &[name, value] : canned.headers)
                setRawHeader(name, value);
            setHeader(QNetworkRequest::ContentLengthHeader, m_body.size());
            emit metaDataChanged();
            emit downloadProgress(m_body.size(), m_body.size());
            if (isFinished()) // aborted over its cap
                return;
            emit readyRead();
            setFinished(true);
            emit finished();
        });
    }

    void abort() override
    {
        if (!isFinished())
            fail(OperationCanceledError, QStringLiteral("Operation canceled"));
    }
    qint64 bytesAvailable() const override { return m_body.size() - m_read + QIODevice::bytesAvailable(); }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 max) override
    {
        const qint64 n = qMin(max, qint64(m_body.size()) - m_read);
        if (n <= 0)
            return isFinished() ? -1 : 0;
        memcpy(data, m_body.constData() + m_read, size_t(n));
        m_read += n;
        return n;
    }

private:
    void fail(NetworkError code, const QString &text)
    {
        m_body.clear();
        setError(code, text);
        emit errorOccurred(code);
        setFinished(true);
        emit finished();
    }

    QByteArray m_body;
    qint64 m_read = 0;
};

} // namespace

FakeNetwork::Reply FakeNetwork::Reply::fromJson(const QJsonObject &o)
{
    Reply r;
    r.status = o.value(u"status").toInt(200);
    r.drop = o.value(u"drop").toBool();
    const QJsonObject headers = o.value(u"headers").toObject();
    for (auto it = headers.begin(); it != headers.end(); ++it)
        r.headers.append({it.key().toUtf8(), it.value().toString().toUtf8()});
    const QJsonValue body = o.value(u"body");
    if (body.isString())
        r.body = body.toString().toUtf8();
    else if (body.isObject())
        r.body = QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact);
    else if (body.isArray())
        r.body = QJsonDocument(body.toArray()).toJson(QJsonDocument::Compact);
    return r;
}

FakeNetwork::Reply FakeNetwork::Reply::fixture(const QString &name)
{
    QFile file(QStringLiteral(HALVENMARK_FIXTURES "/%1.json").arg(name));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no fixture %s", qPrintable(name));
    return fromJson(QJsonDocument::fromJson(file.readAll()).object());
}

void FakeNetwork::serve(const QString &path, const QList<Reply> &replies)
{
    m_replies.insert(path, replies);
}

QNetworkReply *FakeNetwork::createRequest(Operation op, const QNetworkRequest &request,
                                          QIODevice *outgoingData)
{
    QByteArray method = request.attribute(QNetworkRequest::CustomVerbAttribute).toByteArray();
    if (op != CustomOperation) {
        static const char *const verbs[] = {"", "HEAD", "GET", "PUT", "POST", "DELETE", ""};
        method = verbs[op];
    }
    sent.append({method, request, outgoingData ? outgoingData->readAll() : QByteArray()});
    const QString path = request.url().path().mid(1);
    QList<Reply> &queue = m_replies[path];
    Reply reply;
    reply.status = 404;
    if (!queue.isEmpty())
        reply = queue.size() > 1 ? queue.takeFirst() : queue.first();
    return new CannedReply(method, request, reply, this);
}
