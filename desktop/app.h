#pragma once

#include "foreign.h"

#include <QCoroTask>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QRect>
#include <QtQml/qqmlregistration.h>

#include <functional>

#include "chatcontroller.h"
#include "callcontroller.h"
#include "voicecontroller.h"
class ChatStores;
#include "platform/ports.h"
class QQmlEngine;
class QJSEngine;

// The long-lived state behind the window: the session, the language, the window settings and,
// while someone is signed in, the main conversation. Made once by main; QML reaches it as the
// App singleton.
class App : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    // The signed-in identity.
    Q_PROPERTY(Session *session READ session CONSTANT)
    // The language the window speaks and its direction.
    Q_PROPERTY(Language *language READ language CONSTANT)
    // "out", "checking", "offline" or "ready": the sign-in screen or the shell.
    Q_PROPERTY(QString gate READ gate NOTIFY gateChanged)
    // The main conversation; null while signed out.
    Q_PROPERTY(ChatController *chat READ chat NOTIFY chatChanged)
    // A project's conversation opened from the projects page; null when none.
    Q_PROPERTY(ChatController *projectChat READ projectChat NOTIFY projectChatChanged)
    Q_PROPERTY(QString projectName READ projectName NOTIFY projectChatChanged)
    // Live voice calls of the main conversation; null while signed out.
    Q_PROPERTY(CallController *call READ call NOTIFY chatChanged)
    // "rb.skin": the colour skin ("classic", "ocean", "forest").
    Q_PROPERTY(QString skin READ skin WRITE setSkin NOTIFY skinChanged)
    // "rb.appearance": "light", "dark" or "auto" (the system's).
    Q_PROPERTY(QString appearance READ appearance WRITE setAppearance NOTIFY appearanceChanged)
    // "rb.onboarded": the first-run introduction is done.
    Q_PROPERTY(bool onboarded READ onboarded WRITE setOnboarded NOTIFY onboardedChanged)
    // A sign-in, sign-out or deletion is running.
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    // Why the last sign-in or account action failed, in the current language; "" when none.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    // The one voice player of the app, for every message of every conversation.
    Q_PROPERTY(VoiceController *voice READ voice CONSTANT)

public:
    // The ports and the chat stores outlive the app.
    App(Session *session, const Ports &ports, ChatStores &chats, QObject *parent = nullptr);
    ~App() override;

    static App *create(QQmlEngine *, QJSEngine *);
    static App *instance();

    Session *session() const { return m_session; }
    // The transport and the machine's services main built, for the objects QML makes.
    const Ports &ports() const { return m_ports; }
    Language *language() const { return m_language; }
    QString gate() const;
    ChatController *chat() const { return m_chat; }
    ChatController *projectChat() const { return m_projectChat; }
    QString projectName() const { return m_projectName; }
    CallController *call() const { return m_call; }
    QString skin() const;
    void setSkin(const QString &skin);
    QString appearance() const;
    void setAppearance(const QString &appearance);
    bool onboarded() const;
    void setOnboarded(bool done);
    bool busy() const { return m_busy; }
    QString error() const { return m_error; }
    VoiceController *voice() const { return m_voice; }

    // Start-up after the launch steps: the session from the keychain, then the server.
    void boot();

    // Text choice for QML (bindings also read language.language so that they re-run).
    Q_INVOKABLE QString t(const QString &he, const QString &en, const QString &ru) const;
    Q_INVOKABLE QString word(const QString &raw) const;
    // The compact age of an ISO moment or of seconds since 1970; "" when unreadable.
    Q_INVOKABLE QString age(const QVariant &moment) const;
    // A tab's title for a page name of the profile.
    Q_INVOKABLE QString pageTitle(const QString &page) const;

    Q_INVOKABLE void signIn(const QString &user, const QString &password);
    Q_INVOKABLE void signInWithToken(const QString &token);
    Q_INVOKABLE void signOut();
    Q_INVOKABLE void deleteAccount();
    Q_INVOKABLE void setLanguage(const QString &code);
    Q_INVOKABLE void clearError();
    Q_INVOKABLE void openProject(int id, const QString &name);
    Q_INVOKABLE void closeProject();

    // Window placement, kept between runs; an empty rect when none is saved.
    Q_INVOKABLE QRect windowGeometry() const;
    Q_INVOKABLE void saveWindowGeometry(const QRect &rect);

    // The shell is on screen: its first frame is logged (halvenmark.desktop.startup) with the
    // time since start and the memory in use.
    Q_INVOKABLE void shellShown(QQuickWindow *window);

    // The window became active: the session and the chat catch up (at most every 10 s).
    Q_INVOKABLE void activated();

signals:
    void gateChanged();
    void chatChanged();
    void projectChatChanged();
    void skinChanged();
    void appearanceChanged();
    void onboardedChanged();
    void busyChanged();
    void errorChanged();

private:
    void follow();
    void setBusy(bool busy);
    void setError(const QString &error);
    void run(std::function<QCoro::Task<>()> work);
    static QCoro::Task<> runGuarded(QPointer<App> app, std::function<QCoro::Task<>()> work);
    static QCoro::Task<> catchUp(QPointer<App> app);

    Session *m_session;
    ChatStores &m_chats;
    const Ports m_ports;
    Language *m_language;
    ChatController *m_chat = nullptr;
    ChatController *m_projectChat = nullptr;
    QString m_projectName;
    CallController *m_call = nullptr;
    bool m_busy = false;
    QString m_error;
    qint64 m_lastCatchUp = 0;
    QElapsedTimer m_sinceStart;
    bool m_shellShown = false;
    VoiceController *m_voice;
};
