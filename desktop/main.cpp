// halvenmark: the desktop app.

#include "app.h"
#include "desktopapp.h"
#include "launch.h"
#include "healthcontroller.h"
#include "notifycontroller.h"
#include "vaultcontroller.h"

#include "app/crash.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/store/chatstores.h"
#include "app/reportqueue.h"
#include "platform/clock.h"
#include "platform/reachability.h"
#include "net/api.h"
#include "net/networkmanager.h"
#include "net/wire.h"
#include "platform/appactivity.h"
#include "platform/clock.h"
#include "platform/guiclipboard.h"
#include "platform/notifier.h"
#include "platform/ports.h"
#include "platform/reachability.h"
#include "platform/secretstore.h"
#include "platform/sleeper.h"
#include "session/session.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

namespace {

int quitPipe[2] = {-1, -1};

void onQuitSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(quitPipe[1], &byte, 1);
}

// SIGTERM and SIGINT end the app the normal way, so the draft and the window are saved.
void quitOnSignals(QObject *context)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, quitPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(quitPipe[0], QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context,
                     [] { QCoreApplication::quit(); });
    struct sigaction action = {};
    action.sa_handler = onQuitSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    DesktopApp::prepareStyle();
    QGuiApplication app(argc, argv);
    QGuiApplication::setOrganizationName(u"Halvenmark"_s);
    QGuiApplication::setApplicationName(u"halvenmark"_s);
    QGuiApplication::setApplicationDisplayName(u"Halvenmark"_s);
    QGuiApplication::setApplicationVersion(Wire::userAgent());
    quitOnSignals(&app);

    // --- The transport: one network manager and one Api for the app's whole life. ---
    Api api(Network::create(&app), ServerAddress::configured());
    if (const QString refused = api.baseError(); !refused.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(refused));
        return 2;
    }
    // --- end of the transport ---

    // The transport and the machine's services, built once here and handed down.
    Reachability *reachability = Reachability::platform(&app);
    const Ports ports{api, Clock::system(), Sleeper::real(), *reachability};

    // The stores of the app's whole life, made here and nowhere else.
    ChatStores chats(ChatPorts{api, ports.sleeper, ports.reachability, ports.clock});
    Session session(api, SecretStore::platform(u"Halvenmark"_s));
    session.onForget([&chats] { chats.reset(); });
    ChatBackgroundTransfer transfers(api, ports.sleeper);
    App shell(&session, ports, chats);
    NotifyController notify(api, Notifier::platform(&app));
    HealthController health(api, [&session] { return session.user(); }, ports.clock);
    GuiClipboard clipboard;
    VaultController vault(api, nullptr, GuiClipboard::displayPresent() ? &clipboard : nullptr,
                          ports.sleeper);

    QQmlApplicationEngine engine;
    DesktopApp::guard(engine);
    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, &app,
        [] { QCoreApplication::exit(1); }, Qt::QueuedConnection);

    LaunchSteps steps;
    steps.armCrash = [&] {
        Crash::Setup setup;
        setup.post = ReportQueue::server(api);
        Crash::arm(ports.clock, setup);
        Crash::setSurface(u"desktop"_s);
        // What the last run left goes out once the server knows who we are.
        QObject::connect(&session, &Session::gateChanged, &session, [&session] {
            if (session.gate() == Session::Gate::Ready && Crash::waiting() > 0 && !Crash::flushing()) {
                auto sending = Crash::flush();
                Q_UNUSED(sending)
            }
        });
    };
    steps.armPush = [&] {
        notify.arm();
        // Task ends come from the main conversation's live socket.
        QObject::connect(&shell, &App::chatChanged, &notify,
                         [&] { notify.follow(shell.chat() ? shell.chat()->store() : nullptr); });
        QObject::connect(&notify, &NotifyController::routed, &engine, [&engine] {
            for (QObject *root : engine.rootObjects()) {
                if (auto *window = qobject_cast<QQuickWindow *>(root)) {
                    window->show();
                    window->raise();
                    window->requestActivate();
                }
            }
        });
    };
    // Once the session knows who is signed in: another account unlinks this computer.
    steps.armHealth = [&] {
        auto armed = std::make_shared<bool>(false);
        auto armOnce = [&session, &health, armed] {
            if (*armed || !session.signedIn() || session.user().isEmpty())
                return;
            *armed = true;
            health.arm();
        };
        QObject::connect(&session, &Session::gateChanged, &health, armOnce);
        armOnce();
    };
    steps.observeActivation = [&] {
        QObject::connect(&app, &QGuiApplication::applicationStateChanged, &shell,
                         [&](Qt::ApplicationState state) {
                             // "In front" for crash reports means the window is active.
                             Crash::setForeground(state == Qt::ApplicationActive);
                             if (state == Qt::ApplicationActive)
                                 shell.activated();
                         });
        // Leaving the window locks the vault; away from it, task ends become notifications.
        AppActivity::follow(&vault, [&](bool active) {
            vault.setActive(active);
            notify.setActive(active);
        });
    };
    steps.armWindow = [&] { engine.load(QUrl(DesktopApp::mainQml)); };
    steps.run();
    if (engine.rootObjects().isEmpty())
        return 1;
    shell.boot();
    const int code = app.exec();
    Network::settle();
    Crash::settled();
    return code;
}
