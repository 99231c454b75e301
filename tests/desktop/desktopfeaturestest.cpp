// The controllers behind the notifications, the health panel and the vault, against the
// reference service, with fakes for the owner's password, the clipboard and the notifier.

#include "healthcontroller.h"
#include "notifycontroller.h"
#include "signatureimage.h"
#include "vaultcontroller.h"

#include "app/fakenotifier.h"
#include "chat/store/chatstore.h"
#include "features/vault/vaultstore.h"
#include "features/vault/vaulttext.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"
#include "support/fakeclipboard.h"
#include "support/fakeclock.h"
#include "support/fakeowner.h"
#include "support/fakereachability.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "text/l.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

ChatFrame frame(const QString &type, const QString &run, const QString &conversation = u"main"_s)
{
    ChatFrame f;
    f.type = type;
    f.runID = run;
    f.conversationID = conversation;
    return f;
}

} // namespace

class DesktopFeaturesTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity{service};
    FakeSleeper sleeper;
    FakeOwner owner;
    FakeClipboard clipboard;

    // An unlocked vault holding one login, as the screen shows it after the password.
    void unlockWithLogin(VaultController &vault, const QString &password)
    {
        Sync::run(vault.store()->save(std::nullopt, VaultKind::Login,
                                      {{u"title"_s, u"Mail"_s}, {u"password"_s, password}}, false));
        vault.unlock();
        QTRY_VERIFY(vault.unlocked() && vault.items().size() == 1);
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        L::pin(u"en"_s);
        service.reset();
        identity.signIn();
        owner = FakeOwner();
        clipboard = FakeClipboard();
    }

    void notificationClickOpensItsPage_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("conversation");
        QTest::addColumn<qint64>("seq");
        QTest::addColumn<bool>("active");
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("item");
        QTest::newRow("task") << u"Task #12 · Weekly report"_s << u"main"_s << qint64(4) << false
                              << u"tasks"_s << u"12"_s;
        QTest::newRow("project") << u"Tidy the notes"_s << u"project:3"_s << qint64(0) << false
                                 << u"projects"_s << u"3"_s;
        QTest::newRow("message") << u"Looking it up"_s << u"main"_s << qint64(7) << false
                                 << u"chat"_s << u"7"_s;
        QTest::newRow("window active: no notification")
            << u"Task #12 · Weekly report"_s << u"main"_s << qint64(4) << true << QString()
            << QString();
    }

    void notificationClickOpensItsPage()
    {
        QFETCH(QString, label);
        QFETCH(QString, conversation);
        QFETCH(qint64, seq);
        QFETCH(bool, active);
        QFETCH(QString, page);
        QFETCH(QString, item);
        FakeNotifier notifier;
        NotifyController notify(identity.api(), &notifier);
        notify.arm();
        FakeReachability reachability;
        FakeClock clock;
        ChatStore store(ChatScope::main(), u"demo"_s, u"user"_s,
                        ChatPorts{identity.api(), sleeper, reachability, clock});
        notify.follow(&store);
        notify.setActive(active);
        QSignalSpy routed(&notify, &NotifyController::routed);

        ChatFrame start = frame(u"run_started"_s, u"run_1"_s, conversation);
        start.label = label;
        start.userSeq = seq;
        emit store.frameArrived(start);
        ChatFrame end = frame(u"final"_s, u"run_1"_s, conversation);
        end.text = u"Done."_s;
        emit store.frameArrived(end);
        emit store.frameArrived(end); // a reconnecting socket says it again

        if (active) {
            QVERIFY(notifier.shown.isEmpty());
            return;
        }
        QCOMPARE(notifier.shown.size(), 1);
        QCOMPARE(notifier.shown[0].title, u"Task finished"_s);
        QVERIFY(notify.takeRoute().isEmpty());
        notifier.click(notifier.shown[0].key);
        QCOMPARE(routed.size(), 1);
        const QVariantMap route = notify.takeRoute();
        QCOMPARE(route.value(u"page"_s).toString(), page);
        QCOMPARE(route.value(u"item"_s).toString(), item);
        QVERIFY(notify.takeRoute().isEmpty()); // taken once
    }

    void anEditKeepsTheSecretsLeftEmpty()
    {
        VaultController vault(identity.api(), &owner, &clipboard, sleeper);
        unlockWithLogin(vault, u"kept"_s);
        const QString id = vault.store()->items().first().id;
        QSignalSpy saved(&vault, &VaultController::saved);
        service.clearLog();
        vault.save(id, u"login"_s, {{u"title"_s, u" Mail box "_s}, {u"password"_s, u""_s}}, true);
        QTRY_COMPARE(saved.size(), 1);
        const QList<QJsonObject> posts = service.requests(u"webapi/vault/"_s + id);
        QCOMPARE(posts.size(), 1);
        const QJsonObject body =
            QJsonDocument::fromJson(posts[0][u"body"_s].toString().toUtf8()).object();
        QVERIFY(!body.contains(u"password"_s));
        QCOMPARE(body[u"title"_s].toString(), u"Mail box"_s);
        QCOMPARE(vault.items().first().toMap()[u"primary"_s].toBool(), true);
        vault.reveal(id);
        QTRY_COMPARE(vault.revealedValue(), u"kept"_s);
        // A new item without a title is refused here, with a reason.
        vault.save(QString(), u"note"_s, {{u"note"_s, u"x"_s}}, false);
        QVERIFY(!vault.actionError().isEmpty());
    }

    void thePromptAsksAndACancelLeavesItLocked()
    {
        VaultController vault(identity.api(), nullptr, &clipboard, sleeper); // the account's password, asked
        QSignalSpy asking(&vault, &VaultController::askingChanged);
        vault.unlock();
        QTRY_VERIFY(vault.asking());
        QCOMPARE(vault.askReason(), VaultText::reason());
        vault.setActive(false); // leaving the window closes the prompt
        QTRY_VERIFY(!vault.asking());
        QVERIFY(!vault.unlocked());
        QVERIFY(!vault.authError().isEmpty());
    }

    void signatureKeepsItsStrokes_data()
    {
        QTest::addColumn<QVariantList>("strokes");
        QTest::addColumn<bool>("drawn");
        const auto point = [](double x, double y) { return QVariantMap{{u"x"_s, x}, {u"y"_s, y}}; };
        QTest::newRow("a dot and a line")
            << QVariantList{QVariantList{point(5, 5)}, QVariantList{point(10, 50), point(290, 50)}}
            << true;
        QTest::newRow("nothing") << QVariantList{} << false;
        QTest::newRow("empty strokes") << QVariantList{QVariantList{}} << false;
    }

    void signatureKeepsItsStrokes()
    {
        QFETCH(QVariantList, strokes);
        QFETCH(bool, drawn);
        const QString text =
            SignatureImage::encode(SignatureImage::strokesOf(strokes), QSize(300, 100));
        QCOMPARE(!text.isEmpty(), drawn);
        if (!drawn)
            return;
        const QImage image = SignatureImage::decode(text);
        QCOMPARE(image.size(), QSize(300, 100));
        QVERIFY(qAlpha(image.pixel(150, 50)) > 200); // ink on the stroke
        QCOMPARE(qAlpha(image.pixel(150, 90)), 0);   // nothing under it
        QVERIFY(SignatureImage::decode(u"data:image/png;base64,AAAA"_s).isNull());
    }

    void anExportLinksSyncsAndDisconnects()
    {
        const QString day = QDateTime::currentDateTime().addDays(-2).toString(u"yyyy-MM-dd"_s);
        const QString path = QDir(home.path()).filePath(u"export.xml"_s);
        QVERIFY(AtomicFile::write(path, uR"(<?xml version="1.0" encoding="UTF-8"?>
<HealthData locale="en_US">
 <Record type="HKQuantityTypeIdentifierStepCount" sourceName="Phone" unit="count" startDate="%1 08:00:00 +0000" endDate="%1 08:10:00 +0000" value="600"/>
 <Workout workoutActivityType="HKWorkoutActivityTypeRunning" duration="30" durationUnit="min" sourceName="Watch" startDate="%1 07:00:00 +0000" endDate="%1 07:30:00 +0000"/>
</HealthData>
)"_s.arg(day)
                                            .toUtf8()));

        HealthController health(identity.api(), [] { return u"demo"_s; }, Clock::system());
        QSignalSpy syncing(&health, &HealthController::syncingChanged);
        health.linkExport(QUrl::fromLocalFile(path));
        QTRY_VERIFY(syncing.size() >= 2 && !health.syncing());
        QVERIFY2(health.failure().isEmpty(), qPrintable(health.failure()));
        QVERIFY(health.linked());
        QCOMPARE(health.exportName(), u"export.xml"_s);
        QCOMPARE(health.workouts().size(), 1);
        QCOMPARE(health.workouts()[0].toMap()[u"title"_s].toString(), u"Running"_s);

        // The next start finds the same export again.
        {
            HealthController again(identity.api(), [] { return u"demo"_s; }, Clock::system());
            again.arm();
            QVERIFY(again.linked());
            QCOMPARE(again.exportName(), u"export.xml"_s);
        }
        health.disconnectHealth(true);
        QTRY_VERIFY(!health.linked());
        QVERIFY(health.exportName().isEmpty());
        QVERIFY(!AppData::setting(QString::fromLatin1(HealthController::exportKey)).isValid());
    }
};

QTEST_MAIN(DesktopFeaturesTest)

#include "desktopfeaturestest.moc"
