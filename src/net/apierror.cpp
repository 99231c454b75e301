#include "apierror.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Api {

Failed::Failed(int status, QString reason, QString code)
    : status(status)
    , reason(std::move(reason))
    , code(std::move(code))
{
}

QString Failed::description() const
{
    return reason.isEmpty() ? u"HTTP %1"_s.arg(status) : reason;
}

bool Failed::unreachable() const
{
    switch (status) {
    case 502: case 503: case 504:
    case 520: case 521: case 522: case 523: case 524:
        return true;
    default:
        return false;
    }
}

TransportError::TransportError(QNetworkReply::NetworkError code, QString text)
    : code(code)
    , text(std::move(text))
{
}

bool TransportError::transient() const
{
    switch (code) {
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // what a transfer timeout reports
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        return true;
    default:
        return false;
    }
}

Failed failure(int status, const QByteArray &body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return Failed(status);
    const QJsonObject o = doc.object();
    // Only text values count; anything else is as good as absent.
    const QString error = o.value(u"error").isString() ? o.value(u"error").toString() : QString();
    const QString detail = o.value(u"detail").isString() ? o.value(u"detail").toString() : QString();
    return Failed(status, o.value(u"detail").isString() ? detail : error, error);
}

} // namespace Api
