#include "features/health/healthexportstore.h"
#include "features/health/healthrows.h"
#include "features/health/healthsync.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "support/fakeclock.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "text/l.h"

#include <QBuffer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDateTime now(QDate(2026, 6, 15), QTime(12, 0));

QString uuidOf(int n)
{
    return u"00000000-0000-4000-8000-%1"_s.arg(n, 12, 10, QLatin1Char('0'));
}

HealthWorkoutSample workout(int n, QDateTime start = now.addDays(-1))
{
    HealthWorkoutSample w;
    w.uuid = uuidOf(n);
    w.activityType = 37;
    w.start = start;
    w.end = start.addSecs(1800);
    w.duration = 1800;
    w.source = u"Watch"_s;
    return w;
}

// A store whose changes are a list; the anchor is how many of them were handed out.
class FakeStore : public HealthStore
{
public:
    struct Query {
        QDateTime since;
        QByteArray anchor;
    };
    QList<std::pair<std::optional<HealthWorkoutSample>, QString>> changes; // added, or deleted
    QList<Query> queries;
    QList<QDateTime> dailyFrom;
    FakeSleeper *gate = nullptr; // when set, the query numbered gateAt waits on it
    int gateAt = 0;

    void add(int count, int from = 0, bool deleted = false)
    {
        for (int i = from; i < from + count; ++i)
            changes.append({deleted ? std::nullopt : std::optional(workout(i)), uuidOf(i)});
    }

    QString deviceName() const override { return u"Test phone"_s; }
    QCoro::Task<> requestRead() override { co_return; }
    QCoro::Task<QList<std::pair<QDate, double>>> daily(HealthMetric metric, QDateTime from,
                                                       QDateTime to) override
    {
        QList<std::pair<QDate, double>> out;
        if (metric == HealthMetric::Steps) {
            dailyFrom << from;
            for (QDate d = from.date(); d <= to.date(); d = d.addDays(1))
                out.append({d, 1000});
        }
        co_return out;
    }
    QCoro::Task<HealthChanges> workouts(QDateTime since, QByteArray anchor, int limit) override
    {
        queries << Query{since, anchor};
        if (gate && queries.size() == gateAt)
            co_await gate->sleep(std::chrono::milliseconds(0));
        HealthChanges out;
        int at = anchor.toInt();
        for (; at < changes.size() && out.added.size() + out.deleted.size() < limit; ++at) {
            if (changes[at].first)
                out.added << *changes[at].first;
            else
                out.deleted << changes[at].second;
        }
        out.anchor = QByteArray::number(at);
        co_return out;
    }
    void observe(std::function<void()>) override {}
    void stopObserving() override {}
};

} // namespace

class HealthTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity{service};
    FakeStore store;
    FakeClock clock{now.toUTC()};

    std::unique_ptr<HealthSync> makeSync()
    {
        return std::make_unique<HealthSync>(identity.api(), &store,
                                            [this] { return identity.name; }, clock);
    }

    // The bodies of the pages the server accepted, in order.
    QList<QJsonObject> pages()
    {
        return Service::bodies(service.requests(u"webapi/health/sync"_s, true));
    }

    static QList<int> sizes(const QList<QJsonObject> &bodies)
    {
        QList<int> out;
        for (const QJsonObject &b : bodies)
            out << int(b.value(u"workouts").toArray().size() +
                       b.value(u"deleted").toArray().size());
        return out;
    }

    // Awaits a round and notes its end, so a test can act while it is held.
    static QCoro::Task<> noteEnd(QCoro::Task<> round, bool &done)
    {
        co_await std::move(round);
        done = true;
    }

    static QString anchor()
    {
        return AppData::setting(HealthSync::anchorKey(u"demo"_s)).toString();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        L::pin(u"en"_s);
    }

    void init()
    {
        service.reset();
        identity.signIn();
        service.clearLog();
        store = FakeStore();
        AppData::removeSettings(u"rb.health."_s);
    }

    void firstLinkThenLaterRounds()
    {
        store.add(3);
        auto sync = makeSync();
        Sync::run(sync->connect());
        QVERIFY(sync->linked());
        QCOMPARE(AppData::setting(QString::fromLatin1(HealthSync::userKey)).toString(), u"demo"_s);
        QCOMPARE(store.queries.first().since, now.addDays(-365));
        QVERIFY(store.queries.first().anchor.isEmpty());
        QCOMPARE(store.dailyFrom.first(), QDateTime(QDate(2026, 5, 17), QTime(0, 0)));
        QList<QJsonObject> sent = pages();
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0].value(u"days").toArray().size(), 30);
        QCOMPARE(sent[0].value(u"device").toString(), u"Test phone"_s);
        QVERIFY(sync->view() && sync->view()->totalWorkouts == 3);

        store.add(1, 3);
        service.clearLog();
        Sync::run(sync->sync());
        QCOMPARE(store.queries.last().since, now.addDays(-60));
        QCOMPARE(store.queries.last().anchor, "3"_ba);
        QCOMPARE(store.dailyFrom.last(), QDateTime(QDate(2026, 6, 2), QTime(0, 0)));
        sent = pages();
        QCOMPARE(sizes(sent), QList<int>{1});
        QCOMPARE(sent[0].value(u"days").toArray().size(), 14);
        QCOMPARE(anchor(), QString::fromLatin1("4"_ba.toBase64()));
        QVERIFY(sync->failure().isEmpty());
    }

    void pagesOfAtMost500_data()
    {
        QTest::addColumn<int>("added");
        QTest::addColumn<int>("deleted");
        QTest::addColumn<QList<int>>("pages");
        QTest::newRow("nothing new") << 0 << 0 << QList<int>{0};
        QTest::newRow("one short of a page") << 499 << 0 << QList<int>{499};
        QTest::newRow("exactly 500: one more, empty page") << 500 << 0 << QList<int>{500, 0};
        QTest::newRow("deletions count too") << 300 << 200 << QList<int>{500, 0};
        QTest::newRow("one over") << 501 << 0 << QList<int>{500, 1};
    }

    void pagesOfAtMost500()
    {
        QFETCH(int, added);
        QFETCH(int, deleted);
        QFETCH(QList<int>, pages);
        store.add(added);
        store.add(deleted, 5000, true);
        auto sync = makeSync();
        Sync::run(sync->connect());
        QCOMPARE(sizes(this->pages()), pages);
        QCOMPARE(anchor(), QString::fromLatin1(QByteArray::number(added + deleted).toBase64()));
    }

    void anchorOfTheLastAcceptedPageStays()
    {
        store.add(1000);
        FakeSleeper gate;
        store.gate = &gate;
        store.gateAt = 2; // hold the second page's query
        auto sync = makeSync();
        bool done = false;
        auto running = noteEnd(sync->connect(), done);
        QTRY_COMPARE(gate.waiting(), 1);
        service.fault({{u"match"_s, u"webapi/health/sync"_s}, {u"status"_s, 500}});
        gate.advance();
        QTRY_VERIFY(done);
        QCOMPARE(sync->failure(), u"HTTP 500"_s);
        QVERIFY(!sync->syncing());
        QVERIFY(sync->linked());
        QCOMPARE(anchor(), QString::fromLatin1("500"_ba.toBase64()));

        store.gate = nullptr;
        service.clearLog();
        Sync::run(sync->sync());
        QCOMPARE(store.queries.last().anchor, "1000"_ba);
        QCOMPARE(store.queries[store.queries.size() - 3].anchor, "500"_ba);
        QCOMPARE(sizes(pages()), (QList<int>{500, 0}));
        QVERIFY(sync->failure().isEmpty());
    }

    void requestsDuringARoundFoldIntoOne()
    {
        auto sync = makeSync();
        Sync::run(sync->connect());
        service.clearLog();
        FakeSleeper gate;
        store.gate = &gate;
        store.gateAt = store.queries.size() + 1;
        bool done = false;
        auto running = noteEnd(sync->sync(), done);
        QTRY_COMPARE(gate.waiting(), 1);
        QVERIFY(sync->syncing());
        for (int i = 0; i < 3; ++i)
            Sync::run(sync->sync()); // returns at once: folded
        gate.advance();
        QTRY_VERIFY(done);
        QCOMPARE(pages().size(), 2);
        QVERIFY(!sync->syncing());
    }

    void armUnlinksForAnotherUser_data()
    {
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("linked");
        QTest::newRow("same user") << u"demo"_s << true;
        QTest::newRow("another user signed in") << u"owner"_s << false;
        QTest::newRow("user not known yet") << QString() << true;
    }

    void armUnlinksForAnotherUser()
    {
        QFETCH(QString, current);
        QFETCH(bool, linked);
        store.add(2);
        Sync::run(makeSync()->connect());
        QVERIFY(!anchor().isEmpty());
        identity.name = current;
        auto sync = makeSync();
        sync->arm();
        QCOMPARE(sync->linked(), linked);
        QCOMPARE(!anchor().isEmpty(), linked);
        QCOMPARE(AppData::setting(QString::fromLatin1(HealthSync::userKey)).isValid(), linked);
        if (!linked) {
            // The next link starts from nothing.
            identity.name = u"demo"_s;
            Sync::run(sync->connect());
            QCOMPARE(store.queries.last().since, now.addDays(-365));
            QVERIFY(store.queries.last().anchor.isEmpty());
        }
    }

    void disconnect_data()
    {
        QTest::addColumn<bool>("serverDown");
        QTest::addColumn<bool>("forget");
        QTest::newRow("keeping the data") << false << false;
        QTest::newRow("forgetting the data") << false << true;
        QTest::newRow("server unreachable: link kept") << true << true;
    }

    void disconnect()
    {
        QFETCH(bool, serverDown);
        QFETCH(bool, forget);
        store.add(2);
        auto sync = makeSync();
        Sync::run(sync->connect());
        if (serverDown)
            service.fault({{u"match"_s, u"webapi/health/disconnect"_s}, {u"status"_s, 503}});
        Sync::run(sync->disconnect(forget));
        QCOMPARE(sync->linked(), serverDown);
        QCOMPARE(sync->failure(), serverDown ? u"Cannot reach the server."_s : QString());
        QCOMPARE(anchor().isEmpty(), !serverDown);
        Sync::run(sync->refresh());
        QVERIFY(sync->view());
        QCOMPARE(sync->view()->connected, serverDown);
        QCOMPARE(*sync->view()->totalWorkouts, forget && !serverDown ? 0 : 2);
    }

    void workoutRow_data()
    {
        QTest::addColumn<int>("activityType");
        QTest::addColumn<QString>("activity");
        QTest::addColumn<bool>("measured");
        QTest::newRow("running, nothing measured") << 37 << u"running"_s << false;
        QTest::newRow("outside the table, measured") << 3000 << u"other"_s << true;
        QTest::newRow("a number the table skips") << 1 << u"other"_s << false;
    }

    void workoutRow()
    {
        QFETCH(int, activityType);
        QFETCH(QString, activity);
        QFETCH(bool, measured);
        HealthWorkoutSample w = workout(7, QDateTime::fromSecsSinceEpoch(1'700'000'000));
        w.uuid = w.uuid.toLower();
        w.activityType = activityType;
        if (measured) {
            w.kcal = w.avgHr = w.maxHr = 150;
            w.walkingRunning = 1200;
            w.cycling = 2500; // the largest of the three counts
            w.swimming = 300;
        }
        const QJsonObject row = HealthRows::workout(w);
        QCOMPARE(row.value(u"uuid").toString(), uuidOf(7).toUpper());
        QCOMPARE(row.value(u"activity").toString(), activity);
        QCOMPARE(row.value(u"end").toDouble(), 1'700'001'800.0);
        QCOMPARE(row.value(u"distance_m").toDouble(), measured ? 2500.0 : 0.0);
        for (const QString &key : {u"kcal"_s, u"avg_hr"_s, u"max_hr"_s})
            QCOMPARE(row.value(key).isNull(), !measured);
    }

    void exportIsReadLikeALiveStore()
    {
        QByteArray xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE HealthData [
<!ELEMENT HealthData (Record*, Workout*)>
]>
<HealthData locale="en_US">
 <Record type="HKQuantityTypeIdentifierStepCount" sourceName="Phone" unit="count" startDate="2026-06-14 08:00:00 +0000" endDate="2026-06-14 08:10:00 +0000" value="600"/>
 <Record type="HKQuantityTypeIdentifierStepCount" sourceName="Phone" unit="count" startDate="2026-06-14 09:00:00 +0000" endDate="2026-06-14 09:10:00 +0000" value="500"/>
 <Record type="HKQuantityTypeIdentifierStepCount" sourceName="Watch" unit="count" startDate="2026-06-14 08:00:00 +0000" endDate="2026-06-14 08:10:00 +0000" value="1000"/>
 <Workout workoutActivityType="HKWorkoutActivityTypeCycling" duration="1" durationUnit="hr" sourceName="Watch" startDate="2026-06-14 07:00:00 +0200" endDate="2026-06-14 08:00:00 +0200">
  <WorkoutStatistics type="HKQuantityTypeIdentifierActiveEnergyBurned" sum="400" unit="Cal"/>
  <WorkoutStatistics type="HKQuantityTypeIdentifierDistanceCycling" sum="20" unit="km"/>
  <WorkoutStatistics type="HKQuantityTypeIdentifierHeartRate" average="130" minimum="90" maximum="165" unit="count/min"/>
 </Workout>
 <Workout workoutActivityType="HKWorkoutActivityTypeBadminton" duration="30" durationUnit="min" totalDistance="1" totalDistanceUnit="mi" sourceName="Watch" startDate="2026-06-13 18:00:00 +0000" endDate="2026-06-13 18:30:00 +0000"/>
</HealthData>
)"_ba;
        QBuffer buffer(&xml);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        const HealthExportStore::Contents contents = HealthExportStore::parse(buffer);
        QCOMPARE(contents.workouts.size(), 2);
        const HealthWorkoutSample &badminton = contents.workouts[0];
        const HealthWorkoutSample &ride = contents.workouts[1];
        QCOMPARE(HealthRows::workout(badminton).value(u"activity").toString(), u"other"_s);
        QCOMPARE(badminton.duration, 1800.0);
        QCOMPARE(*badminton.walkingRunning, 1609.344);
        QVERIFY(!badminton.kcal && !badminton.avgHr);
        QCOMPARE(ride.activityType, 13);
        QCOMPARE(ride.start, QDateTime(QDate(2026, 6, 14), QTime(5, 0), Qt::UTC));
        QCOMPARE(ride.duration, 3600.0);
        QCOMPARE((QList<double>{*ride.kcal, *ride.cycling, *ride.avgHr, *ride.maxHr}),
                 (QList<double>{400, 20000, 130, 165}));
        QCOMPARE(ride.uuid, ride.uuid.toUpper());

        // The same export read again gives the same identities.
        QVERIFY(buffer.seek(0));
        QCOMPARE(HealthExportStore::parse(buffer).workouts[1].uuid, ride.uuid);

        const QDate day = QDateTime(QDate(2026, 6, 14), QTime(8, 0), Qt::UTC).toLocalTime().date();
        const auto &steps = contents.days.value(HealthMetric::Steps).value(day);
        QCOMPARE(steps.value(u"Phone"_s).first, 1100.0);
        QCOMPARE(steps.value(u"Watch"_s).first, 1000.0);
    }

    void malformedExportSaysWhere()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"broken.xml"_s);
        QVERIFY(AtomicFile::write(path, "<HealthData>\n<Workout>\n</HealthData>"));
        HealthExportStore bad(path);
        try {
            Sync::run(bad.requestRead());
            QFAIL("a malformed export was accepted");
        } catch (const HealthStoreError &error) {
            QVERIFY2(error.description.contains(u"line 3"_s), qPrintable(error.description));
        }
    }
};

QTEST_GUILESS_MAIN(HealthTest)
#include "healthtest.moc"
