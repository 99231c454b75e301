// The transcript's order, the rows drawn from it, and the pending turn's motion.

#include "chat/chatorder.h"
#include "chat/pendingturn.h"

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<double>)

namespace {

// "name:created:seq[:tg]" per message; the name goes in text.
QList<ChatMessage> messagesOf(const QStringList &lines)
{
    QList<ChatMessage> out;
    for (const QString &line : lines) {
        const QStringList f = line.split(u':');
        ChatMessage m = ChatMessage::make(u"user"_s, f.at(0), f.at(1).toDouble());
        m.seq = f.at(2).toLongLong();
        if (f.size() > 3)
            m.tgMessageID = f.at(3);
        out.append(m);
    }
    return out;
}

QStringList names(const QList<ChatMessage> &messages)
{
    QStringList out;
    for (const ChatMessage &m : messages)
        out << m.text;
    return out;
}

// "id:after" per lane.
QList<Lane> lanesOf(const QStringList &lines)
{
    QList<Lane> out;
    for (const QString &line : lines) {
        Lane l;
        l.id = line.section(u':', 0, 0);
        l.after = line.section(u':', 1).toLongLong();
        out.append(l);
    }
    return out;
}

} // namespace

class ChatOrderTest : public QObject
{
    Q_OBJECT

private slots:
    void orderMessages_data()
    {
        QTest::addColumn<QStringList>("input");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("by time") << QStringList{"b:2:1", "a:1:2", "c:3:0"}
                                 << QStringList{"a", "b", "c"};
        QTest::newRow("bridge ids as numbers, not text")
            << QStringList{"x:5:1:12", "y:5:2:9"} << QStringList{"y", "x"};
        QTest::newRow("signed bridge ids") << QStringList{"x:5:1:+3", "y:5:2:-1"}
                                           << QStringList{"y", "x"};
        QTest::newRow("no bridge ids: seq") << QStringList{"x:5:9", "y:5:3"}
                                            << QStringList{"y", "x"};
        QTest::newRow("one bridge id: seq") << QStringList{"x:5:9:1", "y:5:3"}
                                            << QStringList{"y", "x"};
        QTest::newRow("non-numeric bridge id: seq") << QStringList{"x:5:9:1", "y:5:3:abc"}
                                                    << QStringList{"y", "x"};
        QTest::newRow("bridge id is only a tie-break")
            << QStringList{"x:6:1:1", "y:5:2:9"} << QStringList{"y", "x"};
        QTest::newRow("equal keys keep arrival order")
            << QStringList{"c:5:0", "a:5:0", "b:5:0"} << QStringList{"c", "a", "b"};
        QTest::newRow("equal bridge ids keep arrival order")
            << QStringList{"c:5:3:7", "a:5:1:7", "b:5:2:7"} << QStringList{"c", "a", "b"};
        // a < c by id, c < b by seq, b < a by seq: the seq order is kept and the two
        // bridged messages trade places by id.
        QTest::newRow("contradicting pairs")
            << QStringList{"a:5:3:1", "b:5:2", "c:5:1:2"} << QStringList{"a", "b", "c"};
        QTest::newRow("not a number sorts first") << QStringList{"a:1:1", "b:nan:2"}
                                                  << QStringList{"b", "a"};
    }

    void orderMessages()
    {
        QFETCH(QStringList, input);
        QList<ChatMessage> messages = messagesOf(input);
        ::orderMessages(messages);
        QTEST(names(messages), "expected");
    }

    // One order whatever the arrival order, as long as no two messages share every key;
    // a comparator that is not a strict weak order fails this.
    void orderIgnoresArrival()
    {
        QStringList input{"a:5:3:1", "b:5:2", "c:5:1:2", "d:5:4:-7", "e:4:9", "f:5:5:x"};
        std::sort(input.begin(), input.end());
        int permutations = 0;
        do {
            QList<ChatMessage> messages = messagesOf(input);
            ::orderMessages(messages);
            // Bridged messages among themselves by id, the others among themselves by seq.
            QCOMPARE(names(messages), (QStringList{"e", "d", "b", "a", "c", "f"}));
            ++permutations;
        } while (std::next_permutation(input.begin(), input.end()));
        QCOMPARE(permutations, 720);
    }

    void buildRows_data()
    {
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<QStringList>("lanes");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("lanes under their message, in their order")
            << QStringList{"a:1:1", "b:2:2", "c:3:3"} << QStringList{"run_y:2", "run_x:2"}
            << QStringList{"seq:1", "seq:2", "lane:run_y", "lane:run_x", "seq:3"};
        QTest::newRow("unanchored lanes at the end, in order")
            << QStringList{"a:1:1", "b:2:2"}
            << QStringList{"run_gone:9", "run_x:1", "run_new:0", "run_neg:-1"}
            << QStringList{"seq:1", "lane:run_x", "seq:2", "lane:run_gone", "lane:run_new",
                           "lane:run_neg"};
        QTest::newRow("unstamped messages anchor nothing")
            << QStringList{"a:1:0"} << QStringList{"run_x:0"}
            << QStringList{"seq:0", "lane:run_x"};
        QTest::newRow("a repeated seq takes the lane once")
            << QStringList{"a:1:1", "b:2:1"} << QStringList{"run_x:1"}
            << QStringList{"seq:1", "lane:run_x", "seq:1"};
    }

    void buildRows()
    {
        QFETCH(QStringList, messages);
        QFETCH(QStringList, lanes);
        QStringList ids;
        for (const Row &r : ::buildRows(messagesOf(messages), lanesOf(lanes)))
            ids << r.id();
        QTEST(ids, "rows");
    }

    void rows()
    {
        QList<Lane> lanes = lanesOf({"run_x:1"});
        lanes[0].text = u"streaming"_s;
        const QList<Row> rows = ::buildRows(messagesOf({"a:1:1"}), lanes);
        QVERIFY(rows.at(0).isMessage() && !rows.at(0).lane());
        QCOMPARE(rows.at(0).message()->text, u"a"_s);
        QVERIFY(!rows.at(1).isMessage() && !rows.at(1).message());
        QCOMPARE(rows.at(1).lane()->text, u"streaming"_s);

        // Same id, changed content: a changed row.
        Lane changed = lanes.at(0);
        changed.text = u"more"_s;
        QCOMPARE(Row::lane(changed).id(), rows.at(1).id());
        QVERIFY(!(Row::lane(changed) == rows.at(1)));

        // A message decoded twice is the same row, though its localID differs.
        ChatMessage again = *rows.at(0).message();
        again.localID = u"other"_s;
        QVERIFY(Row::message(again) == rows.at(0));
    }

    void moving_data()
    {
        QTest::addColumn<std::optional<double>>("lastProgress");
        QTest::addColumn<bool>("moving");
        QTest::newRow("never progressed") << std::optional<double>() << false;
        QTest::newRow("15 s ago") << std::optional<double>(85) << true;
        QTest::newRow("just over 15 s ago") << std::optional<double>(84.9) << false;
        QTest::newRow("ahead of the clock") << std::optional<double>(130) << true;
    }

    void moving()
    {
        QFETCH(std::optional<double>, lastProgress);
        PendingTurn turn;
        turn.lastProgress = lastProgress;
        QTEST(turn.moving(100), "moving");
    }
};

QTEST_GUILESS_MAIN(ChatOrderTest)
#include "chatordertest.moc"
