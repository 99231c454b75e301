// The transcript's order and the rows drawn from it.

#include "chat/model/chatorder.h"

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// "name:created:seq[:tg]" per message; the name goes in text.
QList<ChatMessage> messagesOf(const QStringList &lines)
{
    QList<ChatMessage> out;
    for (const QString &line : lines) {
        const QStringList f = line.split(u':');
        out.append(ChatMessage::make(u"user"_s, f.at(0), f.at(1).toDouble()));
        out.last().seq = f.at(2).toLongLong();
        if (f.size() > 3) out.last().tgMessageID = f.at(3);
    }
    return out;
}

QStringList ordered(const QStringList &lines)
{
    QList<ChatMessage> messages = messagesOf(lines);
    orderMessages(messages);
    QStringList out;
    for (const ChatMessage &m : messages)
        out << m.text;
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
        QTest::newRow("bridge ids as numbers, not text")
            << QStringList{"x:5:1:12", "y:5:2:9"} << QStringList{"y", "x"};
        QTest::newRow("bridge id is only a tie-break")
            << QStringList{"x:6:1:1", "y:5:2:9"} << QStringList{"y", "x"};
        QTest::newRow("equal keys keep arrival order")
            << QStringList{"c:5:0", "a:5:0", "b:5:0"} << QStringList{"c", "a", "b"};
        QTest::newRow("equal bridge ids keep arrival order")
            << QStringList{"c:5:3:7", "a:5:1:7", "b:5:2:7"} << QStringList{"c", "a", "b"};
        QTest::newRow("not a number sorts first")
            << QStringList{"a:1:1", "b:nan:2"} << QStringList{"b", "a"};
    }

    void orderMessages()
    {
        QFETCH(QStringList, input);
        QTEST(ordered(input), "expected");
    }

    // One order whatever the arrival order, as long as no two messages share every key;
    // a comparator that is not a strict weak order fails this. Bridged messages go among
    // themselves by id (d's is below a's), the others by time then seq, and an id that is
    // not a number (f) leaves its message unbridged.
    void orderIgnoresArrival()
    {
        QStringList input{"a:5:3:1", "b:5:2", "c:5:1:2", "d:5:4:-7", "e:4:9", "f:5:5:x"};
        std::sort(input.begin(), input.end());
        int permutations = 0;
        do {
            QCOMPARE(ordered(input), (QStringList{"e", "d", "b", "a", "c", "f"}));
            ++permutations;
        } while (std::next_permutation(input.begin(), input.end()));
        QCOMPARE(permutations, 720);
    }

    void buildRows_data()
    {
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<QStringList>("lanes"); // "id:after"
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("lanes under their message, in their order")
            << QStringList{"a:1:1", "b:2:2", "c:3:3"} << QStringList{"run_y:2", "run_x:2"}
            << QStringList{"seq:1", "seq:2", "lane:run_y", "lane:run_x", "seq:3"};
        QTest::newRow("unanchored lanes at the end, in order")
            << QStringList{"a:1:1", "b:2:2"}
            << QStringList{"run_gone:9", "run_x:1", "run_new:0", "run_neg:-1"}
            << QStringList{"seq:1",         "lane:run_x",   "seq:2",
                           "lane:run_gone", "lane:run_new", "lane:run_neg"};
        QTest::newRow("a repeated seq takes the lane once")
            << QStringList{"a:1:1", "b:2:1"} << QStringList{"run_x:1"}
            << QStringList{"seq:1", "lane:run_x", "seq:1"};
    }

    void buildRows()
    {
        QFETCH(QStringList, messages);
        QFETCH(QStringList, lanes);
        QList<Lane> records;
        for (const QString &l : lanes)
            records.append(
                Lane{.id = l.section(u':', 0, 0), .after = l.section(u':', 1).toLongLong()});
        QStringList ids;
        for (const Row &r : ::buildRows(messagesOf(messages), records))
            ids << r.id();
        QTEST(ids, "rows");
    }
};

QTEST_GUILESS_MAIN(ChatOrderTest)
#include "chatordertest.moc"
