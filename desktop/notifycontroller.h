#pragma once

#include "app/pushroute.h"

#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

class Api;
class ChatStore;
class Notifier;
class PushCenter;
class PushStatusSheet;
class TaskNotifier;
class QQmlEngine;
class QJSEngine;

// Desktop notifications in place of pushes: a task that ends while the window is not active
// is shown by the desktop, a click leads where a tapped push would; and the check of the
// whole chain for the settings. QML reaches it as the Notify singleton.
class NotifyController : public QObject
{
    Q_OBJECT
    QML_NAMED_ELEMENT(Notify)
    QML_SINGLETON
    // The status or the test is on its way.
    Q_PROPERTY(bool loading READ loading NOTIFY sheetChanged)
    // The check's lines: permission here, this device, the server.
    Q_PROPERTY(QString permissionText READ permissionText NOTIFY sheetChanged)
    Q_PROPERTY(QString deviceText READ deviceText NOTIFY sheetChanged)
    Q_PROPERTY(QString serverText READ serverText NOTIFY sheetChanged)
    // The server's readiness problems, each explained.
    Q_PROPERTY(QStringList problems READ problems NOTIFY sheetChanged)
    // What became of the last test; "" before one.
    Q_PROPERTY(QString testText READ testText NOTIFY sheetChanged)
    // Why the status could not be read; "" when it could.
    Q_PROPERTY(QString failure READ failure NOTIFY sheetChanged)
    // The server's status has been read at least once.
    Q_PROPERTY(bool loaded READ loaded NOTIFY sheetChanged)

public:
    // notifier: the desktop's notification service (or a test's fake); not owned.
    NotifyController(Api &api, Notifier *notifier, QObject *parent = nullptr);
    ~NotifyController() override;

    static NotifyController *create(QQmlEngine *, QJSEngine *);
    static NotifyController *instance();

    PushCenter *center() const { return m_center; }
    PushStatusSheet *sheet() const { return m_sheet; }

    bool loading() const;
    QString permissionText() const;
    QString deviceText() const;
    QString serverText() const;
    QStringList problems() const;
    QString testText() const;
    QString failure() const;
    bool loaded() const;

    // Start-up: the notifier's clicks and what it allows.
    void arm();
    // The conversation whose live socket reports the ends of tasks; null to stop.
    void follow(ChatStore *store);
    // While the window is active the chat itself shows a task's end.
    void setActive(bool active);

    // The page a route opens: "chat", "tasks" or "projects".
    static QString pageFor(const PushRoute &route);

    // The route a click left for the shell, once: {"page", "item"}; empty when none waits.
    Q_INVOKABLE QVariantMap takeRoute();
    Q_INVOKABLE void checkStatus();
    Q_INVOKABLE void sendTest();

signals:
    void sheetChanged();
    // A notification was clicked: the window comes to the front and the shell takes the route.
    void routed();

private:
    PushCenter *m_center;
    TaskNotifier *m_tasks;
    PushStatusSheet *m_sheet;
    QMetaObject::Connection m_frames;
};
