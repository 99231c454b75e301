#pragma once

#include "net/identity.h"
#include "profile.h"

#include <QCoroTask>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <exception>
#include <functional>
#include <optional>
#include <memory>

class Api;
class CoachEngine;
class SecretStore;

// The one signed-in identity of the app: the cookie, who the user is, what they may open,
// and the gate between the sign-in screen and the shell. Main thread only; the instance is
// created by the app's main and reachable as Session::shared() while it lives.
class Session : public QObject, public Identity
{
    Q_OBJECT
    // Sign-in screen (Out) or one of the three signed-in states.
    Q_PROPERTY(Gate gate READ gate NOTIFY gateChanged)
    // Why the sign-in screen is shown, and its text in the current language.
    Q_PROPERTY(Exit exit READ exit NOTIFY gateChanged)
    Q_PROPERTY(QString exitText READ exitText NOTIFY gateChanged)
    // The profile: these change together.
    Q_PROPERTY(QString user READ user NOTIFY profileChanged)
    Q_PROPERTY(QString role READ role NOTIFY profileChanged)
    Q_PROPERTY(QString email READ email NOTIFY profileChanged)
    Q_PROPERTY(QStringList pages READ pages NOTIFY profileChanged)
    Q_PROPERTY(QVariantMap prefs READ prefs NOTIFY profileChanged)
    Q_PROPERTY(bool voiceLive READ voiceLive NOTIFY profileChanged)
    Q_PROPERTY(QString workspace READ workspace NOTIFY profileChanged)
    // The name shown in the interface.
    Q_PROPERTY(QString label READ label NOTIFY profileChanged)
    Q_PROPERTY(bool isOwner READ isOwner NOTIFY profileChanged)

public:
    enum class Gate { Out, Checking, Offline, Ready };
    Q_ENUM(Gate)
    enum class Exit { Fresh, SignedOut, Expired, Deleted };
    Q_ENUM(Exit)

    // The keychain item that holds the cookie.
    static constexpr const char *cookieItem = "session";

    // Registers itself as the identity of api, which must outlive it.
    Session(Api &api, std::unique_ptr<SecretStore> secrets, QObject *parent = nullptr);
    ~Session() override;

    static Session *shared();

    Gate gate() const { return m_gate; }
    Exit exit() const { return m_exit; }
    QString exitText() const { return exitText(m_exit); }
    static QString exitText(Exit exit);
    static QString gateName(Gate gate);
    bool signedIn() const { return m_gate != Gate::Out; }

    const Profile &profile() const { return m_profile; }
    QString user() const override { return m_profile.user; }
    QString role() const { return m_profile.role; }
    QString email() const { return m_profile.email; }
    QStringList pages() const;
    QVariantMap prefs() const;
    bool voiceLive() const { return m_profile.voiceLive; }
    QString workspace() const { return m_profile.workspace; }
    QString label() const { return m_profile.label(); }
    bool isOwner() const { return m_profile.isOwner(); }
    Q_INVOKABLE bool may(const QString &key) const { return m_profile.may(key); }
    // Hex SHA-256 of the cookie: ties the offline profile to the session that wrote it.
    QString sessionHash() const;
    static QString sessionHash(const QString &cookie);

    CoachEngine *coach() const { return m_coach; }
    // The transport this session signs in through.
    Api &api() const { return m_api; }

    // Start-up: cookie from the keychain, the offline profile at once, then the server.
    QCoro::Task<> boot();
    // Re-reads "webapi/me" and "webapi/prefs" (together). Throws what the transport throws.
    QCoro::Task<> refresh();
    QCoro::Task<> signIn(QString username, QString password);
    QCoro::Task<> signIn(QString token);
    // Returns once the stored session is gone too (the terminal client quits right after).
    QCoro::Task<> signOut();
    // True when the server confirmed the deletion; anything else changes nothing.
    QCoro::Task<bool> deleteAccount();
    QCoro::Task<> setPref(QString key, QString value);

    // Waits for the removal of the stored session that a sign-out started, if any.
    QCoro::Task<> settle();
    // Why the last boot could not confirm the session (null when it could, or was signed out).
    std::exception_ptr bootFailure() const { return m_bootFailure; }

    // Run on every local sign-out (the chat store resets itself here).
    void onForget(std::function<void()> hook);

    // Identity, for the transport.
    QString cookie() const override { return m_cookie; }
    void rejected() override;

    QString offlineProfileFile() const;

signals:
    void gateChanged();
    void profileChanged();

private:
    QCoro::Task<> adopt(QString cookie, Profile known);
    void forget(Exit exit);
    QCoro::Task<> wipeStored(QString cookie);
    void setGate(Gate gate, Exit exit = Exit::Fresh);
    void setProfile(const Profile &profile);
    void applyLanguage(const QHash<QString, QString> &prefs);
    void saveOfflineProfile() const;
    bool restoreOfflineProfile();
    static QCoro::Task<> primeTabPages(Api &api);

    Api &m_api;
    std::unique_ptr<SecretStore> m_secrets;
    CoachEngine *m_coach;
    QString m_cookie;
    Profile m_profile;
    Gate m_gate = Gate::Out;
    Exit m_exit = Exit::Fresh;
    std::vector<std::function<void()>> m_forgetHooks;
    std::optional<QCoro::Task<>> m_wipe;
    std::exception_ptr m_bootFailure;
};
