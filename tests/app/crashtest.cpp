#include "app/crash.h"
#include "app/crashreport.h"
#include "app/diagnostics.h"
#include "app/reportqueue.h"
#include "app/vitals.h"
#include "net/api.h"
#include "platform/atomicfile.h"
#include "support/fakeclock.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QDir>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Beats = QList<double>;

QByteArray runJson(bool foreground, bool ended, double stall)
{
    return QJsonDocument(QJsonObject{{"foreground", foreground},
                                     {"ended", ended},
                                     {"worst_stall_s", stall},
                                     {"surface", "chat"},
                                     {"uptime_s", 12.0},
                                     {"build", "RelayboxApp/9.9"}})
        .toJson();
}

} // namespace

class CrashTest : public QObject
{
    Q_OBJECT

    FakeClock clock;

private slots:
    void stall_data()
    {
        QTest::addColumn<Beats>("beats");
        QTest::addColumn<double>("watchedAt"); // the watcher's look, after the last beat
        QTest::addColumn<double>("worst");
        QTest::newRow("on time") << Beats{1, 2, 3, 4} << 4.5 << 0.0;
        QTest::newRow("one late beat") << Beats{1, 2, 5.5, 6.5} << 7.0 << 2.5;
        QTest::newRow("the worst stays") << Beats{4, 5} << 5.2 << 3.0;
        QTest::newRow("stuck: only the watcher sees it") << Beats{1, 2} << 7.0 << 4.0;
    }

    void stall()
    {
        QFETCH(Beats, beats);
        QFETCH(double, watchedAt);
        Crash::Vitals vitals;
        vitals.start(0);
        for (double at : beats)
            vitals.beat(at);
        vitals.watch(watchedAt);
        QTEST(vitals.worstStall, "worst");
        QCOMPARE(vitals.toJson(watchedAt, false).value("worst_stall_s").toDouble(),
                 vitals.worstStall);
    }

    void previous_data()
    {
        QTest::addColumn<QByteArray>("crashText"); // empty: no crash file
        QTest::addColumn<QByteArray>("run");       // empty: no run.json
        QTest::addColumn<QString>("kind");         // empty: nothing to report
        QTest::addColumn<QString>("reason");
        auto row = [](const char *name, const char *crash, const QByteArray &run, const char *kind,
                      const char *reason) {
            QTest::newRow(name) << QByteArray(crash) << run << QString::fromUtf8(kind)
                                << QString::fromUtf8(reason);
        };
        row("nothing left", "", {}, "", "");
        row("normal end in front", "", runJson(true, true, 9), "", "");
        row("killed in the background", "", runJson(false, false, 9), "", "");
        row("killed in front", "", runJson(true, false, 2.9), "killed_in_foreground",
            "no signal, killed while in front");
        row("stuck 3 s", "", runJson(true, false, 3), "hang", "main thread stuck 3s, then killed");
        row("stuck 4.5 s", "", runJson(true, false, 4.5), "hang",
            "main thread stuck 4.5s, then killed");
        row("signal, even after a settled run", "signal 11\nframe 1\nframe 2\n",
            runJson(false, true, 0), "crash", "signal 11");
        row("exception without run.json", "exception std::bad_alloc: std::bad_alloc\n", {}, "crash",
            "exception std::bad_alloc: std::bad_alloc");
    }

    void previous()
    {
        QFETCH(QByteArray, crashText);
        QFETCH(QByteArray, run);
        QFETCH(QString, kind);
        const auto orNone = [](const QByteArray &b) {
            return b.isEmpty() ? std::nullopt : std::optional<QByteArray>(b);
        };
        const std::optional<QJsonObject> report =
            CrashReport::previous(orNone(crashText), orNone(run));
        QCOMPARE(report.has_value(), !kind.isEmpty());
        if (!report)
            return;
        QCOMPARE(report->value("kind").toString(), kind);
        QTEST(report->value("reason").toString(), "reason");
        QCOMPARE(report->value("trace").toString(), QString::fromUtf8(crashText));
        QVERIFY(!report->value("build").toString().isEmpty());
        if (!run.isEmpty())
            QCOMPARE(report->value("surface").toString(), u"chat"_s);
    }

    void diagnosticCut_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<bool>("truncated");
        QTest::addColumn<bool>("parsed");
        QTest::addColumn<int>("rawSize");
        const QByteArray object = "{\"crashes\":[{\"frames\":3}]}";
        QTest::newRow("a JSON object") << object << false << true << 0;
        QTest::newRow("500,000 bytes") << QByteArray(500000, 'x') << true << false << 400000;
        QTest::newRow("exactly 400,000") << QByteArray(400000, 'y') << false << false << 400000;
        QByteArray big = "{\"pad\":\"" + QByteArray(450000, 'z') + "\"}";
        QTest::newRow("a cut object no longer parses") << big << true << false << 400000;
        QTest::newRow("a JSON array is not a payload")
            << QByteArray("[1,2]") << false << false << 5;
    }

    void diagnosticCut()
    {
        QFETCH(QByteArray, payload);
        QFETCH(bool, parsed);
        QFETCH(int, rawSize);
        const QJsonObject report = Diagnostics::report(payload);
        QCOMPARE(report.value("kind").toString(), u"metrickit"_s);
        QTEST(report.value("truncated").toBool(), "truncated");
        QCOMPARE(!report.value("payload").toObject().isEmpty(), parsed);
        QCOMPARE(report.value("raw").toString().toUtf8().size(), rawSize);
    }

    void drainQueuesAndDeletes()
    {
        TestHome home;
        const QString folder = QDir(home.path()).filePath("diagnostics");
        QVERIFY(AtomicFile::write(QDir(folder).filePath("1-a.json"), QByteArray(500000, 'x')));
        QVERIFY(AtomicFile::write(QDir(folder).filePath("note.txt"), "not a payload"));
        ReportQueue queue(QDir(home.path()).filePath("reports"), clock);
        QCOMPARE(Diagnostics::drain(queue, folder), 1);
        QCOMPARE(QDir(folder).entryList({"*.json"}, QDir::Files).size(), 0);
        QList<QJsonObject> posted;
        QCOMPARE(Sync::run(queue.flush([&](QJsonObject r) -> QCoro::Task<> {
                     posted << r;
                     co_return;
                 })),
                 1);
        QCOMPARE(posted.first().value("raw").toString().size(), 400000);
        QCOMPARE(queue.size(), 0);
    }

    void flushKeepsWhatDidNotGo_data()
    {
        QTest::addColumn<int>("status"); // 0: not signed in
        QTest::addColumn<int>("left");
        QTest::newRow("taken") << 200 << 0;
        QTest::newRow("refused as malformed: dropped") << 400 << 0;
        QTest::newRow("server down: kept") << 503 << 2;
        QTest::newRow("not signed in: kept") << 0 << 2;
    }

    void flushKeepsWhatDidNotGo()
    {
        QFETCH(int, status);
        TestHome home;
        ReportQueue queue(home.path(), clock);
        QVERIFY(queue.add({{"kind", "crash"}}));
        QVERIFY(queue.add({{"kind", "hang"}}));
        Sync::run(queue.flush([status](QJsonObject) -> QCoro::Task<> {
            if (status == 0)
                throw Api::Unauthorized();
            if (status != 200)
                throw Api::Failed(status);
            co_return;
        }));
        QTEST(queue.size(), "left");
    }

    // A crash loop keeps the newest reports; they go out oldest first, even across a day.
    void queueKeepsTheNewestInOrder()
    {
        TestHome home;
        ReportQueue queue(home.path(), clock);
        clock.setNow(QDateTime(QDate(2026, 3, 1), QTime(23, 59, 59), Qt::UTC));
        for (int n = 0; n < ReportQueue::limit + 2; ++n) {
            QVERIFY(queue.add({{"n", n}}));
            clock.advance(0.4);
        }
        QList<int> posted;
        Sync::run(queue.flush([&](QJsonObject r) -> QCoro::Task<> {
            posted << r.value("n").toInt();
            co_return;
        }));
        QList<int> newest;
        for (int n = 2; n < ReportQueue::limit + 2; ++n)
            newest << n;
        QCOMPARE(posted, newest);
    }
};

QTEST_GUILESS_MAIN(CrashTest)
#include "crashtest.moc"
