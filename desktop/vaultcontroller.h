#pragma once

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <optional>

class Api;
class Clipboard;
class OwnerAuth;
class Sleeper;
class VaultStore;
class QQmlEngine;
class QJSEngine;

// The vault screen: locked until the account's password is given, the list with search and
// kinds, one secret revealed at a time (fetched each time, forgotten when hidden), copy,
// generate, add, edit and delete. QML reaches it as the Vault singleton.
class VaultController : public QObject
{
    Q_OBJECT
    QML_NAMED_ELEMENT(Vault)
    QML_SINGLETON
    // The owner has proved who they are since the window was last left.
    Q_PROPERTY(bool unlocked READ unlocked NOTIFY unlockedChanged)
    // The list is on its way.
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    // Why the list could not be loaded; "" when it could.
    Q_PROPERTY(QString failure READ failure NOTIFY failureChanged)
    // Why unlocking failed ("Wrong password.", …); "" when it did not.
    Q_PROPERTY(QString authError READ authError NOTIFY authErrorChanged)
    // The items the search and the kind let through, as maps (no secret values).
    Q_PROPERTY(QVariantList items READ items NOTIFY itemsChanged)
    // How many items the vault holds, whatever the search.
    Q_PROPERTY(int total READ total NOTIFY itemsChanged)
    // The search text.
    Q_PROPERTY(QString query READ query WRITE setQuery NOTIFY itemsChanged)
    // The kind shown ("" for all).
    Q_PROPERTY(QString kind READ kind WRITE setKind NOTIFY itemsChanged)
    // The kinds in the order the screen offers them.
    Q_PROPERTY(QStringList kinds READ kinds CONSTANT)
    // The password prompt is wanted, with the reason to show in it.
    Q_PROPERTY(bool asking READ asking NOTIFY askingChanged)
    Q_PROPERTY(QString askReason READ askReason NOTIFY askingChanged)
    // The item whose secret is shown, and the secret; "" when none is.
    Q_PROPERTY(QString revealedId READ revealedId NOTIFY revealedChanged)
    Q_PROPERTY(QString revealedValue READ revealedValue NOTIFY revealedChanged)
    // The shown secret is a drawn signature (an image URL).
    Q_PROPERTY(bool revealedIsImage READ revealedIsImage NOTIFY revealedChanged)
    // A reveal, copy, save or delete is on its way.
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    // Why the last reveal, copy, save or delete failed; "" when it did not.
    Q_PROPERTY(QString actionError READ actionError NOTIFY actionErrorChanged)

public:
    // auth null: the account's password through PAM, asked in the screen's prompt.
    // clipboard null: copying is not offered. Neither is owned.
    VaultController(Api &api, OwnerAuth *auth, Clipboard *clipboard, Sleeper &sleeper,
                    QObject *parent = nullptr);
    ~VaultController() override;

    static VaultController *create(QQmlEngine *, QJSEngine *);
    static VaultController *instance();

    VaultStore *store() const { return m_store; }
    bool unlocked() const;
    bool loading() const;
    QString failure() const;
    QString authError() const;
    QVariantList items() const;
    int total() const;
    QString query() const { return m_query; }
    void setQuery(const QString &query);
    QString kind() const { return m_kind; }
    void setKind(const QString &kind);
    QStringList kinds() const;
    bool asking() const { return m_asking; }
    QString askReason() const { return m_askReason; }
    QString revealedId() const { return m_revealedId; }
    QString revealedValue() const { return m_revealedValue; }
    bool revealedIsImage() const;
    bool busy() const { return m_busy > 0; }
    QString actionError() const { return m_actionError; }

    // Whether the window is active; leaving it locks the vault and hides what was shown.
    void setActive(bool active);

    // The screen's texts in the current language (locked, lockedLine, unlock, all, search,
    // empty, emptyLine, noMatch, copied, encrypted, primary, makePrimary, primaryLine,
    // signHere, redraw, clear).
    Q_INVOKABLE QVariantMap texts() const;
    Q_INVOKABLE QString kindTitle(const QString &kind) const;
    // The form of a kind: [{"key", "input", "label"}].
    Q_INVOKABLE QVariantList fieldsOf(const QString &kind) const;

    Q_INVOKABLE void unlock();
    Q_INVOKABLE void lock();
    Q_INVOKABLE void reload();
    // The password prompt's answer; nothing of it is kept here.
    Q_INVOKABLE void answerPassword(const QString &password);
    Q_INVOKABLE void cancelPassword();

    Q_INVOKABLE void reveal(const QString &id);
    // Forgets the shown secret (the screen was left, or the eye closed).
    Q_INVOKABLE void hide();
    Q_INVOKABLE void copy(const QString &id);
    Q_INVOKABLE QString generate() const;
    // id "" for a new item. Empty fields are left out, so an edit keeps the secrets not
    // typed again.
    Q_INVOKABLE void save(const QString &id, const QString &kind, const QVariantMap &fields,
                          bool primary);
    Q_INVOKABLE void remove(const QString &id);
    // The pad's strokes ([[{x, y}, …], …]) as the text a signature is kept as; "" when empty.
    Q_INVOKABLE QString signatureText(const QVariantList &strokes, int width, int height) const;

signals:
    void unlockedChanged();
    void loadingChanged();
    void failureChanged();
    void authErrorChanged();
    void itemsChanged();
    void askingChanged();
    void revealedChanged();
    void busyChanged();
    void actionErrorChanged();
    // The prompt was answered: the password, or nothing when cancelled.
    void passwordAnswered(bool given, const QString &password);
    // A secret went to the clipboard (the screen says "Copied…").
    void copied();
    // An item was saved or deleted: the form closes.
    void saved();

private:
    QCoro::Task<std::optional<QString>> askPassword(QString reason);
    static QCoro::Task<> unlocking(QPointer<VaultController> self);
    static QCoro::Task<> revealing(QPointer<VaultController> self, QString id, bool toClipboard);
    static QCoro::Task<> saving(QPointer<VaultController> self, QString id, QString kind,
                                QMap<QString, QString> fields, bool primary);
    static QCoro::Task<> removing(QPointer<VaultController> self, QString id);
    void setRevealed(const QString &id, const QString &value);
    void setActionError(const QString &error);
    void setBusy(bool busy);
    void setAsking(bool asking, const QString &reason = {});

    std::unique_ptr<OwnerAuth> m_ownAuth;
    VaultStore *m_store;
    QString m_query;
    QString m_kind;
    bool m_asking = false;
    QString m_askReason;
    QString m_revealedId;
    QString m_revealedValue;
    int m_busy = 0;
    QString m_actionError;
    quint64 m_generation = 0; // bumped by each lock: answers of an earlier unlock are dropped
};
