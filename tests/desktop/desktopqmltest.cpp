// The screens under Qt Quick Test: a signed-out session, and one conversation the tests fill
// themselves (the server is a closed loopback port, so turns stay in the outbox).

#include "chatcontroller.h"
#include "desktopstage.h"

#include "chat/model/messagesfeed.h"
#include "support/testapi.h"
#include "support/testhome.h"

#include <QJsonDocument>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest>

#include <memory>

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

public slots:
    void applicationAvailable()
    {
        DesktopStage::fixLook();
        m_home = std::make_unique<TestHome>();
        // Nothing listens on the discard port: every send stays in the outbox.
        qputenv("HALVENMARK_SERVER", "http://127.0.0.1:9");
        m_stage = std::make_unique<DesktopStage>(api, m_home->path());
        m_chat = std::make_unique<ChatController>(m_stage->chats, ChatScope::main(), u"tester"_s,
                                                  u"user"_s);
        m_chat->store()->prepare();
        m_fixture = std::make_unique<Fixture>(m_chat.get());
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        DesktopStage::prepare(*engine,
                              {{u"testChat"_s, m_chat.get()}, {u"fixture"_s, m_fixture.get()}});
    }

    void cleanupTestCase()
    {
        m_fixture.reset();
        m_chat.reset();
        m_stage.reset();
        m_home.reset();
    }

private:
    TestApi api;
    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<DesktopStage> m_stage;
    std::unique_ptr<ChatController> m_chat;
    std::unique_ptr<Fixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(desktopqml, Setup)

#include "desktopqmltest.moc"
