// The page loader: shown at once from memory, kept fresh, and failing in words.

#include "net/feed.h"
#include "net/identity.h"
#include "net/projectcache.h"
#include "support/fakesleeper.h"
#include "support/service.h"
#include "support/testidentity.h"
#include "support/sync.h"
#include "support/testhome.h"
#include "text/l.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

namespace {

struct Counter {
    qint64 count = 0;
    static Counter fromJson(const QJsonValue &v) { return {JsonRecord(v).integer(QStringLiteral("count"))}; }
    QVariant toVariant() const { return count; }
};

int requestsFor(Service &service, const QString &path)
{
    return int(service.requests(path).size());
}

} // namespace

class FeedTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity;
    FakeSleeper sleeper;

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        service.reset();
        ProjectCache::clear();
        identity.api().due().clear();
        identity.signIn();
        sleeper.requested.clear();
        service.clearLog();
        L::pin(QString());
    }

    void firstAnswerPublishes()
    {
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 7}});
        Feed<Counter> feed(identity.api(), QStringLiteral("/webapi/counter"), 0, sleeper);
        QVERIFY(feed.loading());
        QCOMPARE(feed.value().count, 0);
        QSignalSpy changed(feed.object(), &FeedCore::valueChanged);
        Sync::run(feed.load());
        QVERIFY(!feed.loading());
        QCOMPARE(feed.value().count, 7);
        QCOMPARE(feed.object()->value(), QVariant(qint64(7)));
        QCOMPARE(changed.count(), 1);
        Sync::run(feed.load()); // 304: nothing new to publish
        QCOMPARE(changed.count(), 1);
    }

    void rememberedPageShowsWithoutNetwork()
    {
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 3}});
        {
            Feed<Counter> first(identity.api(), QStringLiteral("webapi/counter"), 0, sleeper);
            Sync::run(first.load());
        }
        service.fault({{"match", "*"}, {"drop", true}, {"times", -1}});
        service.clearLog();
        Feed<Counter> again(identity.api(), QStringLiteral("webapi/counter"), 0, sleeper);
        QCOMPARE(again.value().count, 3);
        QVERIFY(!again.digest().isEmpty());
        QVERIFY(service.log().isEmpty());
    }

    void rebuildingPageIsAskedAtMostThreeTimesInARow()
    {
        service.setPage(QStringLiteral("webapi/board"), QJsonObject{{"count", 1}}, {{"refreshing", 2}});
        Feed<Counter> feed(identity.api(), QStringLiteral("webapi/board"), 0, sleeper);
        Sync::run(feed.load());
        for (int round = 1; round <= FeedCore::maxRefreshRetries; ++round) {
            QTRY_COMPARE(sleeper.waiting(), 1);
            sleeper.advance();
            QTRY_COMPARE(requestsFor(service, QStringLiteral("webapi/board")), 1 + round);
        }
        QTest::qWait(100); // the last answer must not schedule another
        QCOMPARE(requestsFor(service, QStringLiteral("webapi/board")), 1 + FeedCore::maxRefreshRetries);
        QCOMPARE(sleeper.requested.size(), FeedCore::maxRefreshRetries);
        QCOMPARE(sleeper.requested.first(), std::chrono::milliseconds(2000));
        QCOMPARE(sleeper.waiting(), 0);

        // A load after that starts a fresh run of retries.
        Sync::run(feed.load());
        QCOMPARE(sleeper.waiting(), 1);
    }

    void failureTexts_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<QString>("text");
        QTest::newRow("down, en") << "en" << QJsonObject{{"status", 503}} << "Cannot reach the server.";
        QTest::newRow("down, he") << "he" << QJsonObject{{"status", 521}} << "אין חיבור לשרת.";
        QTest::newRow("dropped, ru") << "ru" << QJsonObject{{"drop", true}} << "Нет связи с сервером.";
        QTest::newRow("refused") << "en"
                                 << QJsonObject{{"status", 403}, {"body", R"({"error":"forbidden","detail":"Not yours."})"}}
                                 << "Not yours.";
        QTest::newRow("refused without words") << "ru" << QJsonObject{{"status", 418}} << "HTTP 418";
        QTest::newRow("odd shape") << "en" << QJsonObject{{"status", 200}, {"body", R"({"count":"x"})"}}
                                   << "The server answered in an unexpected shape: “count” should be a number, found a string";
    }

    void failureTexts()
    {
        QFETCH(QString, lang);
        QFETCH(QJsonObject, fault);
        QFETCH(QString, text);
        L::pin(lang);
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 5}});
        Feed<Counter> feed(identity.api(), QStringLiteral("webapi/counter"), 0, sleeper);
        Sync::run(feed.load());
        ProjectCache::clear(); // no saved copy to fall back on
        fault.insert(QStringLiteral("match"), QStringLiteral("webapi/counter"));
        fault.insert(QStringLiteral("times"), -1);
        service.fault(fault);
        Sync::run(feed.load());
        QVERIFY2(feed.failure().startsWith(text), qPrintable(feed.failure()));
        QCOMPARE(feed.value().count, 5); // what was shown stays
        QVERIFY(!feed.loading());
    }

    void unauthorizedIsSilent()
    {
        Feed<Counter> feed(identity.api(), QStringLiteral("webapi/tasks"), 0, sleeper);
        service.expire(QStringLiteral("demo"));
        Sync::run(feed.load());
        QCOMPARE(feed.failure(), QString());
        QVERIFY(!feed.loading());
    }

    void watchReloadsOnItsPeriod()
    {
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 1}});
        Feed<Counter> idle(identity.api(), QStringLiteral("webapi/counter"), 0, sleeper);
        idle.watch();
        QVERIFY(!idle.object()->watching());
        QVERIFY(sleeper.requested.isEmpty());

        auto feed = std::make_unique<Feed<Counter>>(identity.api(),
                                                    QStringLiteral("webapi/counter"), 5, sleeper);
        feed->watch();
        feed->watch(); // one loop only
        QCOMPARE(sleeper.requested, (QList<std::chrono::milliseconds>{std::chrono::seconds(5)}));
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 2}});
        QSignalSpy changed(feed->object(), &FeedCore::valueChanged);
        sleeper.advance();
        QVERIFY(changed.wait(5000));
        QCOMPARE(feed->value().count, 2);

        // A closed screen ends its loop.
        feed.reset();
        const int asked = requestsFor(service, QStringLiteral("webapi/counter"));
        sleeper.advance();
        QTest::qWait(50);
        QCOMPARE(requestsFor(service, QStringLiteral("webapi/counter")), asked);
    }
};

QTEST_GUILESS_MAIN(FeedTest)
#include "feedtest.moc"
