// The health panel, the vault and the notification check under Qt Quick Test, against the
// reference service; the owner's password and the clipboard are fakes.

#include "desktopstage.h"
#include "healthcontroller.h"
#include "notifycontroller.h"
#include "vaultcontroller.h"

#include "app/fakenotifier.h"
#include "features/vault/vaultstore.h"
#include "platform/atomicfile.h"
#include "support/fakeclipboard.h"
#include "support/fakeowner.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "support/testidentity.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest>

#include <memory>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

// Hooks for the QML cases: the language, what the service holds, the window's activity.
class Fixture : public QObject
{
    Q_OBJECT

public:
    Fixture(Service &service, QString home, Api &api)
        : api(api)
        , m_service(service)
        , m_home(std::move(home))
    {}

    Q_INVOKABLE void language(const QString &code) { L::set(code); }
    Q_INVOKABLE void active(bool active) { VaultController::instance()->setActive(active); }

    // Three items of different kinds, saved as another device would have.
    Q_INVOKABLE void seedVault()
    {
        VaultStore store(api, m_owner, nullptr, m_sleeper);
        const QList<std::pair<VaultKind, QMap<QString, QString>>> items{
            {VaultKind::Login,
             {{u"title"_s, u"Mail"_s},
              {u"username"_s, u"dana@example.com"_s},
              {u"url"_s, u"https://mail.example.com"_s},
              {u"password"_s, u"k7#Rq2!vZ9"_s}}},
            {VaultKind::ApiKey,
             {{u"title"_s, u"OpenWeather"_s},
              {u"service"_s, u"weather"_s},
              {u"key"_s, u"ow-123"_s}}},
            {VaultKind::Card,
             {{u"title"_s, u"Visa"_s},
              {u"cardholder"_s, u"Dana Levi"_s},
              {u"number"_s, u"4111111111111111"_s}}},
        };
        for (const auto &[kind, fields] : items)
            Sync::run(store.save(std::nullopt, kind, fields, kind == VaultKind::Login));
    }

    // An export with two recent workouts, linked and uploaded.
    Q_INVOKABLE QString healthExportUrl()
    {
        const QString day = QDateTime::currentDateTime().addDays(-1).toString(u"yyyy-MM-dd"_s);
        const QString other = QDateTime::currentDateTime().addDays(-3).toString(u"yyyy-MM-dd"_s);
        const QString path = QDir(m_home).filePath(u"export.xml"_s);
        const bool written = AtomicFile::write(path, uR"(<?xml version="1.0" encoding="UTF-8"?>
<HealthData locale="en_US">
 <Record type="HKQuantityTypeIdentifierStepCount" sourceName="Phone" unit="count" startDate="%1 08:00:00 +0000" endDate="%1 08:10:00 +0000" value="6400"/>
 <Workout workoutActivityType="HKWorkoutActivityTypeRunning" duration="42" durationUnit="min" sourceName="Watch" startDate="%1 07:00:00 +0000" endDate="%1 07:42:00 +0000">
  <WorkoutStatistics type="HKQuantityTypeIdentifierActiveEnergyBurned" sum="410" unit="Cal"/>
  <WorkoutStatistics type="HKQuantityTypeIdentifierDistanceWalkingRunning" sum="7.2" unit="km"/>
  <WorkoutStatistics type="HKQuantityTypeIdentifierHeartRate" average="148" minimum="90" maximum="171" unit="count/min"/>
 </Workout>
 <Workout workoutActivityType="HKWorkoutActivityTypeYoga" duration="30" durationUnit="min" sourceName="Watch" startDate="%2 18:00:00 +0000" endDate="%2 18:30:00 +0000"/>
</HealthData>
)"_s.arg(day, other)
                                                         .toUtf8());
        return written ? QUrl::fromLocalFile(path).toString() : QString();
    }

    // The next status answer names these readiness problems.
    Q_INVOKABLE void pushProblems(const QStringList &codes)
    {
        m_service.fault({{"match", "webapi/push/status"},
                         {"status", 200},
                         {"body", QJsonObject{{"ready", false},
                                              {"errors", QJsonArray::fromStringList(codes)}}}});
    }

private:
    Api &api;
    Service &m_service;
    QString m_home;
    FakeOwner m_owner;
    FakeSleeper m_sleeper;
};

class Setup : public QObject
{
    Q_OBJECT

public slots:
    void applicationAvailable()
    {
        DesktopStage::fixLook();
        m_home = std::make_unique<TestHome>();
        m_service = std::make_unique<Service>();
        qputenv("HALVENMARK_SERVER", m_service->base().toString().toUtf8());
        Api &api = m_identity.api();
        m_stage = std::make_unique<DesktopStage>(api, m_home->path());
        // Requests go out as the test's own identity, not the signed-out session's.
        m_identity.use(*m_service);
        m_identity.signIn();
        m_notify = std::make_unique<NotifyController>(api, &m_notifier);
        m_notify->arm();
        m_health = std::make_unique<HealthController>(
            api, [] { return u"demo"_s; }, m_stage->live.ports.clock);
        m_vault = std::make_unique<VaultController>(api, &m_owner, &m_clipboard, m_sleeper);
        m_fixture = std::make_unique<Fixture>(*m_service, m_home->path(), api);
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        DesktopStage::prepare(*engine, {{u"fixture"_s, m_fixture.get()}});
    }

    void cleanupTestCase()
    {
        m_fixture.reset();
        m_vault.reset();
        m_health.reset();
        m_notify.reset();
        m_stage.reset();
        m_service.reset();
        m_home.reset();
    }

private:
    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<Service> m_service;
    TestIdentity m_identity;
    FakeNotifier m_notifier;
    FakeOwner m_owner;
    FakeClipboard m_clipboard;
    FakeSleeper m_sleeper;
    std::unique_ptr<DesktopStage> m_stage;
    std::unique_ptr<NotifyController> m_notify;
    std::unique_ptr<HealthController> m_health;
    std::unique_ptr<VaultController> m_vault;
    std::unique_ptr<Fixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(desktopfeaturesqml, Setup)

#include "desktopfeaturesqmltest.moc"
