// The screens under Qt Quick Test: a signed-out session, and one conversation the tests fill
// themselves (the server is a closed loopback port, so turns stay in the outbox).

#include "app.h"
#include "chatcontroller.h"
#include "desktopapp.h"

#include "chat/model/messagesfeed.h"
#include "chat/store/chatstores.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "support/fakereachability.h"
#include "platform/filesecretstore.h"
#include "support/liveports.h"
#include "support/testapi.h"
#include "support/testhome.h"
#include "text/l.h"

#include <QDir>
#include <QFont>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QQmlContext>
#include <QQmlEngine>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest>

#include <memory>
#include <optional>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

// Test hooks for the QML cases: fill the conversation, switch the language.
class Fixture : public QObject
{
    Q_OBJECT


public:
    explicit Fixture(ChatController *chat)
        : m_chat(chat)
    {}

    // Replaces the conversation with the given server messages (a JSON array).
    Q_INVOKABLE void messages(const QString &json)
    {
        const QJsonDocument array = QJsonDocument::fromJson(json.toUtf8());
        QJsonObject page{{u"ok"_s, true}, {u"messages"_s, array.array()}};
        m_chat->store()->absorb(MessagesFeed::fromJson(page), true);
    }
    Q_INVOKABLE void language(const QString &code) { L::set(code); }

private:
    ChatController *m_chat;
};

class Setup : public QObject
{
    Q_OBJECT

public:
    Setup() = default;

public slots:
    void applicationAvailable()
    {
        DesktopApp::prepareStyle();
        QGuiApplication::setFont(QFont(u"DejaVu Sans"_s, 10));
        m_home = std::make_unique<TestHome>();
        // Nothing listens on the discard port: every send stays in the outbox.
        qputenv("HALVENMARK_SERVER", "http://127.0.0.1:9");
        L::set(u"en"_s);
        m_session = std::make_unique<Session>(api, 
            std::make_unique<FileSecretStore>(QDir(m_home->path()).filePath(u"secrets"_s)));
        m_live.emplace(api);
        m_app = std::make_unique<App>(m_session.get(), m_live->ports, m_chats);
        m_app->setOnboarded(true);
        m_chat = std::make_unique<ChatController>(m_chats, ChatScope::main(), u"tester"_s, u"user"_s);
        m_chat->store()->prepare();
        m_fixture = std::make_unique<Fixture>(m_chat.get());
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        DesktopApp::guard(*engine);
        engine->addImportPath(u"qrc:/"_s);
        engine->rootContext()->setContextProperty(u"testChat"_s, m_chat.get());
        engine->rootContext()->setContextProperty(u"fixture"_s, m_fixture.get());
        engine->rootContext()->setContextProperty(u"shotFolder"_s,
                                                  QStringLiteral(HALVENMARK_SHOTS));
        QDir().mkpath(QStringLiteral(HALVENMARK_SHOTS));
    }

    void cleanupTestCase()
    {
        m_fixture.reset();
        m_chat.reset();
        m_app.reset();
        m_session.reset();
        m_home.reset();
    }

private:
    TestApi api;
    FakeReachability m_reachability;
    ChatStores m_chats{ChatPorts{api, Sleeper::real(), m_reachability, Clock::system()}};
    std::unique_ptr<TestHome> m_home;
    std::optional<LivePorts> m_live;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<App> m_app;
    std::unique_ptr<ChatController> m_chat;
    std::unique_ptr<Fixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(desktopqml, Setup)

#include "desktopqmltest.moc"
