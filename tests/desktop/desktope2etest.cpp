// The app in a real X window (Xvfb), driven by xdotool against the reference service: sign in
// with the keyboard, send a message from the composer, see the agent's reply arrive.

#include "platform/appdata.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// A tool run against the test's own X display.
bool onDisplay(const QString &display, const QString &program, const QStringList &args)
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    tool.setProcessEnvironment(env);
    tool.start(program, args);
    return tool.waitForFinished(20000) && tool.exitCode() == 0;
}

bool homeHolds(const QString &home, const QByteArray &text)
{
    QDirIterator it(home, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        if (file.open(QIODevice::ReadOnly) && file.readAll().contains(text))
            return true;
    }
    return false;
}

bool chatPosted(Service &service, const QByteArray &text)
{
    for (const QJsonValue &entry : service.log()) {
        const QJsonObject request = entry.toObject();
        if (request.value(u"method"_s).toString() == u"POST" &&
            request.value(u"path"_s).toString() == u"webapi/chat" &&
            request.value(u"body"_s).toString().toUtf8().contains(text))
            return true;
    }
    return false;
}

} // namespace

class DesktopEndToEndTest : public QObject
{
    Q_OBJECT

private slots:
    void signInSendAndReply();
};

void DesktopEndToEndTest::signInSendAndReply()
{
    if (QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty() ||
        QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        QSKIP("Xvfb and xdotool are needed");

    Service service;
    QVERIFY(service.running());
    TestHome home;
    AppData::setSetting(u"rb.onboarded"_s, true);
    AppData::setSetting(u"rb.lang"_s, u"en"_s);

    // A free display: Xvfb names the one it took.
    QProcess xvfb;
    xvfb.start(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1100x800x24"_s,
                           u"-nolisten"_s, u"tcp"_s});
    QVERIFY(xvfb.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(xvfb.canReadLine(), 15000);
    const QString display = u":"_s + QString::fromLatin1(xvfb.readLine().trimmed());

    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    env.insert(u"HALVENMARK_SERVER"_s, service.base().toString());
    env.insert(u"HALVENMARK_SECRETS"_s, u"file"_s);
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(QStringLiteral(HALVENMARK_APP), {});
    QVERIFY(app.waitForStarted());

    const auto xdotool = [&](const QStringList &args) {
        return onDisplay(display, u"xdotool"_s, args);
    };
    const auto type = [&](const QString &text) {
        return xdotool({u"type"_s, u"--delay"_s, u"30"_s, text});
    };
    // xdotool gives up on an X error (a window going while it looks): asked again until found.
    QTRY_VERIFY_WITH_TIMEOUT(
        xdotool({u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--name"_s, u"Halvenmark"_s}),
        30000);
    QTest::qWait(800);
    // The user-name field has the focus; Tab to the password; Enter signs in.
    QVERIFY(type(u"demo"_s) && xdotool({u"key"_s, u"Tab"_s}));
    QVERIFY(type(u"demo-password"_s) && xdotool({u"key"_s, u"Return"_s}));
    QTRY_VERIFY_WITH_TIMEOUT(homeHolds(home.path(), "\"user\":\"demo\"") ||
                                 homeHolds(home.path(), "\"user\": \"demo\""),
                             15000);
    QTest::qWait(800);

    // The composer has the focus after sign-in.
    QVERIFY(type(u"Bus from the window"_s) && xdotool({u"key"_s, u"Return"_s}));
    QTRY_VERIFY_WITH_TIMEOUT(chatPosted(service, "Bus from the window"), 15000);
    QTRY_VERIFY_WITH_TIMEOUT(homeHolds(home.path(), "I found the bus times"), 30000);
    // A picture of the reply, where ImageMagick's import is installed.
    QDir().mkpath(QStringLiteral(HALVENMARK_SHOTS));
    onDisplay(display, u"import"_s,
              {u"-window"_s, u"root"_s, QStringLiteral(HALVENMARK_SHOTS) + u"/e2e-reply.png"_s});

    // A polite end (SIGTERM) is a normal exit, not a crash.
    app.terminate();
    const bool ended = app.waitForFinished(10000);
    if (!ended)
        app.kill();
    xvfb.terminate();
    xvfb.waitForFinished(5000);
    QVERIFY(ended);
    QCOMPARE(app.exitStatus(), QProcess::NormalExit);
    QCOMPARE(app.exitCode(), 0);
}

QTEST_GUILESS_MAIN(DesktopEndToEndTest)
#include "desktope2etest.moc"
