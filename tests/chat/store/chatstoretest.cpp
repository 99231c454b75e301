// The chat store on its own: frames, absorbing, ordering, rows and the files it keeps.
// No server: frames and feeds are handed to it as the socket and fetches would.

#include "chat/store/chatbackoff.h"
#include "chat/model/chatorder.h"
#include "chat/store/chatrowsmodel.h"
#include "chat/store/chatstore.h"
#include "chat/store/chatstores.h"
#include "chat/store/transcript.h"
#include "platform/appdata.h"
#include "support/fakeclock.h"
#include "support/testapi.h"
#include "support/fakereachability.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

namespace {

ChatFrame frame(QJsonObject fields)
{
    return ChatFrame::fromJson(fields);
}

QJsonObject message(qint64 seq, const QString &role, const QString &text, double at,
                    const QJsonObject &extra = {})
{
    QJsonObject m = extra;
    m.insert(QStringLiteral("seq"), seq);
    m.insert(QStringLiteral("role"), role);
    m.insert(QStringLiteral("text"), text);
    m.insert(QStringLiteral("created_at"), at);
    return m;
}

MessagesFeed feedOf(const QJsonArray &messages, const QString &conversation = QStringLiteral("main"),
                    qint64 cursor = 0)
{
    return MessagesFeed::fromJson(QJsonObject{{"ok", true},
                                              {"conversation_id", conversation},
                                              {"messages", messages},
                                              {"cursor", cursor}});
}

QStringList rowIds(const ChatStore &store)
{
    QStringList ids;
    for (const Row &row : store.builtRows())
        ids.append(row.id());
    return ids;
}

} // namespace

class ChatStoreTest : public QObject
{
    Q_OBJECT

    TestApi api;

    std::unique_ptr<TestHome> home;
    FakeSleeper sleeper;
    FakeReachability reachability;
    FakeClock clock;
    ChatStores chats{ChatPorts{api, sleeper, reachability, clock}};

    std::unique_ptr<ChatStore> newStore(const ChatScope &scope = ChatScope::main())
    {
        return chats.make(scope, QStringLiteral("demo"), QStringLiteral("user"));
    }

private slots:
    void init() { home.reset(); // the old home ends first, so the new one stays in force
        home = std::make_unique<TestHome>(); }

    void backoff_data()
    {
        QTest::addColumn<int>("failures");
        QTest::addColumn<int>("ms");
        QTest::newRow("1st") << 1 << 1600;
        QTest::newRow("6th") << 6 << 16777;
        QTest::newRow("7th is capped") << 7 << 20000;
        QTest::newRow("exponent stops at 8") << 40 << 20000;
    }

    void backoff()
    {
        QFETCH(int, failures);
        QFETCH(int, ms);
        QCOMPARE(ChatBackoff::delay(failures).count(), ms);
    }

    void anotherConversationIsIgnored_data()
    {
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("frame");
        QTest::newRow("project frame, main store") << "main" << "project:3";
        QTest::newRow("main frame, project store") << "project:3" << "main";
        QTest::newRow("other project") << "project:3" << "project:4";
    }

    void anotherConversationIsIgnored()
    {
        QFETCH(QString, store);
        QFETCH(QString, frame);
        auto chat = newStore(*ChatScope::fromConversationID(store));
        for (const char *type : {"run_started", "delta", "tool", "final", "error"})
            chat->handle(::frame({{"type", type}, {"conversation_id", frame}, {"run_id", "run_x"},
                                  {"user_seq", 3}, {"text", "hi"}, {"name", "search"}}));
        chat->absorb(feedOf({message(1, "user", "q", 100)}, frame), false);
        QVERIFY(chat->lanes().isEmpty());
        QVERIFY(chat->activityHistory().isEmpty());
        QVERIFY(chat->messages().isEmpty());
        // And the store's own conversation takes them.
        chat->handle(::frame({{"type", "delta"}, {"conversation_id", store}, {"run_id", "run_x"},
                              {"text", "hi"}}));
        chat->absorb(feedOf({message(1, "user", "q", 100)}, store), false);
        QCOMPARE(chat->lanes().size(), 1);
        QCOMPARE(chat->messages().size(), 1);
    }

    void runStartedAnchorsOnlyWithAUserSeq()
    {
        auto chat = newStore();
        chat->handle(frame({{"type", "run_started"}, {"run_id", "run_a"}, {"user_seq", 0},
                            {"client_request_id", "turn-1"}}));
        QCOMPARE(chat->lanes().size(), 1);
        QCOMPARE(chat->lanes().first().after, 0);
        QVERIFY(!chat->awaitingRuns().contains(QStringLiteral("run_a"))); // not a turn of ours

        chat->handle(frame({{"type", "run_started"}, {"run_id", "run_b"}, {"user_seq", 4}}));
        QCOMPARE(chat->lanes().last().after, 4);
    }

    void laneFollowsItsRun()
    {
        auto chat = newStore();
        chat->absorb(feedOf({message(1, "user", "question", 100, {{"run_id", "run_a"}})}), true);
        QSignalSpy lanes(chat.get(), &ChatStore::laneChanged);
        chat->handle(frame({{"type", "run_started"}, {"run_id", "run_a"}, {"user_seq", 1}}));
        chat->handle(frame({{"type", "delta"}, {"run_id", "run_a"}, {"label", "Researcher"},
                            {"text", "Reading"}, {"attempt", 2}}));
        chat->handle(frame({{"type", "tool"}, {"run_id", "run_a"}, {"name", "search"},
                            {"summary", "bus times"}, {"status", "started"}}));
        chat->handle(frame({{"type", "tool"}, {"run_id", "run_a"}, {"name", "search"},
                            {"summary", "bus times"}, {"status", "completed"}}));
        QCOMPARE(lanes.count(), 4);
        const Lane lane = chat->lanes().first();
        QCOMPARE(lane.label, QStringLiteral("Researcher"));
        QCOMPARE(lane.attempt, std::optional<int>(2));
        QCOMPARE(lane.tools.size(), 1);
        QCOMPARE(lane.tools.first().status, QStringLiteral("completed"));
        QCOMPARE(rowIds(*chat), (QStringList{"seq:1", "lane:run_a"}));

        chat->handle(frame({{"type", "final"}, {"run_id", "run_a"}, {"text", "**Done**"}, {"created_at", 101.5}}));
        QVERIFY(chat->lanes().isEmpty());
        QCOMPARE(chat->activityHistory().first().outcome, std::optional<QString>("completed"));
        QVERIFY(!chat->awaitingRuns().contains(QStringLiteral("run_a")));
        QCOMPARE(chat->messages().last().text, QStringLiteral("**Done**"));
        QCOMPARE(chat->messages().last().createdAt, 101.5);
    }

    void errorFrameSaysSomething_data()
    {
        QTest::addColumn<QJsonObject>("frame");
        QTest::addColumn<QString>("text");
        QTest::newRow("with text") << QJsonObject{{"error", "quota exceeded"}} << "quota exceeded";
        QTest::newRow("without") << QJsonObject{} << "Something failed.";
    }

    void errorFrameSaysSomething()
    {
        QFETCH(QJsonObject, frame);
        frame.insert(QStringLiteral("type"), QStringLiteral("error"));
        frame.insert(QStringLiteral("run_id"), QStringLiteral("run_e"));
        auto chat = newStore();
        chat->handle(::frame(frame));
        QCOMPARE(chat->messages().size(), 1);
        QTEST(chat->messages().first().text, "text");
        QCOMPARE(chat->activityHistory().first().outcome, std::optional<QString>("error"));
    }

    void aReplyIsShownOnce()
    {
        auto chat = newStore();
        chat->absorb(feedOf({message(1, "user", "q", 100, {{"run_id", "run_a"}})}), true);
        const QJsonObject final{{"type", "final"}, {"run_id", "run_a"}, {"text", "answer"}};
        chat->handle(frame(final));
        chat->handle(frame(final)); // the socket repeated itself
        QCOMPARE(chat->messages().size(), 2);
        QCOMPARE(chat->messages().last().seq, 0);

        // The stored copy arrives by fetch: it takes the local one's place, with its seq.
        QSignalSpy added(chat.get(), &ChatStore::messageAdded);
        chat->absorb(feedOf({message(2, "assistant", "answer", 100.2, {{"run_id", "run_a"}})}), false);
        QCOMPARE(chat->messages().size(), 2);
        QCOMPARE(chat->messages().last().seq, 2);
        QCOMPARE(added.count(), 0);
        QCOMPARE(chat->cursor(), 2);
    }

    // A restart shows the conversation as it was left, lanes under their messages, before the
    // network; another conversation's files are its own.
    void restartShowsWhatWasKept()
    {
        {
            auto chat = newStore(ChatScope::project(2));
            const auto handle = [&](QJsonObject fields) {
                fields.insert(QStringLiteral("conversation_id"), QStringLiteral("project:2"));
                chat->handle(frame(fields));
            };
            chat->absorb(
                feedOf({message(1, "user", "שלום", 100), message(2, "assistant", "ok", 101),
                        message(3, "user", "second", 102)},
                       QStringLiteral("project:2")),
                true);
            handle({{"type", "run_started"}, {"run_id", "run_a"}, {"user_seq", 1}});
            handle({{"type", "final"}, {"run_id", "run_a"}});
            handle({{"type", "run_started"}, {"run_id", "run_b"}, {"user_seq", 3}});
            handle({{"type", "delta"}, {"run_id", "run_b"}, {"text", "thinking"}});
            chat->flushDisk();
        }
        auto again = newStore(ChatScope::project(2));
        again->hydrate();
        QCOMPARE(rowIds(*again),
                 (QStringList{"seq:1", "lane:run_a", "seq:2", "seq:3", "lane:run_b"}));
        QCOMPARE(again->rows()->rowCount(), 5);
        QCOMPARE(again->messages().first().text, QStringLiteral("שלום"));
        QCOMPARE(again->lanes().first().text, QStringLiteral("thinking"));
        QCOMPARE(again->cursor(), 3);
        auto main = newStore();
        main->hydrate();
        QVERIFY(main->messages().isEmpty());
    }

    void rowsChangeInPlace()
    {
        auto chat = newStore();
        QAbstractItemModelTester tester(chat->rows(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        chat->absorb(feedOf({message(1, "user", "q", 100)}), true);
        chat->handle(frame({{"type", "run_started"}, {"run_id", "run_a"}, {"user_seq", 1}}));
        QSignalSpy inserted(chat->rows(), &QAbstractItemModel::rowsInserted);
        QSignalSpy reset(chat->rows(), &QAbstractItemModel::modelReset);
        QSignalSpy changed(chat->rows(), &QAbstractItemModel::dataChanged);
        for (int i = 0; i < 50; ++i)
            chat->handle(frame({{"type", "delta"}, {"run_id", "run_a"}, {"text", QString::number(i)}}));
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(reset.count(), 0);
        QCOMPARE(changed.count(), 50);
        QCOMPARE(chat->rows()->data(chat->rows()->index(1), ChatRowsModel::TextRole).toString(), QStringLiteral("49"));
        // A reply arrives: one row more, at the end.
        chat->handle(frame({{"type", "final"}, {"run_id", "run_a"}, {"text", "done"}}));
        QCOMPARE(inserted.count(), 1);
        QCOMPARE(chat->rows()->rowCount(), 3);
    }

    // A late frame of an ended run (after its final) never reopens or relabels its lane.
    void lateFramesLeaveAFinishedLane_data()
    {
        QTest::addColumn<QJsonObject>("late");
        QTest::newRow("delta") << QJsonObject{{"type", "delta"}, {"label", "Relabelled"}, {"text", "more"}};
        QTest::newRow("tool started") << QJsonObject{{"type", "tool"}, {"name", "search"}, {"status", "started"}};
        QTest::newRow("run started") << QJsonObject{{"type", "run_started"}, {"user_seq", 9}};
    }

    void lateFramesLeaveAFinishedLane()
    {
        QFETCH(QJsonObject, late);
        auto chat = newStore();
        chat->handle(frame({{"type", "delta"}, {"run_id", "run_a"}, {"label", "Research"}, {"text", "t"}}));
        chat->handle(frame({{"type", "tool"}, {"run_id", "run_a"}, {"name", "search"}, {"status", "completed"}}));
        chat->handle(frame({{"type", "final"}, {"run_id", "run_a"}, {"text", "done"}}));
        const Lane before = chat->activityHistory().first();
        late.insert(QStringLiteral("run_id"), QStringLiteral("run_a"));
        chat->handle(frame(late));
        QVERIFY(chat->lanes().isEmpty());
        QCOMPARE(chat->activityHistory().size(), 1);
        QCOMPARE(chat->activityHistory().first(), before);
    }

    // Rows are kept by small edits (a page appended, one lane in, one lane changed); after
    // every step they are the rows a full build would make, and the screen's model agrees.
    // Steps: "pN" a page with message N (odd: the user's turn of run rN, even: its reply),
    // "oN" the same dated before all others, "sR@N" run R starts under N, "dR" a delta, "tR" a
    // tool step, "fR" its final with text.
    void editedRowsMatchAFullBuild_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::newRow("lanes sharing a turn")
            << QStringList{"p1", "p2", "p3", "sa@3", "sb@3", "sc@1", "fb", "da", "p4", "fa", "p5"};
        QTest::newRow("a lane before its turn") << QStringList{"sx@5", "p1", "tx", "p5", "fx", "p6"};
        QTest::newRow("a reply shown then stored") << QStringList{"p1", "sr1@1", "fr1", "p2", "p3"};
        QTest::newRow("an unanchored lane at the end") << QStringList{"p1", "dq", "p2", "sa@2", "fq"};
        QTest::newRow("an older page under a waiting lane") << QStringList{"p1", "p2", "sc@3", "o3"};
    }

    void editedRowsMatchAFullBuild()
    {
        QFETCH(QStringList, steps);
        auto chat = newStore();
        QAbstractItemModelTester tester(chat->rows(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        for (const QString &step : steps) {
            const QString run = step.mid(1).section(u'@', 0, 0);
            if (step.startsWith(u'p') || step.startsWith(u'o')) {
                const int seq = run.toInt();
                const double at = step.startsWith(u'o') ? 50 : 100 + seq;
                chat->absorb(feedOf({message(seq, seq % 2 ? "user" : "assistant", step, at,
                                             {{"run_id", QStringLiteral("r%1").arg((seq + 1) / 2)}})}),
                             false);
            } else if (step.startsWith(u's')) {
                chat->handle(frame({{"type", "run_started"}, {"run_id", run}, {"user_seq", step.section(u'@', 1).toInt()}}));
            } else if (step.startsWith(u'd')) {
                chat->handle(frame({{"type", "delta"}, {"run_id", run}, {"text", step}}));
            } else if (step.startsWith(u't')) {
                chat->handle(frame({{"type", "tool"}, {"run_id", run}, {"name", "search"}, {"status", "started"}}));
            } else {
                chat->handle(frame({{"type", "final"}, {"run_id", run}, {"text", step}, {"created_at", 150}}));
            }
            QList<Lane> lanes = chat->activityHistory();
            lanes.append(chat->lanes());
            QStringList full;
            for (const Row &row : buildRows(chat->messages(), lanes))
                full.append(row.id());
            QCOMPARE(rowIds(*chat), full);
            QStringList shown;
            for (int i = 0; i < chat->rows()->rowCount(); ++i)
                shown.append(chat->rows()->data(chat->rows()->index(i), ChatRowsModel::IdRole).toString());
            QCOMPARE(shown, full);
        }
    }

    void finishedLanesAreBounded()
    {
        auto chat = newStore();
        for (int i = 0; i < ChatStore::maxHistory + 10; ++i)
            chat->handle(frame({{"type", "final"}, {"run_id", QStringLiteral("run_%1").arg(i)}}));
        QCOMPARE(chat->activityHistory().size(), ChatStore::maxHistory);
        QCOMPARE(chat->activityHistory().first().id, QStringLiteral("run_10"));
    }

    void resetForgetsEverything()
    {
        auto chat = newStore();
        chat->absorb(feedOf({message(1, "user", "q", 100, {{"run_id", "run_a"}})}), true);
        chat->handle(frame({{"type", "run_started"}, {"run_id", "run_a"}, {"user_seq", 1}}));
        chat->flushDisk();
        QVERIFY(!QDir(Transcript::folder()).isEmpty());
        chats.reset();
        QVERIFY(chat->messages().isEmpty());
        QVERIFY(chat->lanes().isEmpty());
        QCOMPARE(chat->rows()->rowCount(), 0);
        QVERIFY(!QDir(AppData::path(QStringLiteral("transcript"))).exists()
                || QDir(AppData::path(QStringLiteral("transcript"))).isEmpty());
        QVERIFY(!AppData::setting(QStringLiteral("chat.laneAnchors.demo")).isValid());
    }
};

QTEST_GUILESS_MAIN(ChatStoreTest)
#include "chatstoretest.moc"
