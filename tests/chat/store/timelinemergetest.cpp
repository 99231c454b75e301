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

        // Held and page messages space-separated.
        const auto row = [](const char *name, const char *held, qint64 cursor, const char *page,
                            qint64 pageCursor, const char *replaced, const char *added,
                            qint64 newCursor, int news, bool replacing = false) {
            const auto list = [](const char *codes) {
                return QString::fromLatin1(codes).split(u' ', Qt::SkipEmptyParts);
            };
            QTest::newRow(name) << list(held) << cursor << list(page) << pageCursor << replacing
                                << replaced << added << newCursor << news;
        };
        row("a newer page adds", "u1 a2", 2, "u3 a4", 4, "", "3,4", 4, 1);
        row("held and repeated seqs are skipped", "u1", 1, "u1 a2 a2", 2, "", "2", 2, 1);
        row("a replacing load is no news", "", 0, "u1 a2", 2, "", "1,2", 2, 0, true);
        row("a reply from a frame takes its stored copy", "u1 a0:r1", 1, "a2:r1", 2, "1=2", "", 2,
            0);
        row("a turn takes its stored copy by request id", "a3 u0#q1", 3, "u5#q1", 5, "1=5", "", 5,
            0);
        row("a local copy of another role stays", "u0#q1", 0, "a5#q1", 5, "", "5", 5, 1);
        row("one local copy is taken once", "a0:r1", 0, "a1:r1 a2:r1", 2, "0=1", "2", 2, 1);
        row("a bogus seq stops at the server's cursor", "u1", 1, "u9007199254740992", 2, "",
            "9007199254740992", 2, 0);
        row("without a server cursor the seqs lead", "", 0, "u7", 0, "", "7", 7, 0);
        row("the cursor never goes back", "u10", 10, "u4", 4, "", "4", 10, 0);
        row("unstamped messages of a page are left out", "", 0, "u0 a-3", 0, "", "", 0, 0);
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
