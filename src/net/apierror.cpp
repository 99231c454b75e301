#include "apierror.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace ApiError {

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
    // Both keys are optional text: null is absent, any other type makes it no error body at all.
    const QJsonValue error = o.value(u"error");
    const QJsonValue detail = o.value(u"detail");
    const auto usable = [](const QJsonValue &v) { return v.isString() || v.isNull() || v.isUndefined(); };
    if (!usable(error) || !usable(detail))
        return Failed(status);
    return Failed(status, detail.isString() ? detail.toString() : error.toString(), error.toString());
}

} // namespace ApiError
