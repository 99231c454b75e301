#include "requestguard.h"

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

Q_LOGGING_CATEGORY(lcGuard, "halvenmark.desktop.guard", QtWarningMsg)

namespace {

class RefusingManager : public QNetworkAccessManager
{
public:
    using QNetworkAccessManager::QNetworkAccessManager;

protected:
    QNetworkReply *createRequest(Operation op, const QNetworkRequest &request,
                                 QIODevice *data) override
    {
        qCInfo(lcGuard) << "refused" << request.url().toDisplayString();
        // An address without a scheme fails at once with a network error.
        return QNetworkAccessManager::createRequest(op, QNetworkRequest(QUrl()), data);
    }
};

} // namespace

QNetworkAccessManager *RequestGuard::create(QObject *parent)
{
    return new RefusingManager(parent);
}
