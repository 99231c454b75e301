// The call screen under Qt Quick Test: a controller over the in-process server and the
// file-backed devices, which the QML cases drive through the fixture below.

#include "callcontroller.h"
#include "desktopstage.h"
#include "fakecalllink.h"

#include "platform/fileaudioport.h"
#include "support/fakeclock.h"
#include "support/fakesleeper.h"
#include "support/testapi.h"
#include "support/testhome.h"
#include "voice/voicetuning.h"

#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest>

#include <memory>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

// Test hooks for the QML cases: the server's frames, the language, the microphone.
class CallFixture : public QObject
{
    Q_OBJECT

public:
    CallFixture(FakeCallLink *link, FileAudioPort *port)
        : m_link(link)
        , m_port(port)
    {}

    Q_INVOKABLE void serve(const QString &json) { m_link->serve(json.toUtf8()); }
    Q_INVOKABLE void language(const QString &code) { L::set(code); }
    // A chunk of the user's voice, as the microphone would hand it over.
    Q_INVOKABLE void speak(CallController *controller, int level)
    {
        QByteArray pcm(960, '\0');
        for (qsizetype i = 0; i + 1 < pcm.size(); i += 4) {
            pcm[i] = char(level & 0xff);
            pcm[i + 1] = char(level >> 8);
        }
        controller->call()->push(pcm);
    }
    Q_INVOKABLE bool deviceOpen() const { return m_port->isOpen(); }

private:
    FakeCallLink *m_link;
    FileAudioPort *m_port;
};

class Setup : public QObject
{
    Q_OBJECT

public slots:
    void applicationAvailable()
    {
        DesktopStage::fixLook();
        m_home = std::make_unique<TestHome>();
        qputenv("HALVENMARK_SERVER", "http://127.0.0.1:9");
        m_stage = std::make_unique<DesktopStage>(api, m_home->path());
        auto *link = new FakeCallLink;
        auto *port = new FileAudioPort;
        port->outputList = {{"speakers", u"Built-in speakers"_s},
                            {"bluez_sink.headset", u"Headset"_s}};
        m_call = std::make_unique<CallController>(
            ChatScope::main(), u"tester"_s, std::unique_ptr<CallLink>(link),
            std::unique_ptr<AudioPort>(port), m_sleeper, m_clock, m_tuning);
        m_fixture = std::make_unique<CallFixture>(link, port);
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        DesktopStage::prepare(*engine,
                              {{u"testCall"_s, m_call.get()}, {u"fixture"_s, m_fixture.get()}});
    }

    void cleanupTestCase()
    {
        m_call->hangUp();
        m_sleeper.advance();
        QCoreApplication::processEvents();
        m_fixture.reset();
        m_call.reset();
        m_stage.reset();
        m_home.reset();
    }

private:
    std::unique_ptr<TestHome> m_home;
    TestApi api;
    std::unique_ptr<DesktopStage> m_stage;
    FakeSleeper m_sleeper;
    FakeClock m_clock;
    VoiceTuning m_tuning;
    std::unique_ptr<CallController> m_call;
    std::unique_ptr<CallFixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(callscreen, Setup)

#include "callscreentest.moc"
