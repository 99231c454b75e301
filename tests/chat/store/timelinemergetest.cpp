// What a page of messages does to the held transcript.

#include "chat/store/timelinemerge.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// "u3", "a0:run", "u0#req": role, seq, then a run id or a client request id.
ChatMessage messageOf(const QString &code)
{
    ChatMessage m = ChatMessage::make(code.startsWith(u'a') ? u"assistant"_s : u"user"_s, code, 1);
    const qsizetype run = code.indexOf(u':');
    const qsizetype request = code.indexOf(u'#');
    const qsizetype end = run > 0 ? run : request > 0 ? request : code.size();
    m.seq = code.mid(1, end - 1).toLongLong();
    if (run > 0)
        m.runID = code.mid(run + 1);
    if (request > 0)
        m.clientRequestID = code.mid(request + 1);
    return m;
}

} // namespace

class TimelineMergeTest : public QObject
{
    Q_OBJECT

private slots:
    void plan_data()
    {
        QTest::addColumn<QStringList>("held");
        QTest::addColumn<qint64>("cursor");
        QTest::addColumn<QStringList>("page");
        QTest::addColumn<qint64>("pageCursor");
        QTest::addColumn<bool>("replacing");
        QTest::addColumn<QString>("replaced"); // "index=seq,…"
        QTest::addColumn<QString>("added");    // "seq,…"
        QTest::addColumn<qint64>("newCursor");
        QTest::addColumn<int>("news");

        const QStringList none;
        QTest::newRow("a newer page adds")
            << QStringList{"u1", "a2"} << 2LL << QStringList{"u3", "a4"} << 4LL << false << ""
            << "3,4" << 4LL << 1;
        QTest::newRow("held and repeated seqs are skipped")
            << QStringList{"u1"} << 1LL << QStringList{"u1", "a2", "a2"} << 2LL << false << ""
            << "2" << 2LL << 1;
        QTest::newRow("a replacing load is no news")
            << none << 0LL << QStringList{"u1", "a2"} << 2LL << true << "" << "1,2" << 2LL << 0;
        QTest::newRow("a reply from a frame takes its stored copy")
            << QStringList{"u1", "a0:r1"} << 1LL << QStringList{"a2:r1"} << 2LL << false << "1=2"
            << "" << 2LL << 0;
        QTest::newRow("a turn takes its stored copy by request id")
            << QStringList{"a3", "u0#q1"} << 3LL << QStringList{"u5#q1"} << 5LL << false << "1=5"
            << "" << 5LL << 0;
        QTest::newRow("a local copy of another role stays")
            << QStringList{"u0#q1"} << 0LL << QStringList{"a5#q1"} << 5LL << false << "" << "5"
            << 5LL << 1;
        QTest::newRow("one local copy is taken once")
            << QStringList{"a0:r1"} << 0LL << QStringList{"a1:r1", "a2:r1"} << 2LL << false
            << "0=1" << "2" << 2LL << 1;
        QTest::newRow("a bogus seq stops at the server's cursor")
            << QStringList{"u1"} << 1LL << QStringList{"u9007199254740992"} << 2LL << false << ""
            << "9007199254740992" << 2LL << 0;
        QTest::newRow("without a server cursor the seqs lead")
            << none << 0LL << QStringList{"u7"} << 0LL << false << "" << "7" << 7LL << 0;
        QTest::newRow("the cursor never goes back")
            << QStringList{"u10"} << 10LL << QStringList{"u4"} << 4LL << false << "" << "4"
            << 10LL << 0;
        QTest::newRow("unstamped messages of a page are left out")
            << none << 0LL << QStringList{"u0", "a-3"} << 0LL << false << "" << "" << 0LL << 0;
    }

    void plan()
    {
        QFETCH(QStringList, held);
        QFETCH(qint64, cursor);
        QFETCH(QStringList, page);
        QFETCH(qint64, pageCursor);
        QFETCH(bool, replacing);

        MessageList list;
        QSet<qint64> seen;
        bool locals = false;
        for (const QString &code : held) {
            list.append(std::make_shared<const ChatMessage>(messageOf(code)));
            if (list.at(list.size() - 1).seq > 0)
                seen.insert(list.at(list.size() - 1).seq);
            else
                locals = true;
        }
        MessagesFeed feed;
        feed.cursor = pageCursor;
        for (const QString &code : page)
            feed.messages.append(messageOf(code));

        const TimelineMerge merge = TimelineMerge::plan(list, seen, locals, cursor, feed, replacing);
        QStringList replaced;
        for (const TimelineMerge::Replacement &r : merge.replaced)
            replaced << u"%1=%2"_s.arg(r.at).arg(r.message->seq);
        QStringList added;
        for (const MessageList::Ptr &m : merge.added)
            added << QString::number(m->seq);
        QTEST(replaced.join(u','), "replaced");
        QTEST(added.join(u','), "added");
        QTEST(merge.cursor, "newCursor");
        QTEST(merge.newReplies, "news");
    }
};

QTEST_APPLESS_MAIN(TimelineMergeTest)
#include "timelinemergetest.moc"
