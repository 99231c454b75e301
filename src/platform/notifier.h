#pragma once

#include <QObject>
#include <QString>

// Desktop notifications, as a port. A notification carries a key; a click on it comes back
// as clicked(key), so the app can open what the notification was about.
class Notifier : public QObject
{
    Q_OBJECT
    // Whether notifications can be shown at all (a notification service is running).
    Q_PROPERTY(bool available READ available NOTIFY availableChanged)

public:
    struct Note {
        QString title;
        QString body;
        QString key;
    };

    using QObject::QObject;

    virtual bool available() const = 0;
    virtual void show(const Note &note) = 0;

    // The desktop's own service (freedesktop notifications over the session bus).
    static Notifier *platform(QObject *parent = nullptr);

signals:
    void availableChanged();
    void clicked(const QString &key);
};
