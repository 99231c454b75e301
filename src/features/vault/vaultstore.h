#pragma once

#include "vaultitem.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QVariantList>

#include <chrono>
#include <exception>
#include <optional>

class Api;
class Clipboard;
class OwnerAuth;
class Sleeper;
class VaultClipboard;

// The vault screen's state: locked until the owner proves who they are, then the list of
// secrets without their values. Values are fetched one at a time and never kept here.
// Main thread only.
class VaultStore : public QObject
{
    Q_OBJECT
    // The items, as the server lists them (no secret values), as maps for the screen.
    Q_PROPERTY(QVariantList items READ itemMaps NOTIFY itemsChanged)
    // A list request is under way.
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    // Why the list could not be loaded; empty when it could.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // The owner has authenticated since the app last became inactive.
    Q_PROPERTY(bool unlocked READ unlocked NOTIFY unlockedChanged)
    // Why unlocking failed; empty when it did not.
    Q_PROPERTY(QString authError READ authError NOTIFY authErrorChanged)

public:
    static constexpr std::chrono::seconds timeout{60};

    // clipboard may be null (no display): copy() then says false.
    VaultStore(Api &api, OwnerAuth &auth, Clipboard *clipboard, Sleeper &sleeper,
               QObject *parent = nullptr);
    ~VaultStore() override;

    const QList<VaultItem> &items() const { return m_items; }
    QVariantList itemMaps() const;
    bool loading() const { return m_loading; }
    QString failure() const { return m_failure; }
    bool unlocked() const { return m_unlocked; }
    QString authError() const { return m_authError; }
    // What the last load() failed with (for exit statuses); null when it did not.
    std::exception_ptr loadError() const { return m_loadError; }

    // Whether the app is in front. Going to the background locks the vault.
    void setActive(bool active);
    bool active() const { return m_active; }

    QCoro::Task<> unlock();
    void lock();
    QCoro::Task<> load();
    // item: the one being edited, or none for a new one. Throws what call() throws.
    QCoro::Task<VaultItem> save(std::optional<VaultItem> item, VaultKind kind,
                                QMap<QString, QString> fields, bool primary);
    QCoro::Task<> remove(QString id);
    QCoro::Task<QString> reveal(VaultItem item);
    // Puts a secret on the clipboard for a minute; false when there is no clipboard.
    bool copy(const QString &text);
    static QString generate();

signals:
    void itemsChanged();
    void loadingChanged();
    void failureChanged();
    void unlockedChanged();
    void authErrorChanged();

private:
    // The vault's own request: 60 s at most, the answer's JSON or a VaultFailure.
    QCoro::Task<QJsonValue> call(QByteArray method, QString path, std::optional<QJsonObject> body);
    void setItems(QList<VaultItem> items);
    void setLoading(bool loading);
    void setFailure(const QString &failure);
    void setAuthError(const QString &error);

    OwnerAuth &m_auth;
    Api &m_api;
    Sleeper &m_sleeper;
    VaultClipboard *m_clipboard = nullptr;
    QList<VaultItem> m_items;
    bool m_loading = false;
    QString m_failure;
    std::exception_ptr m_loadError;
    bool m_unlocked = false;
    QString m_authError;
    bool m_active = true;
};
