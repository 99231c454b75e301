#pragma once

#include <QObject>

// Whether the device has a network path, as a port. The platform adapter follows
// QNetworkInformation; where no backend loads (headless machines) the network counts as
// present and failing requests speak for themselves.
class Reachability : public QObject
{
    Q_OBJECT
    // True while a network path is up.
    Q_PROPERTY(bool available READ available NOTIFY availableChanged)

public:
    using QObject::QObject;

    virtual bool available() const = 0;

    static Reachability *platform(QObject *parent = nullptr);

signals:
    void availableChanged(bool available);
};
