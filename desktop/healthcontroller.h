#pragma once

#include <QObject>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

class Api;
class Clock;
class HealthStore;
class HealthSync;
class QQmlEngine;
class QJSEngine;

// The health panel: the server's summary, and a phone's health export linked in place of a
// live health store (this computer has none). QML reaches it as the Health singleton.
class HealthController : public QObject
{
    Q_OBJECT
    QML_NAMED_ELEMENT(Health)
    QML_SINGLETON
    // The server's summary as it came; empty before the first answer.
    Q_PROPERTY(QVariantMap view READ view NOTIFY viewChanged)
    // Recent workouts ready to show: title, symbol, when, minutes, kcal, km, heart rate.
    Q_PROPERTY(QVariantList workouts READ workouts NOTIFY viewChanged)
    // Workouts per activity, with the activity's title.
    Q_PROPERTY(QVariantList activities READ activities NOTIFY viewChanged)
    // An upload is running.
    Q_PROPERTY(bool syncing READ syncing NOTIFY syncingChanged)
    // The last error; "" when none.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // This computer is linked to the user's health (through an export).
    Q_PROPERTY(bool linked READ linked NOTIFY linkedChanged)
    // The file name of the linked export; "" when none.
    Q_PROPERTY(QString exportName READ exportName NOTIFY linkedChanged)

public:
    using CurrentUser = std::function<QString()>;

    static constexpr const char *exportKey = "desktop.health.export";

    // api and the clock outlive the controller.
    HealthController(Api &api, CurrentUser currentUser, const Clock &clock,
                     QObject *parent = nullptr);
    ~HealthController() override;

    static HealthController *create(QQmlEngine *, QJSEngine *);
    static HealthController *instance();

    HealthSync *sync() const { return m_sync; }
    QVariantMap view() const;
    QVariantList workouts() const;
    QVariantList activities() const;
    bool syncing() const;
    QString failure() const;
    bool linked() const;
    QString exportName() const;

    // Start-up, once a session exists: the linked export again, then HealthSync.arm.
    void arm();

    // "Apple Health is on iPhone only…", in the current language.
    Q_INVOKABLE QString unavailableText() const;
    // GET "webapi/health".
    Q_INVOKABLE void refresh();
    // Links a phone's export (export.xml) and uploads what it holds; a later export of the
    // same account goes up incrementally.
    Q_INVOKABLE void linkExport(const QUrl &file);
    Q_INVOKABLE void syncNow();
    Q_INVOKABLE void disconnectHealth(bool forget);

signals:
    void viewChanged();
    void syncingChanged();
    void failureChanged();
    void linkedChanged();

private:
    void useExport(const QString &path);

    HealthSync *m_sync;
    std::unique_ptr<HealthStore> m_store;
    QString m_exportPath;
};
