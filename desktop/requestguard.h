#pragma once

#include <QQmlNetworkAccessManagerFactory>

// The QML engine's network: every request is refused, so nothing a message names (an image,
// a script, a style sheet) is ever fetched.
class RequestGuard : public QQmlNetworkAccessManagerFactory
{
public:
    QNetworkAccessManager *create(QObject *parent) override;
};
