#pragma once

#include "healthview.h"

#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QVariantMap>

#include <functional>
#include <optional>

class Clock;
class HealthStore;

// The link between this device's health store and the user's health on the server: who
// linked it, the incremental upload and the summary the panel shows. Main thread only.
class Api;

class HealthSync : public QObject
{
    Q_OBJECT
    // The server's last summary as it came; empty before the first.
    Q_PROPERTY(QVariantMap view READ viewMap NOTIFY viewChanged)
    // An upload is running.
    Q_PROPERTY(bool syncing READ syncing NOTIFY syncingChanged)
    // The last error shown under the panel; empty when none.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // Health is linked on this device.
    Q_PROPERTY(bool linked READ linked NOTIFY linkedChanged)
    // This device has a health store to link.
    Q_PROPERTY(bool available READ available CONSTANT)

public:
    static constexpr int pageLimit = 500;
    static constexpr const char *userKey = "rb.health.user";
    static QString anchorKey(const QString &user);

    using CurrentUser = std::function<QString()>;

    // store may be null: the device has none, and the panel only says so. api and the clock
    // must outlive it.
    HealthSync(Api &api, HealthStore *store, CurrentUser currentUser, const Clock &clock,
               QObject *parent = nullptr);

    const std::optional<HealthView> &view() const { return m_view; }
    QVariantMap viewMap() const;
    bool syncing() const { return m_syncing; }
    QString failure() const { return m_failure; }
    bool linked() const { return m_linked; }
    bool available() const { return m_store != nullptr; }
    // Another store (a newer export) from now on; the link and its anchor stay.
    void setStore(HealthStore *store);

    // "Apple Health is on iPhone only…": what a device without a store shows.
    static QString unavailableText();

    // At start-up, once a session exists.
    void arm();
    QCoro::Task<> connect();
    QCoro::Task<> sync();
    // One incremental upload; throws what the store or the server threw.
    QCoro::Task<> syncOnce();
    QCoro::Task<> refresh();
    QCoro::Task<> disconnect(bool forget);
    void unlinkLocally();

signals:
    void viewChanged();
    void syncingChanged();
    void failureChanged();
    void linkedChanged();

private:
    void startObserving();
    QCoro::Task<QJsonArray> dailyTotals(int days);
    // Days begin at local midnight.
    QDateTime localNow() const;
    std::optional<QByteArray> loadAnchor() const;
    void saveAnchor(const QByteArray &anchor);
    void setView(std::optional<HealthView> view);
    void setFailure(const QString &failure);
    void setLinked(bool linked);
    void setSyncing(bool syncing);

    Api &m_api;
    HealthStore *m_store;
    CurrentUser m_currentUser;
    const Clock &m_clock;
    std::optional<HealthView> m_view;
    bool m_syncing = false;
    bool m_pending = false;
    QString m_failure;
    bool m_linked = false;
    bool m_observing = false;
};
