// halvenmark: the desktop app.

#include "app.h"
#include "desktopapp.h"
#include "launch.h"

#include "chat/chatbackgroundtransfer.h"
#include "chat/chatstore.h"
#include "net/api.h"
#include "platform/secretstore.h"
#include "session/session.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    DesktopApp::prepareStyle();
    QGuiApplication app(argc, argv);
    QGuiApplication::setOrganizationName(u"Halvenmark"_s);
    QGuiApplication::setApplicationName(u"halvenmark"_s);
    QGuiApplication::setApplicationDisplayName(u"Halvenmark"_s);
    QGuiApplication::setApplicationVersion(Api::userAgent());

    if (const QString refused = Api::baseError(); !refused.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(refused));
        return 2;
    }

    // The stores of the app's whole life, made here and nowhere else.
    Session session(SecretStore::platform(u"Halvenmark"_s));
    session.onForget([] { ChatStore::resetAll(); });
    ChatBackgroundTransfer transfers;
    App shell(&session);

    QQmlApplicationEngine engine;
    DesktopApp::guard(engine);
    QObject::connect(&engine, &QQmlApplicationEngine::objectCreationFailed, &app,
                     [] { QCoreApplication::exit(1); }, Qt::QueuedConnection);

    LaunchSteps steps;
    // Crash capture, push registration and the health observer join here when they exist.
    steps.observeActivation = [&] {
        QObject::connect(&app, &QGuiApplication::applicationStateChanged, &shell,
                         [&](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive)
                                 shell.activated();
                         });
    };
    steps.armWindow = [&] { engine.load(QUrl(DesktopApp::mainQml)); };
    steps.run();
    if (engine.rootObjects().isEmpty())
        return 1;
    shell.boot();
    return app.exec();
}
