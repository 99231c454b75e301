#pragma once

#include "app.h"
#include "desktopapp.h"

#include "chat/store/chatstores.h"
#include "platform/filesecretstore.h"
#include "support/liveports.h"
#include "text/l.h"

#include <QDir>
#include <QFont>
#include <QGuiApplication>
#include <QQmlContext>
#include <QQmlEngine>

#include <utility>

// The app the screens run in: a session keeping its secrets under the test's home, the live
// ports, the chat stores and App, past onboarding. Made once the test has named its server.
struct DesktopStage {
    DesktopStage(Api &api, const QString &home)
        : live(api)
        , chats(ChatPorts{api, Sleeper::real(), live.reachability, Clock::system()})
        , session(api, std::make_unique<FileSecretStore>(QDir(home).filePath(u"secrets"_qs)))
        , app(&session, live.ports, chats)
    {
        app.setOnboarded(true);
    }

    LivePorts live;
    ChatStores chats;
    Session session;
    App app;

    // Screenshots from any machine look alike: one style, one font, English to begin with.
    static void fixLook()
    {
        DesktopApp::prepareStyle();
        QGuiApplication::setFont(QFont(u"DejaVu Sans"_qs, 10));
        L::set(u"en"_qs);
    }

    // The engine as the app sets it up, with the test's objects and where screenshots go.
    static void prepare(QQmlEngine &engine, const QList<std::pair<QString, QObject *>> &objects)
    {
        DesktopApp::guard(engine);
        engine.addImportPath(u"qrc:/"_qs);
        for (const auto &[name, object] : objects)
            engine.rootContext()->setContextProperty(name, object);
        engine.rootContext()->setContextProperty(u"shotFolder"_qs, shots());
        QDir().mkpath(shots());
    }

    static QString shots() { return QStringLiteral(HALVENMARK_SHOTS); }
};
