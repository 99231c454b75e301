// Lanes: tool steps, status events, replay and merging.

#include "chat/model/lane.h"
#include "chat/model/activityupdate.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Tool = ActivityUpdate::Tool;

Q_DECLARE_METATYPE(std::optional<qint64>)

namespace {

const QString run = u"run_1"_s;

// Events "name|summary|status", "; "-joined.
Lane played(const QString &events)
{
    Lane lane{.id = run};
    for (const QString &e : events.split(u"; "_s)) {
        const QStringList f = e.split(u'|');
        lane.recordTool(f.value(0), f.value(1), f.value(2));
    }
    return lane;
}

// Steps "id|title|detail|status", "; "-joined.
QString steps(const QList<Activity> &tools)
{
    QStringList out;
    for (const Activity &a : tools)
        out << QStringList{a.id, a.title, a.detail, a.status}.join(u'|');
    return out.join(u"; "_s);
}

Activity step(const char *id, const char *status, const char *detail = "")
{
    return Activity{QString::fromUtf8(id), u"search"_s, QString::fromUtf8(detail),
                    QString::fromUtf8(status)};
}

} // namespace

class LaneTest : public QObject
{
    Q_OBJECT

private slots:
    void recordTool_data()
    {
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("tools");
        QTest::addColumn<QString>("summaries");
        const auto row = [](const char *name, const char *events, const char *tools,
                            const char *summaries) {
            QTest::newRow(name) << QString::fromUtf8(events) << QString::fromUtf8(tools)
                                << QString::fromUtf8(summaries);
        };
        row("start then end", "search|looking|started; search|3 hits|completed",
            "search:1|search|3 hits|completed", "3 hits");
        row("end keeps the started detail", "read|a.txt|; read||completed",
            "read:1|read|a.txt|completed", "a.txt");
        row("end without a start, twice", "search|3 hits|completed; search|3 hits|completed",
            "search:1|search|3 hits|completed", "3 hits");
        row("an ended step is never reopened", "search|a|completed; search|b|started",
            "search:1|search|a|completed; search:2|search|b|started", "a");
        row("other tools do not match", "search|a|started; read|b|started; search|c|error",
            "search:1|search|c|error; read:1|read|b|started", "c");
        row("progress keeps it open", "build|1/3|started; build|2/3|running",
            "build:1|build|2/3|running", "");
    }

    void recordTool()
    {
        QFETCH(QString, events);
        const Lane l = played(events);
        QTEST(steps(l.tools), "tools");
        QTEST(l.summaries.join(u"; "_s), "summaries");
    }

    void record_data()
    {
        QTest::addColumn<QString>("statuses");
        QTest::addColumn<QString>("outcome"); // "-" for none: not finished
        for (const auto &[statuses, outcome] :
             {std::pair{"started", "-"}, std::pair{"started complete", "complete"},
              std::pair{"completed started", "completed"},  // a late start
              std::pair{"superseded error", "superseded"}}) // the first outcome stays
            QTest::newRow(statuses) << QString::fromUtf8(statuses) << QString::fromUtf8(outcome);
    }

    void record()
    {
        QFETCH(QString, statuses);
        QFETCH(QString, outcome);
        Lane l{.id = run};
        for (const QString &s : statuses.split(u' '))
            l.record(s);
        QCOMPARE(l.outcome.value_or(u"-"_s), outcome);
        QCOMPARE(l.finished, outcome != u"-");
    }

    // A later record of a run folds into the first, in its place. An ended step never goes
    // back to open, whichever record ended it.
    void coalesced()
    {
        const Lane a1{.id = u"run_a"_s,
                      .label = u"Researcher"_s,
                      .text = u"first"_s,
                      .after = 4,
                      .summaries = {u"x"_s},
                      .tools = {step("s:1", "started", "looking"), step("s:2", "completed", "x")},
                      .attempt = 2};
        const Lane b{.id = u"run_b"_s};
        const Lane a2{.id = u"run_a"_s,
                      .text = u"second"_s,
                      .summaries = {u"hits"_s, u"x"_s, {}},
                      .tools = {step("s:2", "started"), step("s:1", "completed", "hits"),
                                step("s:3", "started")},
                      .finished = true,
                      .outcome = u"completed"_s,
                      .attempt = 1,
                      .replayTools = QList<Activity>{step("r:1", "completed")}};
        const Lane a{.id = u"run_a"_s,
                     .label = u"Researcher"_s,
                     .text = u"second"_s,
                     .after = 4,
                     .summaries = {u"x"_s, u"hits"_s},
                     .tools = {step("s:1", "completed", "hits"), step("s:2", "completed", "x"),
                               step("s:3", "started")},
                     .finished = true,
                     .outcome = u"completed"_s,
                     .attempt = 2,
                     .replayTools = QList<Activity>{step("r:1", "completed")}};
        QCOMPARE(Lane::coalesced({a1, b, a2}), (QList<Lane>{a, b}));
    }

    void merged_data()
    {
        QTest::addColumn<std::optional<qint64>>("cursorA");
        QTest::addColumn<bool>("finishedA");
        QTest::addColumn<std::optional<qint64>>("cursorB");
        QTest::addColumn<bool>("finishedB");
        QTest::addColumn<QString>("text");
        const std::optional<qint64> none;
        const auto at = [](qint64 c) { return std::optional<qint64>(c); };
        QTest::newRow("neither: the later") << none << false << none << false << "b";
        QTest::newRow("a applied later updates") << at(9) << false << at(5) << false << "a";
        QTest::newRow("one cursor: the later") << at(9) << false << none << false << "b";
        QTest::newRow("only a finished") << none << true << at(9) << false << "a";
        QTest::newRow("both finished, b ahead") << at(3) << true << at(4) << true << "b";
    }

    // Label, text and anchor come together from the record that knows more.
    void merged()
    {
        QFETCH(std::optional<qint64>, cursorA);
        QFETCH(bool, finishedA);
        QFETCH(std::optional<qint64>, cursorB);
        QFETCH(bool, finishedB);
        const Lane a{
            .id = run, .text = u"a"_s, .after = 1, .finished = finishedA, .eventCursor = cursorA};
        const Lane b{
            .id = run, .text = u"b"_s, .after = 2, .finished = finishedB, .eventCursor = cursorB};
        const Lane m = Lane::merged(a, b);
        QTEST(m.text, "text");
        QCOMPARE(m.after, m.text == u"a" ? qint64(1) : qint64(2));
    }

    void replay()
    {
        const QList<ActivityUpdate> updates{
            {.seq = 3, .id = run, .label = u"Researcher"_s, .text = u"reading"_s, .after = 7},
            {.seq = 4, .id = run, .tool = Tool{u"read"_s, u"a.txt"_s, u"started"_s}},
            {.seq = 5,
             .id = run,
             .text = u"done"_s,
             .attempt = 2,
             .finished = true,
             .tool = Tool{u"read"_s, {}, u"completed"_s}},
        };
        Lane l;
        for (const ActivityUpdate &u : updates)
            l.replay(u);
        const Lane done{.id = run,
                        .label = u"Researcher"_s,
                        .text = u"done"_s,
                        .after = 7,
                        .summaries = {u"a.txt"_s},
                        .tools = {Activity{u"read:1"_s, u"read"_s, u"a.txt"_s, u"completed"_s}},
                        .finished = true,
                        .outcome = u"completed"_s,
                        .attempt = 2,
                        .eventCursor = 5};
        QCOMPARE(l, done);

        // Updates already applied change nothing, nor does another run's.
        for (const ActivityUpdate &u : updates)
            l.replay(u);
        l.replay({.seq = 9, .id = u"run_2"_s, .text = u"elsewhere"_s});
        QCOMPARE(l, done);
    }

    void jsonRoundTrip()
    {
        const Lane l{.id = run,
                     .label = u"Исследователь"_s,
                     .text = u"טקסט"_s,
                     .after = 12,
                     .summaries = {u"a"_s},
                     .tools = {step("search:1", "completed", "hits")},
                     .finished = true,
                     .outcome = u"error"_s,
                     .attempt = 3,
                     .eventCursor = 99,
                     .replaySummaries = QStringList{},
                     .replayTools = QList<Activity>{step("search:1", "started")}};
        QCOMPARE(Lane::fromJson(l.toJson()), l);
        // Absent optionals stay absent.
        QCOMPARE(Lane::fromJson(Lane{.id = run}.toJson()), Lane{.id = run});
    }

};

QTEST_GUILESS_MAIN(LaneTest)
#include "lanetest.moc"
