// Lanes: tool steps, status events, replay, merging, and the texts a card shows.

#include "chat/activityupdate.h"
#include "chat/lane.h"
#include "text/l.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<double>)

namespace {

// "name|summary|status" per event.
void play(Lane &lane, const QStringList &events)
{
    for (const QString &e : events) {
        const QStringList f = e.split(u'|');
        lane.recordTool(f.value(0), f.value(1), f.value(2));
    }
}

// "id|title|detail|status" per step.
QStringList steps(const QList<Activity> &tools)
{
    QStringList out;
    for (const Activity &a : tools)
        out << QStringList{a.id, a.title, a.detail, a.status}.join(u'|');
    return out;
}

Activity step(const char *id, const char *status, const char *detail = "")
{
    return Activity{QString::fromUtf8(id), u"search"_s, QString::fromUtf8(detail),
                    QString::fromUtf8(status)};
}

Lane lane(const QString &id)
{
    Lane l;
    l.id = id;
    return l;
}

ActivityUpdate update(qint64 seq, const QString &text)
{
    ActivityUpdate u;
    u.seq = seq;
    u.id = u"run_1"_s;
    u.text = text;
    return u;
}

} // namespace

class LaneTest : public QObject
{
    Q_OBJECT

private slots:
    void usefulDetail_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("detail");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("shown");
        QTest::newRow("kept, on one line") << "search" << "  3\n results " << "completed"
                                           << "3 results";
        QTest::newRow("empty") << "search" << " \n " << "started" << "";
        QTest::newRow("title again") << "Searching the web" << "searching the web…"
                                     << "started" << "";
        QTest::newRow("status again") << "search" << "Completed." << "completed" << "";
        QTest::newRow("title inside is kept") << "Reading files" << "Reading files: a.txt"
                                              << "started" << "Reading files: a.txt";
        QTest::newRow("hebrew title again") << "חיפוש" << "חיפוש." << "started" << "";
    }

    void usefulDetail()
    {
        QFETCH(QString, title);
        QFETCH(QString, detail);
        QFETCH(QString, status);
        QTEST((Activity{u"x"_s, title, detail, status}.usefulDetail()), "shown");
    }

    void recordTool_data()
    {
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QStringList>("tools");
        QTest::addColumn<QStringList>("summaries");
        QTest::newRow("start then end")
            << QStringList{"search|looking|started", "search|3 hits|completed"}
            << QStringList{"search:1|search|3 hits|completed"} << QStringList{"3 hits"};
        QTest::newRow("end keeps the started detail")
            << QStringList{"read|a.txt|", "read||completed"}
            << QStringList{"read:1|read|a.txt|completed"} << QStringList{"a.txt"};
        QTest::newRow("end without a start, twice")
            << QStringList{"search|3 hits|completed", "search|3 hits|completed"}
            << QStringList{"search:1|search|3 hits|completed"} << QStringList{"3 hits"};
        QTest::newRow("an ended step is never reopened")
            << QStringList{"search|a|completed", "search|b|started"}
            << QStringList{"search:1|search|a|completed", "search:2|search|b|started"}
            << QStringList{"a"};
        QTest::newRow("other tools do not match")
            << QStringList{"search|a|started", "read|b|started", "search|c|error"}
            << QStringList{"search:1|search|c|error", "read:1|read|b|started"}
            << QStringList{"c"};
        QTest::newRow("progress keeps it open")
            << QStringList{"build|1/3|started", "build|2/3|running"}
            << QStringList{"build:1|build|2/3|running"} << QStringList{};
    }

    void recordTool()
    {
        QFETCH(QStringList, events);
        Lane l = lane(u"run_1"_s);
        play(l, events);
        QTEST(steps(l.tools), "tools");
        QTEST(l.summaries, "summaries");
    }

    void record_data()
    {
        QTest::addColumn<QStringList>("statuses");
        QTest::addColumn<bool>("finished");
        QTest::addColumn<QString>("outcome"); // "-" for none
        QTest::newRow("started") << QStringList{"started"} << false << "-";
        QTest::newRow("complete") << QStringList{"started", "complete"} << true << "complete";
        QTest::newRow("late started") << QStringList{"completed", "started"} << true
                                      << "completed";
        QTest::newRow("first outcome stays") << QStringList{"superseded", "error"} << true
                                             << "superseded";
    }

    void record()
    {
        QFETCH(QStringList, statuses);
        QFETCH(QString, outcome);
        Lane l = lane(u"run_1"_s);
        for (const QString &s : statuses)
            l.record(s);
        QTEST(l.finished, "finished");
        QCOMPARE(l.outcome.value_or(u"-"_s), outcome);
    }

    void mergedTools()
    {
        const QList<Activity> a{step("s:1", "started", "looking"), step("s:2", "completed", "x")};
        const QList<Activity> b{step("s:2", "started"), step("s:1", "completed", "3 hits"),
                                step("s:3", "started")};
        const QStringList forward{"s:1|search|3 hits|completed", "s:2|search|x|completed",
                                  "s:3|search||started"};
        QCOMPARE(steps(Lane::mergedTools(a, b)), forward);
        // An ended step wins whichever side it is on, with its detail.
        QCOMPARE(steps(Lane::mergedTools(b, a)).at(1), forward.at(0));
    }

    void coalesced()
    {
        Lane a1 = lane(u"run_a"_s);
        a1.label = u"Researcher"_s;
        a1.text = u"first"_s;
        a1.after = 4;
        a1.summaries = {u"x"_s};
        a1.tools = {step("search:1", "started")};
        a1.attempt = 2;
        const Lane b = lane(u"run_b"_s);
        Lane a2 = lane(u"run_a"_s);
        a2.text = u"second"_s;
        a2.summaries = {u"hits"_s, u"x"_s, u""_s};
        a2.tools = {step("search:1", "completed", "hits"), step("read:1", "started")};
        a2.finished = true;
        a2.outcome = u"completed"_s;
        a2.attempt = 1;
        a2.replayTools = QList<Activity>{step("r:1", "completed")};

        const QList<Lane> out = Lane::coalesced({a1, b, a2});
        QCOMPARE(out.size(), 2);
        QCOMPARE(out.at(1), b);
        const Lane &a = out.at(0);
        QCOMPARE(a.label, u"Researcher"_s); // a2 named none
        QCOMPARE(a.text, u"second"_s);
        QCOMPARE(a.after, qint64(4));
        QCOMPARE(a.summaries, (QStringList{"x", "hits"}));
        QCOMPARE(steps(a.tools),
                 (QStringList{"search:1|search|hits|completed", "read:1|search||started"}));
        QVERIFY(a.finished);
        QCOMPARE(a.outcome, std::optional<QString>(u"completed"_s));
        QCOMPARE(a.attempt, std::optional<int>(2));
        QVERIFY(!a.replaySummaries);
        QCOMPARE(a.replayTools->size(), 1);
    }

    void mergedPicksTheRecordThatKnowsMore_data()
    {
        QTest::addColumn<std::optional<double>>("cursorA");
        QTest::addColumn<bool>("finishedA");
        QTest::addColumn<std::optional<double>>("cursorB");
        QTest::addColumn<bool>("finishedB");
        QTest::addColumn<QString>("text");
        const std::optional<double> none;
        const auto at = [](double c) { return std::optional<double>(c); };
        QTest::newRow("neither: the later") << none << false << none << false << "b";
        QTest::newRow("a applied later updates") << at(9) << false << at(5) << false << "a";
        QTest::newRow("one cursor: the later") << at(9) << false << none << false << "b";
        QTest::newRow("only a finished") << none << true << at(9) << false << "a";
        QTest::newRow("both finished, b ahead") << at(3) << true << at(4) << true << "b";
    }

    void mergedPicksTheRecordThatKnowsMore()
    {
        QFETCH(std::optional<double>, cursorA);
        QFETCH(bool, finishedA);
        QFETCH(std::optional<double>, cursorB);
        QFETCH(bool, finishedB);
        Lane a = lane(u"run_1"_s);
        a.text = u"a"_s;
        a.after = 1;
        a.finished = finishedA;
        if (cursorA)
            a.eventCursor = qint64(*cursorA);
        Lane b = lane(u"run_1"_s);
        b.text = u"b"_s;
        b.after = 2;
        b.finished = finishedB;
        if (cursorB)
            b.eventCursor = qint64(*cursorB);
        const Lane m = Lane::merged(a, b);
        QTEST(m.text, "text");
        QCOMPARE(m.after, m.text == u"a" ? qint64(1) : qint64(2));
    }

    void replay()
    {
        QList<ActivityUpdate> updates{update(3, u"reading"_s), update(4, {}),
                                      update(5, u"done"_s)};
        updates[0].label = u"Researcher"_s;
        updates[0].after = 7;
        updates[1].tool = ActivityUpdate::Tool{u"read"_s, u"a.txt"_s, u"started"_s};
        updates[2].tool = ActivityUpdate::Tool{u"read"_s, {}, u"completed"_s};
        updates[2].finished = true;
        updates[2].attempt = 2;

        Lane l;
        for (const ActivityUpdate &u : updates)
            l.replay(u);
        QCOMPARE(l.id, u"run_1"_s);
        QCOMPARE(l.label, u"Researcher"_s);
        QCOMPARE(l.text, u"done"_s);
        QCOMPARE(l.after, qint64(7));
        QCOMPARE(steps(l.tools), QStringList{"read:1|read|a.txt|completed"});
        QCOMPARE(l.outcome, std::optional<QString>(u"completed"_s));
        QCOMPARE(l.attempt, std::optional<int>(2));
        QCOMPARE(l.eventCursor, std::optional<qint64>(5));

        // Updates already applied change nothing, nor does another run's.
        const Lane before = l;
        for (const ActivityUpdate &u : updates)
            l.replay(u);
        ActivityUpdate other = update(9, u"elsewhere"_s);
        other.id = u"run_2"_s;
        l.replay(other);
        QCOMPARE(l, before);

        l.replay(update(6, u"later"_s));
        QCOMPARE(l.text, u"later"_s);
        QCOMPARE(l.eventCursor, std::optional<qint64>(6));
    }

    void replayedOntoLiveLane()
    {
        // The live lane heard the same tool events over the socket, and a delta since.
        Lane live = lane(u"run_1"_s);
        live.after = 7;
        play(live, {"read|a.txt|started", "read|a.txt|completed", "search|q|started"});
        live.text = u"newest delta"_s;

        QList<ActivityUpdate> stored{update(1, u"old"_s), update(2, {}), update(3, {})};
        stored[1].tool = ActivityUpdate::Tool{u"read"_s, u"a.txt"_s, u"started"_s};
        stored[2].tool = ActivityUpdate::Tool{u"read"_s, u"a.txt"_s, u"completed"_s};
        Lane rebuilt;
        for (const ActivityUpdate &u : stored)
            rebuilt.replay(u);

        const Lane merged = rebuilt.replayed(live);
        QCOMPARE(steps(merged.tools),
                 (QStringList{"read:1|read|a.txt|completed", "search:1|search|q|started"}));
        QCOMPARE(merged.text, u"newest delta"_s);
        QCOMPARE(merged.after, qint64(7));
        QCOMPARE(merged.eventCursor, std::optional<qint64>(3));
        QCOMPARE(lane(u"run_9"_s).replayed(live), live);
    }

    void jsonRoundTrip()
    {
        Lane l = lane(u"run_1"_s);
        l.label = u"Исследователь"_s;
        l.text = u"טקסט"_s;
        l.after = 12;
        l.summaries = {u"a"_s};
        l.tools = {step("search:1", "completed", "hits")};
        l.finished = true;
        l.outcome = u"error"_s;
        l.attempt = 3;
        l.eventCursor = 99;
        l.replaySummaries = QStringList{};
        l.replayTools = QList<Activity>{step("search:1", "started")};
        QCOMPARE(Lane::fromJson(l.toJson()), l);

        QStringList keys = lane(u"run_2"_s).toJson().keys();
        keys.sort();
        QCOMPARE(keys, (QStringList{"after", "finished", "id", "label", "summaries", "text",
                                    "tools"}));
    }

    void activityKey_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("key");
        QTest::newRow("plain run") << "run_1" << "Researcher" << "run_1";
        QTest::newRow("task in heading") << "run_1" << "Task #12 · Researcher" << "task:12";
        QTest::newRow("task in run id") << "task_31" << "" << "task:31";
    }

    void activityKey()
    {
        QFETCH(QString, id);
        QFETCH(QString, label);
        Lane l = lane(id);
        l.label = label;
        QTEST(l.activityKey(), "key");
    }

    void countdown_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<std::optional<double>>("until");
        QTest::addColumn<bool>("finished");
        QTest::addColumn<QString>("text");
        const auto at = [](double t) { return std::optional<double>(t); };
        QTest::newRow("en") << "en" << at(1185) << false << "3m 5s left";
        QTest::newRow("ru") << "ru" << at(1042) << false << "Осталось 42 с";
        QTest::newRow("he") << "he" << at(1042) << false << "נותרו 42 שנ׳";
        QTest::newRow("due") << "en" << at(1000) << false << "Any moment now";
        QTest::newRow("nothing awaited") << "en" << std::optional<double>() << false << "";
        QTest::newRow("finished") << "en" << at(1042) << true << "";
    }

    void countdown()
    {
        QFETCH(QString, lang);
        QFETCH(std::optional<double>, until);
        QFETCH(bool, finished);
        QVERIFY(L::pin(lang));
        Lane l = lane(u"run_1"_s);
        l.finished = finished;
        QTEST(l.countdown(until, 1000), "text");
        L::pin({});
    }
};

QTEST_GUILESS_MAIN(LaneTest)
#include "lanetest.moc"
